#include "VTLocalPaths.h"

#include "platform/Environment.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "platform/StandardFolders.h"

#include <QDir>
#include <QUuid>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kUserDomain = StandardFolders::UserDomain;
constexpr int kLocalDomain = StandardFolders::LocalDomain;

int domainFor(bool user)
{
    return user ? kUserDomain : kLocalDomain;
}

std::optional<QString> appended(const std::optional<QString> &path, const QString &component)
{
    if (!path) {
        return std::nullopt;
    }
    return VTLocalPaths::appendPathComponent(*path, component);
}

// The shared temporary folder, from TMPDIR as its bytes are.
QString sharedTempFolder()
{
    const QString custom = Environment::value("TMPDIR").value_or(QString());
    return custom.startsWith(QLatin1Char('/')) ? QDir::cleanPath(custom) : QStringLiteral("/tmp");
}

} // namespace

QString VTLocalPaths::appendPathComponent(const QString &path, const QString &component)
{
    if (component.isEmpty()) {
        return path;
    }
    QString joined = path.isEmpty() ? component : path + QLatin1Char('/') + component;
    while (joined.contains(QLatin1String("//"))) {
        joined.replace(QLatin1String("//"), QLatin1String("/"));
    }
    if (joined.size() > 1 && joined.endsWith(QLatin1Char('/'))) {
        joined.chop(1);
    }
    return joined;
}

std::optional<QString> VTLocalPaths::pathForDirectory(int directory, int domain)
{
    const QStringList paths = StandardFolders::searchPaths(directory, domain);
    const Identity &identity = Identity::current();
    if (identity.isRoot() && domain == kUserDomain && !paths.isEmpty()) {
        // As root the platform answers with root's own folder; the user meant is the one at
        // the console, so the path moves into that user's home.
        QString path = paths.first();
        if (path.startsWith(QLatin1String("/var/root"))) {
            path = path.mid(9);
        }
        // Sixteen is one short of the prefix's length; the remainder keeps its last letter.
        if (path.startsWith(QLatin1String("/private/var/root"))) {
            path = path.mid(16);
        }
        // Root's home on this platform: /root, or wherever HOME puts it.
        const QString rootHome = identity.homeDirectory().value_or(QStringLiteral("/root"));
        if (rootHome.size() > 1 && path.startsWith(rootHome)) {
            path = path.mid(rootHome.size());
        } else if (path.startsWith(QLatin1String("/root"))) {
            path = path.mid(5);
        }
        return appended(userDirectory(), path);
    }
    if (paths.isEmpty()) {
        return std::nullopt;
    }
    return paths.first();
}

