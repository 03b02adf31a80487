#include "JobLoader.h"

#include "JobFile.h"
#include "ManagerScope.h"
#include "SystemdManager.h"
#include "UnitFolder.h"
#include "UnitWriter.h"

#include "platform/Console.h"
#include "platform/Identity.h"

namespace {

struct Target
{
    JobFile job;
    ManagerScope scope;
    UnitFolder folder;
};

// The job file, its manager and its unit folder; no value after reporting why not. verb is
// "load" or "unload", for launchctl's closing line.
std::optional<Target> target(const QString &jobPath, const QString &verb)
{
    QString message;
    std::optional<JobFile> job = JobFile::read(jobPath, &message);
    if (!job) {
        Console::log(message);
        Console::log(QStringLiteral("nothing found to %1").arg(verb));
        return std::nullopt;
    }
    const ManagerScope scope = ManagerScope::forJobFile(job->path());
    if (scope.isSystem() && !Identity::current().isRoot()) {
        Console::log(QStringLiteral("kairo-launchctl: %1 is a daemon; only root can %2 it")
                         .arg(jobPath, verb));
        return std::nullopt;
    }
    const std::optional<QString> folder = scope.unitFolder();
    if (!folder) {
        Console::log(
            QStringLiteral("kairo-launchctl: there is no home folder for the user's units"));
        return std::nullopt;
    }
    return Target{*job, scope, UnitFolder(*folder, scope.owner())};
}

// Whether a StartOnMount job other than the given service is loaded and enabled.
bool otherMountJobs(const UnitFolder &folder, const QString &exceptService)
{
    for (const QString &service : folder.jobServices()) {
        const std::optional<UnitHeader> header = folder.header(service);
        if (service != exceptService && header && header->startOnMount() && !header->disabled()) {
            return true;
        }
    }
    return false;
}

QString foreignUnitMessage(const UnitFolder &folder, const QString &unit)
{
    return QStringLiteral(
               "kairo-launchctl: %1 was not written by kairo-launchctl; it is left as it is")
        .arg(folder.filePath(unit));
}

} // namespace

bool JobLoader::deactivate(const SystemdManager &systemd, const QStringList &units) const
{
    if (units.isEmpty()) {
        return true;
    }
    // One call stops them and removes their links; units without an [Install] section are
    // only stopped. The caller reloads only where the manager needs it.
    return systemd.run(QStringList{QStringLiteral("disable"), QStringLiteral("--now"),
                                   QStringLiteral("--no-reload")} +
                           units,
                       true);
}

bool JobLoader::needsReload(const SystemdManager &systemd, const QStringList &units) const
{
    // systemd loads a unit it does not hold yet from its file; only a unit it holds from an
    // older file (or from one since removed) needs the reload. Without an answer, reload.
    const std::optional<QString> shown = systemd.show({QStringLiteral("NeedDaemonReload")}, units);
    if (!shown) {
        return true;
    }
    qsizetype current = 0;
    for (const QString &line : shown->split(QLatin1Char('\n'))) {
        if (line.trimmed() == QLatin1String("NeedDaemonReload=no")) {
            ++current;
        }
    }
    return current != units.size();
}

