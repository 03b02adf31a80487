#include "BridgeCommand.h"

#include "JobLister.h"
#include "JobLoader.h"
#include "MountWatcher.h"

#include "platform/Console.h"
#include "platform/Identity.h"

#include <QDateTime>

#include <cmath>

namespace {

std::optional<qint64> parseTime(const QString &text)
{
    if (text.startsWith(QLatin1Char('@'))) {
        bool ok = false;
        const qint64 seconds = text.mid(1).toLongLong(&ok);
        return ok ? std::optional<qint64>(seconds) : std::nullopt;
    }
    QString iso = text;
    if (iso.size() > 10 && iso.at(10) == QLatin1Char(' ')) {
        iso[10] = QLatin1Char('T');
    }
    const QDateTime time = QDateTime::fromString(iso, Qt::ISODate);
    if (!time.isValid()) {
        return std::nullopt;
    }
    return time.toSecsSinceEpoch();
}

} // namespace

int BridgeCommand::usage()
{
    Console::log(QStringLiteral(
        "usage: kairo-launchctl load PATH... | unload PATH... | list [--system] "
        "[--base-time TIME] | watch-mounts [--mounts FILE] [--interval SECONDS] [--system]"));
    return 1;
}

int BridgeCommand::run(const QStringList &arguments, const QString &bridgePath)
{
    if (arguments.isEmpty()) {
        return usage();
    }
    const QString command = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (command == QLatin1String("load") || command == QLatin1String("unload")) {
        if (rest.isEmpty()) {
            return usage();
        }
        const JobLoader loader(bridgePath);
        int status = 0;
        for (const QString &path : rest) {
            const int one =
                command == QLatin1String("load") ? loader.load(path) : loader.unload(path);
            status = std::max(status, one);
        }
        return status;
    }
    if (command == QLatin1String("list")) {
        return list(rest);
    }
    if (command == QLatin1String("watch-mounts")) {
        return watchMounts(rest);
    }
    return usage();
}

int BridgeCommand::list(const QStringList &options)
{
    bool system = Identity::current().isRoot();
    std::optional<qint64> base = QDateTime::currentSecsSinceEpoch();
    for (qsizetype i = 0; i < options.size(); ++i) {
        if (options.at(i) == QLatin1String("--system")) {
            system = true;
        } else if (options.at(i) == QLatin1String("--base-time") && i + 1 < options.size()) {
            base = parseTime(options.at(++i));
            if (!base) {
                Console::log(
                    QStringLiteral("kairo-launchctl: invalid time \"%1\"").arg(options.at(i)));
                return 1;
            }
        } else {
            return usage();
        }
    }
    Console::print(JobLister(system, *base).text());
    return 0;
}

int BridgeCommand::watchMounts(const QStringList &options)
{
    QString table = QStringLiteral("/proc/self/mounts");
    double interval = 2;
    bool system = false;
    for (qsizetype i = 0; i < options.size(); ++i) {
        if (options.at(i) == QLatin1String("--system")) {
            system = true;
        } else if (options.at(i) == QLatin1String("--mounts") && i + 1 < options.size()) {
            table = options.at(++i);
        } else if (options.at(i) == QLatin1String("--interval") && i + 1 < options.size()) {
            bool ok = false;
            interval = options.at(++i).toDouble(&ok);
            if (!ok || !(interval > 0) || !std::isfinite(interval)) {
                Console::log(
                    QStringLiteral("kairo-launchctl: invalid interval \"%1\"").arg(options.at(i)));
                return 1;
            }
        } else {
            return usage();
        }
    }
    MountWatcher watcher(table, system ? ManagerScope::system() : ManagerScope::user());
    watcher.run(std::chrono::milliseconds(std::max<qint64>(1, std::llround(interval * 1000))));
}
