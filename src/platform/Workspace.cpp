#include "Workspace.h"

#include "LookupSnapshot.h"

#include "Bundle.h"
#include "Environment.h"
#include "FileNames.h"
#include "ProcessSpawner.h"
#include "StandardFolders.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QSet>

#include <mutex>
#include <vector>

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

// What a file or folder was when the index was built. The index holds as long as every
// folder it walked and every bundle's Info.plist it read are unchanged: adding, removing or
// renaming an entry changes its folder; rewriting an Info.plist changes the file.
struct Stamp
{
    QByteArray path;
    bool exists = false;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modifiedNs = 0;
    qint64 changedNs = 0;
    bool operator==(const Stamp &) const = default;
};

Stamp stampOfNative(const QByteArray &path)
{
    Stamp stamp;
    stamp.path = path;
    struct stat st
    {};
    if (::stat(path.constData(), &st) == 0) {
        stamp.exists = true;
        stamp.inode = st.st_ino;
        stamp.size = st.st_size;
        stamp.modifiedNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
        stamp.changedNs = qint64(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
    }
    return stamp;
}

Stamp stampOf(const QString &path)
{
    return stampOfNative(FileNames::encode(path));
}

bool unchanged(const Stamp &stamp)
{
    return stampOfNative(stamp.path) == stamp;
}

qint64 nowNs()
{
    struct timespec ts
    {};
    clock_gettime(CLOCK_REALTIME, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// File times come from a coarse clock: a change made within the same tick as the one a
// stamp recorded leaves the time as it was. A stamp whose times are this close to the
// moment it was taken proves nothing, and the index built with it is rebuilt next time.
constexpr qint64 kRacyWindowNs = 100'000'000;

// Every bundle identifier found in the search folders, with the first bundle that has it.
// Each lookup first checks that nothing the index was built from has changed (a stat per
// folder and bundle, far cheaper than reading every Info.plist again) and rebuilds it
// otherwise, so a lookup always answers for the folders as they are: a bundle installed,
// moved, deleted or given another identifier since the last lookup is seen at once.
struct AppIndex
{
    std::mutex mutex;
    bool built = false;
    bool racy = false;             // built right after a change: not to be trusted
    QStringList folders;           // the search folders the index was built from
    QHash<QString, QString> paths; // bundle identifier -> first bundle found
    QHash<QString, int> stampOf;   // bundle identifier -> its Info.plist's place in stamps
    std::vector<Stamp> stamps;     // every folder walked and every Info.plist read, in order
    std::vector<bool> isFolder;    // which of the stamps are folders
};

AppIndex &appIndex()
{
    static AppIndex index;
    return index;
}

// What the windowed side provides, and the icons it gave.
struct Desktop
{
    std::mutex mutex;
    QHash<QString, QVariant> images;
    Workspace::IconProvider provider = nullptr;
    Workspace::URLOpener urlOpener = nullptr;
};

Desktop &desktop()
{
    static Desktop cache;
    return cache;
}

QStringList searchFolders()
{
    if (auto custom = Environment::value("VT_APP_SEARCH_PATH")) {
        QStringList folders;
        for (const QString &f : custom->split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
            folders.append(f);
        }
        return folders;
    }
    return StandardFolders::searchPaths(StandardFolders::ApplicationDirectory,
                                        StandardFolders::UserDomain | StandardFolders::LocalDomain);
}

void indexFolder(const QString &folder, AppIndex &index, QSet<QString> &visited)
{
    index.stamps.push_back(stampOf(folder));
    index.isFolder.push_back(true);
    const QString canonical = FileNames::canonicalPath(folder);
    if (canonical.isEmpty() || visited.contains(canonical)) {
        return;
    }
    visited.insert(canonical);
    for (const QString &name : FileNames::entryList(folder)) {
        const QString path = folder + QLatin1Char('/') + name;
        if (!FileNames::isDirectory(path)) {
            continue;
        }
        if (Bundle::isPackage(path)) {
            index.stamps.push_back(stampOf(path + QStringLiteral("/Contents/Info.plist")));
            index.isFolder.push_back(false);
            if (auto bundle = Bundle::atPath(path)) {
                if (auto id = bundle->bundleIdentifier(); id && !index.paths.contains(*id)) {
                    index.paths.insert(*id, path);
                    index.stampOf.insert(*id, static_cast<int>(index.stamps.size()) - 1);
                }
            }
            continue;
        }
        indexFolder(path, index, visited);
    }
}

void rebuild(AppIndex &index, const QStringList &folders)
{
    index.paths.clear();
    index.stampOf.clear();
    index.stamps.clear();
    index.isFolder.clear();
    index.folders = folders;
    const qint64 started = nowNs();
    QSet<QString> visited;
    for (const QString &folder : folders) {
        indexFolder(folder, index, visited);
    }
    index.built = true;
    index.racy = false;
    for (const Stamp &stamp : index.stamps) {
        if (stamp.exists && (stamp.modifiedNs >= started - kRacyWindowNs ||
                             stamp.changedNs >= started - kRacyWindowNs)) {
            index.racy = true;
            break;
        }
    }
}

bool indexIsTrusted(const AppIndex &index, const QStringList &folders)
{
    return index.built && !index.racy && index.folders == folders;
}

bool indexIsCurrent(const AppIndex &index, const QStringList &folders)
{
    if (!indexIsTrusted(index, folders)) {
        return false;
    }
    for (const Stamp &stamp : index.stamps) {
        if (!unchanged(stamp)) {
            return false;
        }
    }
    return true;
}

// A found bundle still answers when its Info.plist is unchanged and no folder walked
// before it changed (a bundle installed earlier in the search order changes one of
// them). Checking only these keeps a lookup cheap when thousands of jobs are read.
bool hitIsCurrent(const AppIndex &index, int stampIndex)
{
    for (int i = 0; i < stampIndex; ++i) {
        if (index.isFolder[static_cast<size_t>(i)] &&
            !unchanged(index.stamps[static_cast<size_t>(i)])) {
            return false;
        }
    }
    return unchanged(index.stamps[static_cast<size_t>(stampIndex)]);
}

} // namespace

std::optional<QString> Workspace::absolutePathForAppBundleWithIdentifier(const QString &bundleID)
{
    if (bundleID.isEmpty()) {
        return std::nullopt;
    }
    LookupSnapshot *snapshot = LookupSnapshot::current();
    if (snapshot) {
        if (auto remembered = snapshot->applicationPath(bundleID)) {
            return *remembered;
        }
    }
    std::optional<QString> path = lookUpApplication(bundleID);
    if (snapshot) {
        snapshot->rememberApplicationPath(bundleID, path);
    }
    return path;
}

std::optional<QString> Workspace::lookUpApplication(const QString &bundleID)
{
    const QStringList folders = searchFolders();
    AppIndex &index = appIndex();
    std::lock_guard<std::mutex> lock(index.mutex);
    if (indexIsTrusted(index, folders)) {
        const auto place = index.stampOf.constFind(bundleID);
        if (place != index.stampOf.constEnd() ? hitIsCurrent(index, *place)
                                              : indexIsCurrent(index, folders)) {
            const auto hit = index.paths.constFind(bundleID);
            return hit == index.paths.constEnd() ? std::nullopt : std::optional<QString>(*hit);
        }
    }
    rebuild(index, folders);
    const auto hit = index.paths.constFind(bundleID);
    if (hit == index.paths.constEnd()) {
        return std::nullopt;
    }
    return *hit;
}

QVariant Workspace::iconForFile(const QString &path, const QSize &size)
{
    Desktop &cache = desktop();
    std::unique_lock<std::mutex> lock(cache.mutex);
    // Headless: nothing to look up, not even a key to build.
    const IconProvider provider = cache.provider;
    if (!provider) {
        return QVariant();
    }
    const QString key = path + QLatin1Char('|') + QString::number(size.width()) + QLatin1Char('x') +
                        QString::number(size.height());
    auto it = cache.images.constFind(key);
    if (it != cache.images.constEnd()) {
        return *it;
    }
    // The provider may take its time (files, drawing); others look up meanwhile.
    lock.unlock();
    QVariant image = provider(path, size);
    lock.lock();
    cache.images.insert(key, image);
    return image;
}

void Workspace::setIconProvider(IconProvider provider)
{
    Desktop &cache = desktop();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.provider = provider;
    cache.images.clear();
}

void Workspace::setURLOpener(URLOpener opener)
{
    Desktop &cache = desktop();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.urlOpener = opener;
}

bool Workspace::openURL(const QUrl &url)
{
    if (!url.isValid()) {
        return false;
    }
    URLOpener opener = nullptr;
    {
        Desktop &cache = desktop();
        std::lock_guard<std::mutex> lock(cache.mutex);
        opener = cache.urlOpener;
    }
    if (opener) {
        return opener(url);
    }
    return ProcessSpawner::current().startDetached(QStringLiteral("xdg-open"), {url.toString()});
}

bool Workspace::openFile(const QString &file, const QString &applicationBundlePath)
{
    return launchApplication(applicationBundlePath, {file});
}

bool Workspace::launchApplication(const QString &bundlePath, const QStringList &arguments)
{
    const auto bundle = Bundle::atPath(bundlePath);
    if (!bundle) {
        return false;
    }
    const QString executable = bundle->executablePath();
    if (!FileNames::isExecutable(executable)) {
        return false;
    }
    return ProcessSpawner::current().startDetached(executable, arguments);
}

bool Workspace::launchAppWithBundleIdentifier(const QString &bundleID)
{
    const auto path = absolutePathForAppBundleWithIdentifier(bundleID);
    return path && launchApplication(*path);
}

void Workspace::invalidateCaches()
{
    {
        AppIndex &index = appIndex();
        std::lock_guard<std::mutex> lock(index.mutex);
        index.paths.clear();
        index.stamps.clear();
        index.built = false;
    }
    Desktop &cache = desktop();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.images.clear();
}
