#include "Trash.h"

#include "Clock.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <fcntl.h>
#include <unistd.h>

namespace {

QString infoFolderFor(const QString &filesFolder)
{
    return QFileInfo(filesFolder).absolutePath() + QStringLiteral("/info");
}

QByteArray trashInfo(const QString &originalPath)
{
    const QString absolute = QFileInfo(originalPath).absoluteFilePath();
    return "[Trash Info]\nPath=" + QUrl::toPercentEncoding(absolute, "/") + "\nDeletionDate=" +
           Clock::current().now().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")).toUtf8() + "\n";
}

// Claims NAME.trashinfo with O_EXCL so two processes never pick the same name.
bool claimInfoFile(const QString &infoPath, const QByteArray &content)
{
    const int fd = ::open(QFile::encodeName(infoPath).constData(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0) {
        return false;
    }
    const bool ok = ::write(fd, content.constData(), static_cast<size_t>(content.size())) ==
                    content.size();
    ::close(fd);
    return ok;
}

QString candidateName(const QFileInfo &source, int n)
{
    if (n == 1) {
        return source.fileName();
    }
    const QString suffix = source.completeSuffix();
    const QString base = source.baseName();
    if (suffix.isEmpty() || base.isEmpty()) {
        return source.fileName() + QStringLiteral(" ") + QString::number(n);
    }
    return base + QStringLiteral(" ") + QString::number(n) + QLatin1Char('.') + suffix;
}

} // namespace

std::optional<QString> Trash::moveToTrash(const QString &path, const QString &filesFolder)
{
    const QFileInfo source(path);
    if (!source.exists() && !source.isSymLink()) {
        return std::nullopt;
    }
    const QString infoFolder = infoFolderFor(filesFolder);
    if (!QDir().mkpath(filesFolder) || !QDir().mkpath(infoFolder)) {
        return std::nullopt;
    }
    const QByteArray info = trashInfo(path);
    for (int n = 1; n < 10000; ++n) {
        const QString name = candidateName(source, n);
        const QString target = filesFolder + QLatin1Char('/') + name;
        const QString infoPath = infoFolder + QLatin1Char('/') + name + QStringLiteral(".trashinfo");
        if (QFileInfo::exists(target) || !claimInfoFile(infoPath, info)) {
            continue;
        }
        if (QFileInfo::exists(target)) {
            QFile::remove(infoPath);
            continue;
        }
        if (QFile::rename(path, target)) {
            return target;
        }
        QFile::remove(infoPath);
        return std::nullopt;
    }
    return std::nullopt;
}

bool Trash::writeTrashInfo(const QString &trashedPath, const QString &originalPath)
{
    const QFileInfo trashed(trashedPath);
    const QString infoFolder = infoFolderFor(trashed.absolutePath());
    if (!QDir().mkpath(infoFolder)) {
        return false;
    }
    const QString infoPath = infoFolder + QLatin1Char('/') + trashed.fileName() + QStringLiteral(".trashinfo");
    QFile file(infoPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    return file.write(trashInfo(originalPath)) > 0;
}
