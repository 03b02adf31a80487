#include "Workspace.h"

#include "Bundle.h"
#include "Environment.h"
#include "ProcessSpawner.h"
#include "StandardFolders.h"

#include <QDesktopServices>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHash>
#include <QIcon>
#include <QImageReader>
#include <QPainter>
#include <QPainterPath>
#include <QSet>

#include <mutex>

namespace {

// A lookup that misses rescans the folders, but the same identifier missing again within
// this time does not (a thousand job files of a removed application cost one rescan).
constexpr qint64 kMissMemoryMs = 2000;

struct AppIndex
{
    std::mutex mutex;
    QHash<QString, QString> paths;  // bundle identifier -> first bundle found
    QHash<QString, qint64> misses;  // bundle identifier -> clock reading of its last miss
    QElapsedTimer clock;
    bool built = false;
};

AppIndex &appIndex()
{
    static AppIndex index;
    return index;
}

struct IconCache
{
    std::mutex mutex;
    QHash<QString, QImage> images;
};

IconCache &iconCache()
{
    static IconCache cache;
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

void indexFolder(const QString &folder, QHash<QString, QString> &paths, QSet<QString> &visited)
{
    const QString canonical = QFileInfo(folder).canonicalFilePath();
    if (canonical.isEmpty() || visited.contains(canonical)) {
        return;
    }
    visited.insert(canonical);
    const QDir dir(folder);
    const QStringList names =
        dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    for (const QString &name : names) {
        const QString path = folder + QLatin1Char('/') + name;
        if (Bundle::isPackage(path)) {
            if (auto bundle = Bundle::atPath(path)) {
                if (auto id = bundle->bundleIdentifier(); id && !paths.contains(*id)) {
                    paths.insert(*id, path);
                }
            }
            continue;
        }
        indexFolder(path, paths, visited);
    }
}

void rebuild(AppIndex &index)
{
    QHash<QString, QString> paths;
    QSet<QString> visited;
    for (const QString &folder : searchFolders()) {
        indexFolder(folder, paths, visited);
    }
    index.paths = std::move(paths);
    if (!index.clock.isValid()) {
        index.clock.start();
    }
    index.built = true;
}

bool stillMatches(const QString &path, const QString &bundleID)
{
    const auto bundle = Bundle::atPath(path);
    return bundle && bundle->bundleIdentifier() == bundleID;
}

QImage loadImage(const QString &file, const QSize &size)
{
    QImageReader reader(file);
    if (!reader.canRead()) {
        return QImage();
    }
    // .icns files hold several sizes; take the largest and scale it down.
    QImage best;
    do {
        QImage frame = reader.read();
        if (!frame.isNull() && (best.isNull() || frame.width() > best.width())) {
            best = frame;
        }
    } while (reader.jumpToNextImage());
    if (best.isNull()) {
        return best;
    }
    return best.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QImage bundleIcon(const QString &path, const QSize &size)
{
    const auto bundle = Bundle::atPath(path);
    if (!bundle) {
        return QImage();
    }
    const QString iconFile = bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleIconFile")).string();
    if (iconFile.isEmpty() || iconFile.contains(QLatin1Char('/'))) {
        return QImage();
    }
    const QString base = bundle->resourcePath() + QLatin1Char('/') + iconFile;
    for (const char *ext : {"", ".icns", ".png", ".svg"}) {
        const QString candidate = base + QLatin1String(ext);
        if (QFileInfo(candidate).isFile()) {
            QImage image = loadImage(candidate, size);
            if (!image.isNull()) {
                return image;
            }
        }
    }
    return QImage();
}

// The generic application icon: the icon theme's when a desktop session runs, else a
// plain drawn tile, so that headless runs never depend on a theme.
QImage genericIcon(const QSize &size)
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        const QIcon themed = QIcon::fromTheme(QStringLiteral("application-x-executable"));
        if (!themed.isNull()) {
            const QImage image = themed.pixmap(size).toImage();
            if (!image.isNull()) {
                return image.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            }
        }
    }
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal w = size.width();
    const qreal h = size.height();
    QPainterPath tile;
    tile.addRoundedRect(QRectF(w * 0.08, h * 0.08, w * 0.84, h * 0.84), w * 0.18, h * 0.18);
    painter.fillPath(tile, QColor(0x5b, 0x7d, 0xb1));
    painter.fillRect(QRectF(w * 0.08, h * 0.08, w * 0.84, h * 0.2), QColor(0x3d, 0x5a, 0x88));
    painter.fillRect(QRectF(w * 0.25, h * 0.42, w * 0.5, h * 0.08), QColor(0xee, 0xf2, 0xf8));
    painter.fillRect(QRectF(w * 0.25, h * 0.58, w * 0.35, h * 0.08), QColor(0xee, 0xf2, 0xf8));
    return image;
}

} // namespace

std::optional<QString> Workspace::absolutePathForAppBundleWithIdentifier(const QString &bundleID)
{
    if (bundleID.isEmpty()) {
        return std::nullopt;
    }
    AppIndex &index = appIndex();
    std::lock_guard<std::mutex> lock(index.mutex);
    bool fresh = false;
    if (!index.built) {
        rebuild(index);
        fresh = true;
    }
    auto hit = index.paths.constFind(bundleID);
    if (hit != index.paths.constEnd() && stillMatches(*hit, bundleID)) {
        return *hit;
    }
    const auto missed = index.misses.constFind(bundleID);
    const bool missedLately = missed != index.misses.constEnd() &&
                              index.clock.elapsed() - *missed < kMissMemoryMs;
    if (!fresh && (!missedLately || hit != index.paths.constEnd())) {
        rebuild(index);
        hit = index.paths.constFind(bundleID);
        if (hit != index.paths.constEnd()) {
            index.misses.remove(bundleID);
            return *hit;
        }
    }
    index.misses.insert(bundleID, index.clock.elapsed());
    return std::nullopt;
}

QImage Workspace::iconForFile(const QString &path, const QSize &size)
{
    const QString key = path + QLatin1Char('|') + QString::number(size.width()) + QLatin1Char('x') +
                        QString::number(size.height());
    IconCache &cache = iconCache();
    {
        std::lock_guard<std::mutex> lock(cache.mutex);
        auto it = cache.images.constFind(key);
        if (it != cache.images.constEnd()) {
            return *it;
        }
    }
    QImage image = Bundle::isPackage(path) ? bundleIcon(path, size) : QImage();
    if (image.isNull()) {
        image = genericIcon(size);
    }
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.images.insert(key, image);
    return image;
}

bool Workspace::openURL(const QUrl &url)
{
    if (!url.isValid()) {
        return false;
    }
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        return QDesktopServices::openUrl(url);
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
    if (!QFileInfo(executable).isExecutable()) {
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
        index.misses.clear();
        index.built = false;
    }
    IconCache &cache = iconCache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.images.clear();
}
