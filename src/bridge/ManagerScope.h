#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Which systemd manager a job belongs to: an agent goes to the user's manager and the
// user's unit folder, a daemon to the system manager and the system unit folder.
class ManagerScope
{
public:
    static ManagerScope user();
    static ManagerScope system();
    // A job file in a folder named LaunchDaemons is a daemon; every other job is an agent.
    static ManagerScope forJobFile(const QString &jobPath);

    bool isSystem() const { return m_system; }
    // $XDG_CONFIG_HOME/systemd/user (default ~/.config/systemd/user), or
    // $VT_LOCAL_ROOT/etc/systemd/system; no value when the user has no home.
    std::optional<QString> unitFolder() const;
    // "--user" for the user's manager, nothing for the system manager.
    QStringList systemctlOptions() const;
    // The target a unit started at login or boot is wanted by.
    QString startupTarget() const;

private:
    explicit ManagerScope(bool system) : m_system(system) {}

    bool m_system;
};
