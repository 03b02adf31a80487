#include "StandardFolders.h"

#include "Environment.h"
#include "Identity.h"

#include <QDir>
#include <QStandardPaths>

namespace {

// Documents and Desktop are the XDG folders; they are only known for the home of the
// process itself, other homes get the XDG defaults.
QString xdgFolder(const QString &home, const QString &base,
                  QStandardPaths::StandardLocation location, const char *fallback)
{
    if (QDir::cleanPath(home) == QDir::cleanPath(QDir::homePath())) {
        const QString path = QStandardPaths::writableLocation(location);
        if (!path.isEmpty()) {
            return path;
        }
    }
    return base + QLatin1String(fallback);
}

QString userFolder(int directory)
{
    const auto home = Identity::current().homeDirectory();
    if (!home || home->isEmpty()) {
        return QString();
    }
    // "/home/anna/" and "/home/anna" are the same home; "/" gives "/Library" and so on.
    QString h = *home;
    while (h.endsWith(QLatin1Char('/'))) {
        h.chop(1);
    }
    switch (directory) {
    case StandardFolders::ApplicationDirectory:
        return h + QLatin1String("/Applications");
    case StandardFolders::AdminApplicationDirectory:
        return h + QLatin1String("/Applications/Utilities");
    case StandardFolders::LibraryDirectory:
        return h + QLatin1String("/Library");
    case StandardFolders::DocumentationDirectory:
        return h + QLatin1String("/Library/Documentation");
    case StandardFolders::DocumentDirectory:
        return xdgFolder(*home, h, QStandardPaths::DocumentsLocation, "/Documents");
    case StandardFolders::DesktopDirectory:
        return xdgFolder(*home, h, QStandardPaths::DesktopLocation, "/Desktop");
    case StandardFolders::CachesDirectory:
        return h + QLatin1String("/Library/Caches");
    case StandardFolders::ApplicationSupportDirectory:
        return h + QLatin1String("/Library/Application Support");
    default:
        return QString();
    }
}

QString localFolder(int directory)
{
    switch (directory) {
    case StandardFolders::ApplicationDirectory:
        return Environment::localPath(QStringLiteral("/Applications"));
    case StandardFolders::AdminApplicationDirectory:
        return Environment::localPath(QStringLiteral("/Applications/Utilities"));
    case StandardFolders::LibraryDirectory:
        return Environment::localPath(QStringLiteral("/Library"));
    case StandardFolders::DocumentationDirectory:
        return Environment::localPath(QStringLiteral("/Library/Documentation"));
    case StandardFolders::CachesDirectory:
        return Environment::localPath(QStringLiteral("/Library/Caches"));
    case StandardFolders::ApplicationSupportDirectory:
        return Environment::localPath(QStringLiteral("/Library/Application Support"));
    default:
        return QString();
    }
}

QString systemFolder(int directory)
{
    if (directory == StandardFolders::LibraryDirectory) {
        return Environment::localPath(QStringLiteral("/System/Library"));
    }
    return QString();
}

} // namespace

QStringList StandardFolders::searchPaths(int directory, int domainMask)
{
    QStringList out;
    const auto add = [&out](const QString &path) {
        if (!path.isEmpty()) {
            out.append(path);
        }
    };
    if (domainMask & UserDomain) {
        add(userFolder(directory));
    }
    if (domainMask & LocalDomain) {
        add(localFolder(directory));
    }
    if (domainMask & SystemDomain) {
        add(systemFolder(directory));
    }
    return out;
}
