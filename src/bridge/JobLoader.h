#pragma once

#include <QString>
#include <QStringList>

class ManagerScope;
class SystemdManager;
class UnitFolder;

// launchctl's load and unload on systemd.
//
// load: reads and checks the job file, writes its units (each atomically), then, unless the
// job is disabled, "enable --no-reload" of its triggers, one "daemon-reload", and
// "start --no-block" of the triggers (the timer, the path unit, the service for RunAtLoad, the
// mount watcher for StartOnMount); --no-block because launchd starts a job without waiting for it.
// Loading a job that is loaded already first stops and disables what it had, then replaces its
// units.
//
// unload: "stop" and "disable --no-reload" of the job's units (a unit the manager no longer knows
// is no failure), removal of the unit files, "daemon-reload". A job that was never loaded is
// unloaded quietly with status 0.
//
// Status 0 when every step worked; 1 otherwise, each problem on the console. A job file that
// is missing or invalid, a daemon while not root, or a unit of the same name that the bridge
// did not write stops the command before anything is changed. When systemctl fails (no
// systemd running, say), the units stay written and enabled as far as that works offline, so
// the manager picks them up when it starts, and the status is 1.
class JobLoader
{
public:
    // bridgePath: this program, run by the mount watcher's unit.
    explicit JobLoader(QString bridgePath) : m_bridgePath(std::move(bridgePath)) {}

    int load(const QString &jobPath) const;
    int unload(const QString &jobPath) const;

private:
    bool deactivate(const SystemdManager &systemd, const UnitFolder &folder,
                    const QStringList &units) const;

    QString m_bridgePath;
};