std::optional<QString> VTLocalPaths::applicationDirectory(bool user)
{
    return pathForDirectory(StandardFolders::ApplicationDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::adminApplicationDirectory(bool user)
{
    return pathForDirectory(StandardFolders::AdminApplicationDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::documentDirectory(bool user)
{
    return pathForDirectory(StandardFolders::DocumentDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::libraryDirectory(bool user)
{
    return pathForDirectory(StandardFolders::LibraryDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::prefsDirectory(bool user)
{
    return appended(libraryDirectory(user), QStringLiteral("Preferences"));
}

std::optional<QString> VTLocalPaths::cacheDirectory(bool user)
{
    return pathForDirectory(StandardFolders::CachesDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::appSupportDirectory(bool user)
{
    return pathForDirectory(StandardFolders::ApplicationSupportDirectory, domainFor(user));
}

std::optional<QString> VTLocalPaths::logDirectory(bool user)
{
    return appended(libraryDirectory(user), QStringLiteral("Logs"));
}

std::optional<QString> VTLocalPaths::desktopDirectory()
{
    return pathForDirectory(StandardFolders::DesktopDirectory, kUserDomain);
}

std::optional<QString> VTLocalPaths::systemLibraryDirectory()
{
    return pathForDirectory(StandardFolders::LibraryDirectory, StandardFolders::SystemDomain);
}

std::optional<QString> VTLocalPaths::localDocumentationDirectory()
{
    return pathForDirectory(StandardFolders::DocumentationDirectory, kLocalDomain);
}

std::optional<QString> VTLocalPaths::movieDirectory()
{
    return appended(userDirectory(), QStringLiteral("Movies"));
}

std::optional<QString> VTLocalPaths::trashDirectory()
{
    // XDG_DATA_HOME describes the process's own user; as root the trash is the console
    // user's.
    if (!Identity::current().isRoot()) {
        if (auto dataHome = Environment::value("XDG_DATA_HOME"); dataHome && !dataHome->isEmpty()) {
            return appendPathComponent(*dataHome, QStringLiteral("Trash/files"));
        }
    }
    return appended(userDirectory(), QStringLiteral(".local/share/Trash/files"));
}

std::optional<QString> VTLocalPaths::userDirectory()
{
    const Identity &identity = Identity::current();
    if (!identity.isRoot()) {
        return identity.homeDirectory();
    }
    const auto console = currentConsoleUser();
    if (!console) {
        return std::nullopt;
    }
    return identity.homeDirectoryForUser(*console);
}

std::optional<QString> VTLocalPaths::username()
{
    const Identity &identity = Identity::current();
    if (!identity.isRoot()) {
        return identity.userName();
    }
    return currentConsoleUser();
}

std::optional<QString> VTLocalPaths::currentConsoleUser()
{
    const auto user = Identity::current().consoleUser();
    if (!user || *user == QLatin1String("loginwindow")) {
        return std::nullopt;
    }
    return user;
}

QString VTLocalPaths::tempDirectory()
{
    // A folder of this user's alone, so that no one else can claim, replace or read what is
    // staged there: the session's runtime folder when it is private, else a mode-700 folder
    // of ours in the shared one (a random one when someone else took that name).
    static std::mutex mutex;
    static QString made;
    std::lock_guard<std::mutex> lock(mutex);
    const auto isPrivate = [](const QByteArray &path) {
        struct stat info
        {};
        return ::lstat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
               info.st_uid == ::geteuid() && (info.st_mode & 077) == 0;
    };
    if (const auto runtime = Environment::value("XDG_RUNTIME_DIR");
        runtime && runtime->startsWith(QLatin1Char('/')) &&
        isPrivate(FileNames::encode(*runtime))) {
        return QDir::cleanPath(*runtime);
    }
    const QString shared =
        sharedTempFolder() + QStringLiteral("/kairo-planner-%1").arg(::geteuid());
    const QByteArray fixed = FileNames::encode(shared);
    if ((::mkdir(fixed.constData(), 0700) == 0 || errno == EEXIST) && isPrivate(fixed)) {
        return shared;
    }
    if (made.startsWith(shared + QLatin1Char('-')) && isPrivate(FileNames::encode(made))) {
        return made;
    }
    QByteArray pattern = fixed + "-XXXXXX";
    if (::mkdtemp(pattern.data())) {
        made = FileNames::decode(pattern);
        return made;
    }
    return sharedTempFolder();
}

QString VTLocalPaths::uuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString VTLocalPaths::tempFile()
{
    return appendPathComponent(tempDirectory(), uuid());
}

bool VTLocalPaths::isPathSystemDirectory(const QString &path, bool exactMatch)
{
    if (path == QLatin1String("/")) {
        return true;
    }
    if (path.size() < 3) {
        return false;
    }
    QString p = path;
    // Both the slash and the character before it go: one too many, as required.
    if (p.endsWith(QLatin1Char('/'))) {
        p.truncate(p.size() - 2);
    }
    const std::optional<QString> exact[] = {
        applicationDirectory(true),
        applicationDirectory(false),
        adminApplicationDirectory(true),
        adminApplicationDirectory(false),
        documentDirectory(true),
        documentDirectory(false),
        libraryDirectory(true),
        libraryDirectory(false),
        prefsDirectory(true),
        prefsDirectory(false),
        cacheDirectory(true),
        cacheDirectory(false),
        appSupportDirectory(true),
        appSupportDirectory(false),
        desktopDirectory(),
        userDirectory(),
        systemLibraryDirectory(),
        localDocumentationDirectory(),
        QStringLiteral("/Users/Shared"),
        QStringLiteral("/Volumes"),
        QStringLiteral("/home"),
        QStringLiteral("/media"),
        QStringLiteral("/mnt"),
        QStringLiteral("/run/media"),
    };
    for (const auto &protectedPath : exact) {
        if (protectedPath && p == *protectedPath) {
            return true;
        }
    }
    if (exactMatch) {
        return false;
    }
    // Plain string prefixes, not path components: "/variant" lies under "/var".
    static const char *const prefixes[] = {"/usr",  "/var",  "/private/var", "/System", "/etc",
                                           "/bin",  "/sbin", "/lib",         "/boot",   "/dev",
                                           "/proc", "/sys",  "/run"};
    for (const char *prefix : prefixes) {
        if (p.startsWith(QLatin1String(prefix))) {
            return true;
        }
    }
    return false;
}

bool VTLocalPaths::isPathOnTimeMachineVolume(const QString &path)
{
    if (!path.startsWith(QLatin1String("/Volumes/"))) {
        return false;
    }
    return path.split(QLatin1Char('/')).contains(QLatin1String("Backups.backupdb"));
}
