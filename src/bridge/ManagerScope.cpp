#include "ManagerScope.h"

#include "platform/Environment.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "support/VTLocalPaths.h"

#include <QDir>

#include <algorithm>

#include <sys/stat.h>

ManagerScope ManagerScope::user()
{
    return ManagerScope(false);
}

ManagerScope ManagerScope::system()
{
    return ManagerScope(true);
}

bool ManagerScope::liesInDaemonsFolder(const QString &jobPath)
{
    // The very folder, not one that merely has its name: only root writes there.
    struct stat real
    {};
    struct stat folder
    {};
    struct stat file
    {};
    const QByteArray daemons =
        FileNames::encode(Environment::localPath(QStringLiteral("/Library/LaunchDaemons")));
    const QByteArray path = FileNames::encode(FileNames::absolutePath(jobPath));
    const QByteArray parent = path.left(std::max<qsizetype>(1, path.lastIndexOf('/')));
    return ::stat(daemons.constData(), &real) == 0 && S_ISDIR(real.st_mode) &&
           ::stat(parent.constData(), &folder) == 0 && folder.st_dev == real.st_dev &&
           folder.st_ino == real.st_ino && ::lstat(path.constData(), &file) == 0 &&
           !S_ISLNK(file.st_mode);
}

ManagerScope ManagerScope::forJobFile(const QString &jobPath)
{
    ManagerScope scope(liesInDaemonsFolder(jobPath));
    const Identity &identity = Identity::current();
    if (!scope.m_system && identity.isRoot()) {
        const auto user = VTLocalPaths::currentConsoleUser();
        const auto home = VTLocalPaths::userDirectory();
        const auto uid = user ? identity.userIdForName(*user) : std::nullopt;
        if (user && home && uid && *uid != 0) {
            scope.m_owner = user;
            scope.m_ownerHome = home;
            scope.m_ownerID = uid;
        }
    }
    return scope;
}

std::optional<QString> ManagerScope::unitFolder() const
{
    if (m_system) {
        return Environment::localPath(QStringLiteral("/etc/systemd/system"));
    }
    if (m_ownerHome) {
        return QDir::cleanPath(*m_ownerHome) + QStringLiteral("/.config/systemd/user");
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
    if (m_system) {
        return {};
    }
    if (m_owner) {
        return {QStringLiteral("--user"), QStringLiteral("--machine=%1@").arg(*m_owner)};
    }
    return {QStringLiteral("--user")};
}

QString ManagerScope::startupTarget() const
{
    return m_system ? QStringLiteral("multi-user.target") : QStringLiteral("default.target");
}
