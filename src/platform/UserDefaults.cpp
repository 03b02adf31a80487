#include "UserDefaults.h"

#include "Bundle.h"
#include "Console.h"
#include "FileNames.h"
#include "PosixFile.h"
#include "PropertyList.h"
#include "StandardFolders.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

// See load(): how close to "now" a file's times must be for its reading not to be kept.
constexpr qint64 kRacyWindowNs = 100'000'000;

std::mutex g_standardMutex;
std::unique_ptr<UserDefaults> g_standard;

QString preferencesFile(int domain, const QString &identifier)
{
    const QStringList library =
        StandardFolders::searchPaths(StandardFolders::LibraryDirectory, domain);
    if (library.isEmpty()) {
        return QString();
    }
    return library.first() + QStringLiteral("/Preferences/") + identifier +
           QStringLiteral(".plist");
}

// A file that is there, a plain file and readable, but holds no dictionary is damaged: it
// is renamed to NAME.damaged, so that a new one can be written and what it held is kept.
// A file that cannot be read (permissions, not a plain file, a link) is left alone: it may
// be whole, and writing would lose it.
bool setAsideDamaged(const QString &path)
{
    const QByteArray native = FileNames::encode(path);
    const qsizetype slash = native.lastIndexOf('/');
    if (slash < 0) {
        return false;
    }
    const int folder = PosixFile::openFolder(native.left(std::max<qsizetype>(slash, 1)), false);
    if (folder < 0) {
        return false;
    }
    const QByteArray name = native.mid(slash + 1);
    const QByteArray aside = name + ".damaged";
    bool moved = false;
    const int fd =
        ::openat(folder, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat st
    {};
    if (fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        QByteArray bytes;
        char buffer[65536];
        ssize_t n = 0;
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0) {
            bytes.append(buffer, n);
        }
        // Read again: another process may have written it whole meanwhile.
        const std::optional<PlistValue> value = PropertyList::parse(bytes);
        moved = n == 0 && !(value && value->isDictionary()) &&
                ::renameat(folder, name.constData(), folder, aside.constData()) == 0;
    }
    if (fd >= 0) {
        ::close(fd);
    }
    ::close(folder);
    if (moved) {
        Console::log(
            QStringLiteral("Damaged preferences file %1 was kept as %2; a new one is written")
                .arg(path, FileNames::decode(native.left(slash + 1) + aside)));
    }
    return moved;
}

} // namespace

UserDefaults::UserDefaults(const QString &userFile, const QString &machineFile)
    : m_userFile(userFile), m_machineFile(machineFile)
{}

UserDefaults &UserDefaults::standardUserDefaults()
{
    std::lock_guard<std::mutex> lock(g_standardMutex);
    if (!g_standard) {
        QString identifier = QStringLiteral(KAIRO_BUNDLE_ID);
        if (auto main = Bundle::mainBundle()) {
            identifier = main->bundleIdentifier().value_or(identifier);
        }
        g_standard = std::make_unique<UserDefaults>(
            preferencesFile(StandardFolders::UserDomain, identifier),
            preferencesFile(StandardFolders::LocalDomain, identifier));
    }
    return *g_standard;
}

void UserDefaults::resetStandardUserDefaults()
{
    std::lock_guard<std::mutex> lock(g_standardMutex);
    g_standard.reset();
}

void UserDefaults::registerDefaults(const PlistDict &defaults)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    for (const auto &entry : defaults) {
        m_registered.insert(entry.key, entry.value);
    }
}

const PlistDict &UserDefaults::load(const QString &path, CachedFile &cache)
{
    FileStamp stamp;
    struct stat st
    {};
    if (!path.isEmpty() && ::stat(FileNames::encode(path).constData(), &st) == 0) {
        stamp.exists = true;
        stamp.device = st.st_dev;
        stamp.inode = st.st_ino;
        stamp.size = st.st_size;
        stamp.modifiedNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
        stamp.changedNs = qint64(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
    }
    if (!cache.valid || !(stamp == cache.stamp)) {
        struct timespec now
        {};
        clock_gettime(CLOCK_REALTIME, &now);
        const qint64 nowNs = qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
        cache.stamp = stamp;
        cache.values =
            stamp.exists ? PropertyList::readDictionary(path).value_or(PlistDict()) : PlistDict();
        // File times come from a coarse clock: a file changed within the last moments may
        // change again without its times moving, so such a reading is not kept.
        cache.valid = !stamp.exists || (stamp.modifiedNs < nowNs - kRacyWindowNs &&
                                        stamp.changedNs < nowNs - kRacyWindowNs);
    }
    return cache.values;
}

PlistValue UserDefaults::objectForKey(const QString &key) const
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (const PlistValue *v = load(m_userFile, m_user).find(key)) {
        return *v;
    }
    if (const PlistValue *v = load(m_machineFile, m_machine).find(key)) {
        return *v;
    }
    return m_registered.value(key);
}

std::optional<QString> UserDefaults::stringForKey(const QString &key) const
{
    const PlistValue v = objectForKey(key);
    if (v.isString()) {
        return v.string();
    }
    if (v.isNumber()) {
        return v.description();
    }
    return std::nullopt;
}

bool UserDefaults::boolForKey(const QString &key) const
{
    return objectForKey(key).boolValue();
}

qint64 UserDefaults::integerForKey(const QString &key) const
{
    return objectForKey(key).integerValue();
}

bool UserDefaults::update(const QString &path, const QString &key, const PlistValue *value)
{
    if (path.isEmpty()) {
        return false;
    }
    // Read the file afresh so that keys another process wrote meanwhile are kept.
    std::optional<PlistDict> existing = PropertyList::readDictionaryToUpdate(path);
    if (!existing && setAsideDamaged(path)) {
        existing = PlistDict();
    }
    if (!existing) {
        return false;
    }
    PlistDict values = std::move(*existing);
    if (value) {
        values.insert(key, *value);
    } else if (!values.remove(key)) {
        return true;
    }
    PosixFile::makeFolders(QFileInfo(path).absolutePath());
    return PropertyList::writeXml(PlistValue(std::move(values)), path);
}

bool UserDefaults::setObject(const PlistValue &value, const QString &key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const bool ok = update(m_userFile, key, &value);
    m_user.valid = false; // force a reread
    return ok;
}

bool UserDefaults::removeObjectForKey(const QString &key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const bool ok = update(m_userFile, key, nullptr);
    m_user.valid = false;
    return ok;
}

bool UserDefaults::setObjectForAnyUser(const PlistValue &value, const QString &key)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const bool ok = update(m_machineFile, key, &value);
    m_machine.valid = false;
    return ok;
}

void UserDefaults::synchronize()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_user.valid = false;
    m_machine.valid = false;
}
