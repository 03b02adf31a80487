#include "ManagerScope.h"

#include "platform/Environment.h"
#include "platform/Identity.h"

#include <QDir>
#include <QFileInfo>

ManagerScope ManagerScope::user()
{
    return ManagerScope(false);
}

ManagerScope ManagerScope::system()
{
    return ManagerScope(true);
}

ManagerScope ManagerScope::forJobFile(const QString &jobPath)
{
    return ManagerScope(QFileInfo(jobPath).absoluteDir().dirName() ==
                        QLatin1String("LaunchDaemons"));
}

std::optional<QString> ManagerScope::unitFolder() const
{
    if (m_system) {
        return Environment::localPath(QStringLiteral("/etc/systemd/system"));
    }
    // systemctl itself follows XDG_CONFIG_HOME, so the units must land where it looks.
    const std::optional<QString> config = Environment::value("XDG_CONFIG_HOME");
    if (config && QDir::isAbsolutePath(*config)) {
        return QDir::cleanPath(*config) + QStringLiteral("/systemd/user");
    }
    std::optional<QString> home = Environment::value("HOME");
    if (!home || home->isEmpty()) {
        home = Identity::current().homeDirectory();
    }
    if (!home || home->isEmpty()) {
        return std::nullopt;
    }
    return QDir::cleanPath(*home) + QStringLiteral("/.config/systemd/user");
}

QStringList ManagerScope::systemctlOptions() const
{
    return m_system ? QStringList() : QStringList{QStringLiteral("--user")};
}

QString ManagerScope::startupTarget() const
{
    return m_system ? QStringLiteral("multi-user.target") : QStringLiteral("default.target");
}
