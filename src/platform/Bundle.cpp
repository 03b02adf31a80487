#include "Bundle.h"

#include "FileNames.h"
#include "PlistFileCache.h"

#include <QDir>
#include <QFileInfo>

#include <mutex>

namespace {

std::mutex g_mainMutex;
std::optional<QString> g_mainOverride;

// The bundle folder of the running executable: .../NAME.app/Contents/MacOS/EXECUTABLE.
std::optional<QString> runningBundlePath()
{
    const QString exe = FileNames::canonicalPath(QStringLiteral("/proc/self/exe"));
    const QDir macos = QFileInfo(exe).absoluteDir();
    if (macos.dirName() != QLatin1String("MacOS")) {
        return std::nullopt;
    }
    QDir contents = macos;
    if (!contents.cdUp() || contents.dirName() != QLatin1String("Contents")) {
        return std::nullopt;
    }
    QDir bundle = contents;
    if (!bundle.cdUp() || !bundle.dirName().endsWith(QLatin1String(".app"))) {
        return std::nullopt;
    }
    return bundle.absolutePath();
}

} // namespace

Bundle::Bundle(const QString &path) : m_path(path)
{
    if (auto info = PlistFileCache::readDictionary(path + QStringLiteral("/Contents/Info.plist"))) {
        m_info = std::move(*info);
    }
}

std::optional<Bundle> Bundle::atPath(const QString &path)
{
    if (!FileNames::isDirectory(path)) {
        return std::nullopt;
    }
    QString clean = path;
    while (clean.size() > 1 && clean.endsWith(QLatin1Char('/'))) {
        clean.chop(1);
    }
    return Bundle(clean);
}

std::optional<Bundle> Bundle::mainBundle()
{
    std::optional<QString> path;
    {
        std::lock_guard<std::mutex> lock(g_mainMutex);
        path = g_mainOverride;
    }
    if (!path) {
        static const std::optional<QString> running = runningBundlePath();
        path = running;
    }
    return path ? atPath(*path) : std::nullopt;
}

void Bundle::setMainBundlePath(const std::optional<QString> &path)
{
    std::lock_guard<std::mutex> lock(g_mainMutex);
    g_mainOverride = path;
}

bool Bundle::isPackage(const QString &path)
{
    QString clean = path;
    while (clean.size() > 1 && clean.endsWith(QLatin1Char('/'))) {
        clean.chop(1);
    }
    if (!FileNames::isDirectory(clean)) {
        return false;
    }
    const QString ext = QFileInfo(clean).suffix().toLower();
    return ext == QLatin1String("app") || ext == QLatin1String("bundle") ||
           ext == QLatin1String("framework") || ext == QLatin1String("plugin") ||
           ext == QLatin1String("kext");
}

PlistValue Bundle::objectForInfoDictionaryKey(const QString &key) const
{
    return m_info.value(key);
}

std::optional<QString> Bundle::bundleIdentifier() const
{
    const PlistValue id = m_info.value(QStringLiteral("CFBundleIdentifier"));
    if (id.isString()) {
        return id.string();
    }
    return std::nullopt;
}

QString Bundle::executablePath() const
{
    QString name = m_info.value(QStringLiteral("CFBundleExecutable")).string();
    if (name.isEmpty()) {
        name = QFileInfo(m_path).completeBaseName();
    }
    return m_path + QStringLiteral("/Contents/MacOS/") + name;
}

QString Bundle::resourcePath() const
{
    return m_path + QStringLiteral("/Contents/Resources");
}

std::optional<QString> Bundle::pathForResource(const QString &name, const QString &type) const
{
    QString path = resourcePath() + QLatin1Char('/') + name;
    if (!type.isEmpty()) {
        path += QLatin1Char('.') + type;
    }
    if (FileNames::exists(path)) {
        return path;
    }
    return std::nullopt;
}
