#include "TestFiles.h"

#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "support/VTLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// By the bytes of the name (FileNames), so that tests can use names that are not UTF-8.
QString TestFiles::write(const QString &path, const QByteArray &bytes)
{
    PosixFile::makeFolders(PathString::deletingLastPathComponent(path));
    const int fd =
        ::open(FileNames::encode(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) {
        PosixFile::writeAll(fd, bytes);
        ::close(fd);
    }
    return path;
}

QByteArray TestFiles::read(const QString &path)
{
    QFile file;
    const int fd = ::open(FileNames::encode(path).constData(), O_RDONLY | O_CLOEXEC);
    return fd >= 0 && file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)
               ? file.readAll()
               : QByteArray();
}

QString TestFiles::writeScript(const QString &path, const QString &body)
{
    write(path, "#!/bin/sh\n" + body.toUtf8() + "\n");
    ::chmod(FileNames::encode(path).constData(), 0755);
    return path;
}

QString TestFiles::makeBundle(const QString &folder, const QString &name, const PlistDict &info,
                              const QString &executableBody)
{
    const QString bundle = folder + QLatin1Char('/') + name + QStringLiteral(".app");
    QDir().mkpath(bundle + QStringLiteral("/Contents/MacOS"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/Resources"));
    PropertyList::writeXml(PlistValue(info), bundle + QStringLiteral("/Contents/Info.plist"));
    writeScript(bundle + QStringLiteral("/Contents/MacOS/") + name, executableBody);
    return bundle;
}

QStringList TestFiles::lines(const QString &path)
{
    QString text = QString::fromUtf8(read(path));
    if (text.endsWith(QLatin1Char('\n'))) {
        text.chop(1);
    }
    return text.isEmpty() ? QStringList() : text.split(QLatin1Char('\n'));
}

TestFiles::CaptureStderr::CaptureStderr()
{
    QTemporaryFile file(QDir::tempPath() + QStringLiteral("/kairo-stderr-XXXXXX"));
    file.setAutoRemove(false);
    file.open();
    m_path = file.fileName();
    file.close();
    fflush(stderr);
    m_saved = dup(STDERR_FILENO);
    const int fd = ::open(m_path.toLocal8Bit().constData(), O_WRONLY | O_TRUNC);
    dup2(fd, STDERR_FILENO);
    ::close(fd);
}

TestFiles::CaptureStderr::~CaptureStderr()
{
    finish();
}

QString TestFiles::CaptureStderr::finish()
{
    if (!m_done) {
        m_done = true;
        fflush(stderr);
        dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
        m_text = QString::fromUtf8(read(m_path));
        QFile::remove(m_path);
    }
    return m_text;
}

QStringList TestFiles::logMessages()
{
    VTLog::finishWriting();
    static const QRegularExpression line(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - (.*)$)");
    QStringList messages;
    for (const QString &text : lines(VTLog::currentLogPath())) {
        if (const auto match = line.match(text); match.hasMatch()) {
            messages.append(match.captured(1));
        }
    }
    return messages;
}
