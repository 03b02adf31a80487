#include "PlistFileCache.h"

#include "FileNames.h"
#include "LookupSnapshot.h"
#include "PropertyList.h"

#include <QFile>
#include <QHash>

#include <mutex>

#include <sys/stat.h>
#include <time.h>

namespace {

constexpr int kCapacity = 256;
// File times come from a coarse clock: a file changed within this window of being read
// could change again without its times moving, so it is not kept.
constexpr qint64 kRacyWindowNs = 100'000'000;

struct Stamp
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    bool operator==(const Stamp &o) const
    {
        return device == o.device && inode == o.inode && size == o.size &&
               modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec &&
               changed.tv_sec == o.changed.tv_sec && changed.tv_nsec == o.changed.tv_nsec;
    }
};

struct Entry
{
    Stamp stamp;
    std::optional<PlistDict> value;
    quint64 used = 0;
};

struct Cache
{
    std::mutex mutex;
    QHash<QString, Entry> entries;
    quint64 clock = 0;
};

Cache &cache()
{
    static Cache instance;
    return instance;
}

std::optional<Stamp> stampOf(const QString &path)
{
    struct stat info
    {};
    if (::stat(FileNames::encode(path).constData(), &info) != 0) {
        return std::nullopt;
    }
    return Stamp{info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

} // namespace

std::optional<PlistDict> PlistFileCache::readDictionary(const QString &path)
{
    LookupSnapshot *snapshot = LookupSnapshot::current();
    if (snapshot) {
        if (auto remembered = snapshot->dictionary(path)) {
            return *remembered;
        }
    }
    std::optional<PlistDict> value = readChecked(path);
    if (snapshot) {
        snapshot->rememberDictionary(path, value);
    }
    return value;
}

std::optional<PlistDict> PlistFileCache::readChecked(const QString &path)
{
    const auto stamp = stampOf(path);
    if (!stamp) {
        return std::nullopt;
    }
    Cache &c = cache();
    {
        std::lock_guard<std::mutex> lock(c.mutex);
        auto it = c.entries.find(path);
        if (it != c.entries.end() && it->stamp == *stamp) {
            it->used = ++c.clock;
            return it->value;
        }
    }
    std::optional<PlistDict> value = PropertyList::readDictionary(path);
    // A file changed while it was read, or just before, is not kept: the next call reads
    // it again.
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto ns = [](const timespec &t) { return qint64(t.tv_sec) * 1000000000 + t.tv_nsec; };
    if (stampOf(path) != stamp || ns(stamp->modified) >= ns(now) - kRacyWindowNs ||
        ns(stamp->changed) >= ns(now) - kRacyWindowNs) {
        return value;
    }
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.entries.size() >= kCapacity && !c.entries.contains(path)) {
        auto oldest = c.entries.begin();
        for (auto it = c.entries.begin(); it != c.entries.end(); ++it) {
            if (it->used < oldest->used) {
                oldest = it;
            }
        }
        c.entries.erase(oldest);
    }
    c.entries.insert(path, Entry{*stamp, value, ++c.clock});
    return value;
}

void PlistFileCache::clear()
{
    Cache &c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.entries.clear();
}
