#pragma once

#include <QString>
#include <QStringList>

class ManagerScope;
class SystemdManager;
class UnitFolder;

// launchctl's load and unload on systemd, with as few calls to the manager as keep it right.
//
// load: reads and checks the job file and writes its units (each atomically, and only when its
// text changed). Unless the job is disabled, it then asks the manager which of the units it
// holds from older files ("show -p NeedDaemonReload"), runs "daemon-reload" only if any, and
// "enable --now --no-reload --no-block" of the triggers (the timer, the path unit, the service
// for RunAtLoad, the mount watcher for StartOnMount); --no-block because launchd starts a job
// without waiting for it. A disabled job's units are written and nothing more: the load that
// enables it brings the manager up to date. Loading a job that is loaded already first stops and
// disables what it had ("disable --now --no-reload"), then replaces its units.
//
// unload: "disable --now --no-reload" of the job's units (a unit the manager no longer knows is
// no failure) and removal of the unit files. No reload: the stopped units fire no more, and the
// manager drops them once nothing refers to them. A job that was never loaded is unloaded
// quietly with status 0.
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
    bool deactivate(const SystemdManager &systemd, const QStringList &units) const;
    // Whether the manager holds any of the units from an older file than the one now written.
    bool needsReload(const SystemdManager &systemd, const QStringList &units) const;

    QString m_bridgePath;
};