int JobLoader::load(const QString &jobPath) const
{
    const std::optional<Target> t = target(jobPath, QStringLiteral("load"));
    if (!t) {
        return 1;
    }
    const JobFile &job = t->job;
    const UnitFolder &folder = t->folder;
    QString message;
    const std::optional<UnitWriter> writer =
        UnitWriter::forJob(job, t->scope, &message, m_bridgePath);
    if (!writer) {
        Console::log(message);
        return 1;
    }
    for (const QString &warning : writer->warnings()) {
        Console::log(QStringLiteral("kairo-launchctl: %1: %2").arg(jobPath, warning));
    }

    // Nothing is changed unless every unit of the label is free or the job's own.
    const QStringList names = *UnitWriter::unitNames(job.label());
    QStringList previous;
    for (const QString &name : names) {
        switch (folder.state(name)) {
        case UnitFolder::State::Foreign:
            Console::log(foreignUnitMessage(folder, name));
            return 1;
        case UnitFolder::State::Ours:
            previous.append(name);
            break;
        case UnitFolder::State::Missing:
            break;
        }
    }
    if (const std::optional<UnitHeader> header = folder.header(writer->serviceName());
        header && header->label() != job.label()) {
        Console::log(QStringLiteral("kairo-launchctl: the units of %1 belong to the job %2")
                         .arg(writer->serviceName(), header->label()));
        return 1;
    }
    const QString watcher = UnitWriter::mountWatcherName();
    const bool mountJob = job.startOnMount() && !job.disabled();
    if (mountJob && folder.state(watcher) == UnitFolder::State::Foreign) {
        Console::log(foreignUnitMessage(folder, watcher));
        return 1;
    }

    const SystemdManager systemd(t->scope);
    // Timers and paths first, so nothing triggers a service about to be replaced.
    if (!previous.isEmpty() && previous.first() == writer->serviceName()) {
        previous.move(0, previous.size() - 1);
    }
    bool ok = deactivate(systemd, previous);

    QStringList written;
    for (const auto &[name, text] : writer->units()) {
        // An unchanged file keeps its time, so the manager sees nothing to reload.
        if (folder.text(name) != text && !folder.write(name, text, &message)) {
            Console::log(message);
            return 1;
        }
        written.append(name);
    }
    for (const QString &name : previous) {
        if (!written.contains(name) && !folder.remove(name, &message)) {
            Console::log(message);
            ok = false;
        }
    }

    QStringList triggers = writer->triggers();
    if (mountJob) {
        const QString text = UnitWriter::mountWatcherUnit(m_bridgePath, t->scope);
        if (folder.text(watcher) != text && !folder.write(watcher, text, &message)) {
            Console::log(message);
            return 1;
        }
        triggers.append(watcher);
    } else if (folder.state(watcher) == UnitFolder::State::Ours &&
               !otherMountJobs(folder, writer->serviceName())) {
        // This job was the last one that needed the watcher.
        ok = deactivate(systemd, {watcher}) && ok;
        if (!folder.remove(watcher, &message)) {
            Console::log(message);
            ok = false;
        }
    }

    // A disabled job starts nothing, so what the manager holds of it can wait for the load
    // that enables it.
    if (job.disabled() || triggers.isEmpty()) {
        return ok ? 0 : 1;
    }
    QStringList units = written;
    if (mountJob) {
        units.append(watcher);
    }
    if (needsReload(systemd, units)) {
        ok = systemd.run({QStringLiteral("daemon-reload")}) && ok;
    }
    ok = systemd.run(QStringList{QStringLiteral("enable"), QStringLiteral("--now"),
                                 QStringLiteral("--no-reload"), QStringLiteral("--no-block")} +
                     triggers) &&
         ok;
    return ok ? 0 : 1;
}

int JobLoader::unload(const QString &jobPath) const
{
    const std::optional<Target> t = target(jobPath, QStringLiteral("unload"));
    if (!t) {
        return 1;
    }
    const UnitFolder &folder = t->folder;
    const std::optional<QStringList> names = UnitWriter::unitNames(t->job.label());
    if (!names) {
        // No unit could ever have been written for this label.
        return 0;
    }
    const QString service = names->first();
    const std::optional<UnitHeader> header = folder.header(service);
    if (header && header->label() != t->job.label()) {
        // The name is another job's; this one was never loaded.
        return 0;
    }
    QStringList loaded;
    for (const QString &name : *names) {
        switch (folder.state(name)) {
        case UnitFolder::State::Foreign:
            Console::log(foreignUnitMessage(folder, name));
            return 1;
        case UnitFolder::State::Ours:
            loaded.append(name);
            break;
        case UnitFolder::State::Missing:
            break;
        }
    }
    if (loaded.isEmpty()) {
        return 0;
    }
    const QString watcher = UnitWriter::mountWatcherName();
    if (folder.state(watcher) == UnitFolder::State::Ours && !otherMountJobs(folder, service)) {
        loaded.append(watcher);
    }
    // Timers and paths first, so nothing triggers the service while it goes.
    if (loaded.first() == service) {
        loaded.move(0, loaded.size() - 1);
    }

    const SystemdManager systemd(t->scope);
    // Stopped and unlinked, the units are dropped by the manager once unreferenced, or
    // replaced by the next load's reload; nothing starts them in between.
    bool ok = deactivate(systemd, loaded);
    QString message;
    for (const QString &name : loaded) {
        if (!folder.remove(name, &message)) {
            Console::log(message);
            ok = false;
        }
    }
    return ok ? 0 : 1;
}
