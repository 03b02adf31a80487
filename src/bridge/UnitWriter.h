#pragma once

#include "JobFile.h"
#include "ManagerScope.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <utility>
#include <vector>

// The systemd units of one launchd job. Every choice of the translation is made here:
//
// - LABEL.service runs the job: Type=oneshot, ExecStart=@PROGRAM ARGV0 ARGS..., Nice=,
//   IOSchedulingClass=idle for LowPriorityIO, one Environment= per variable. With RunAtLoad
//   it is wanted by the manager's startup target (default.target, multi-user.target).
// - LABEL.timer carries StartCalendarInterval (one OnCalendar= per element, two for an
//   element with Day and Weekday, Persistent=true; the application's own form, one key per
//   element and no key twice, is merged into one element first) and StartInterval (OnActiveSec= and
//   OnUnitActiveSec=), AccuracySec=1s, wanted by timers.target.
// - LABEL.path carries WatchPaths (PathModified= per path), wanted by paths.target.
// - StartOnMount is recorded in the service's header; the bridge's mount watcher starts such
//   services.
//
// A trigger with nothing left to fire on gets no unit: an empty StartCalendarInterval (which
// launchd never fires either), elements whose values can never match, and paths systemd
// cannot watch (empty, relative, or not representable in a unit file). The service alone is
// then written, loaded but never started.
class UnitWriter
{
public:
    // No value when the label cannot name a unit (too long, or the mount watcher's name),
    // when systemd would not run the program and the bridge (bridgePath) cannot either, or
    // when a path to watch or an environment variable is not UTF-8. Program and arguments
    // may hold any bytes.
    static std::optional<UnitWriter> forJob(const JobFile &job, const ManagerScope &scope,
                                            QString *message,
                                            const QString &bridgePath = QString());
    // systemd runs no executable whose path holds a quote or a backslash ("Anna's
    // Tools.app"); such a program is started by the bridge's "exec" command, which becomes
    // it at once with the job's own argument list.
    static bool systemdRunsProgram(const QString &program);

    // The names of all three units of a label, whether written or not.
    static std::optional<QStringList> unitNames(const QString &label);

    const QString &serviceName() const { return m_serviceName; }
    // Name and text of every unit of the job, the service first.
    const std::vector<std::pair<QString, QString>> &units() const { return m_units; }
    // The units that load enables and starts unless the job is disabled.
    const QStringList &triggers() const { return m_triggers; }
    // What the translation left out, one sentence each (the job file's own warnings first).
    const QStringList &warnings() const { return m_warnings; }

    static QString mountWatcherName();
    // The resident watcher that starts the StartOnMount jobs of one manager.
    static QString mountWatcherUnit(const QString &bridgePath, const ManagerScope &scope);

private:
    UnitWriter() = default;

    QString serviceText(const JobFile &job, const ManagerScope &scope, const QString &bridgePath);
    std::optional<QString> timerText(const JobFile &job);
    std::optional<QString> pathText(const JobFile &job);

    QString m_serviceName;
    std::vector<std::pair<QString, QString>> m_units;
    QStringList m_triggers;
    QStringList m_warnings;
};
