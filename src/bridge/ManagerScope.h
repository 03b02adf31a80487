#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <optional>

// Which systemd manager a job belongs to: an agent goes to the user's manager and the
// user's unit folder, a daemon to the system manager and the system unit folder.
class ManagerScope
{
public:
    static ManagerScope user();
    static ManagerScope system();
    // A job file in the system's LaunchDaemons folder (of the local root) is a daemon; every
    // other job, wherever it lies and whatever its folder is called, is an agent.
    // Run as root, an agent belongs to the user at the console, whose job folders the
    // application writes: it goes to that user's manager and unit folder.
    static ManagerScope forJobFile(const QString &jobPath);

    bool isSystem() const { return m_system; }
    // $XDG_CONFIG_HOME/systemd/user (default ~/.config/systemd/user), or
    // $VT_LOCAL_ROOT/etc/systemd/system; no value when the user has no home.
    std::optional<QString> unitFolder() const;
    // "--user" for the user's manager, nothing for the system manager.
    QStringList systemctlOptions() const;
    // The target a unit started at login or boot is wanted by.
    QString startupTarget() const;
    // The user whose manager this is when root acts for the console user; files written
    // into that user's folder are handed to that user.
    std::optional<uid_t> owner() const { return m_ownerID; }

    static bool liesInDaemonsFolder(const QString &jobPath);

private:
    explicit ManagerScope(bool system) : m_system(system) {}

    bool m_system;
    std::optional<QString> m_owner;
    std::optional<QString> m_ownerHome;
    std::optional<uid_t> m_ownerID;
};
