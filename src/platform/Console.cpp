#include "Console.h"

#include "Clock.h"
#include "FileNames.h"
#include "PosixFile.h"

#include <QByteArray>
#include <QFileInfo>

#include <algorithm>

#include <unistd.h>

QString Console::processName()
{
    // The executable's own name, also when it was started through a link.
    static const QString name = [] {
        const QString exe = FileNames::canonicalPath(QStringLiteral("/proc/self/exe"));
        return exe.isEmpty() ? FileNames::decode(program_invocation_short_name)
                             : QFileInfo(exe).fileName();
    }();
    return name;
}

QString Console::singleLine(const QString &text)
{
    const auto isControl = [](QChar c) {
        return c.unicode() < 0x20 || c.unicode() == 0x7f || c.unicode() == 0x85 ||
               c.unicode() == 0x2028 || c.unicode() == 0x2029;
    };
    if (std::none_of(text.begin(), text.end(), isControl)) {
        return text;
    }
    QString out;
    out.reserve(text.size() + 8);
    for (const QChar c : text) {
        if (!isControl(c)) {
            out += c;
        } else if (c == QLatin1Char('\n')) {
            out += QLatin1String("\\n");
        } else if (c == QLatin1Char('\r')) {
            out += QLatin1String("\\r");
        } else if (c == QLatin1Char('\t')) {
            out += QLatin1String("\\t");
        } else if (c.unicode() > 0xff) {
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        }
    }
    return out;
}

void Console::log(const QString &message)
{
    const QDateTime now = Clock::current().now();
    QByteArray line = now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")).toUtf8();
    line += ' ';
    // Names in the text go out as the bytes they are (FileNames), so a path can be used as
    // printed, also when it is not UTF-8.
    line += FileNames::encode(processName());
    line += '[' + QByteArray::number(static_cast<qint64>(::getpid())) + "] ";
    line += FileNames::encode(singleLine(message));
    line += '\n';
    PosixFile::writeAll(STDERR_FILENO, line);
}

void Console::print(const QString &text)
{
    PosixFile::writeAll(STDOUT_FILENO, FileNames::encode(text));
}
