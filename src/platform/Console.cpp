#include "Console.h"

#include "Clock.h"
#include "PosixFile.h"

#include <QByteArray>
#include <QFileInfo>

#include <unistd.h>

QString Console::processName()
{
    // The executable's own name, also when it was started through a link.
    static const QString name = [] {
        const QString exe = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
        return exe.isEmpty() ? QString::fromLocal8Bit(program_invocation_short_name)
                             : QFileInfo(exe).fileName();
    }();
    return name;
}

void Console::log(const QString &message)
{
    const QDateTime now = Clock::current().now();
    QByteArray line = now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")).toUtf8();
    line += ' ';
    line += processName().toUtf8();
    line += '[' + QByteArray::number(static_cast<qint64>(::getpid())) + "] ";
    line += message.toUtf8();
    line += '\n';
    PosixFile::writeAll(STDERR_FILENO, line);
}

void Console::print(const QString &text)
{
    PosixFile::writeAll(STDOUT_FILENO, text.toUtf8());
}
