#include "UnitFolder.h"

#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "platform/PosixFile.h"

#include <QRandomGenerator>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Far more than any unit the bridge writes; a bigger file is not one of its units.
constexpr qsizetype kMaxUnitSize = 1 << 20;

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Closes a descriptor when it goes out of scope.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// The content of a plain file in the folder; no value for anything else. Not blocking, so
// that a FIFO under a unit's name holds nothing up.
std::optional<QByteArray> readUnit(int folder, const QByteArray &name)
{
    const Descriptor fd(::openat(folder, name.constData(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st
    {};
    if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        return std::nullopt;
    }
    QByteArray bytes;
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 || bytes.size() + n > kMaxUnitSize) {
            return std::nullopt;
        }
        if (n == 0) {
            return bytes;
        }
        bytes.append(buffer, n);
    }
}

} // namespace

// The folder and its files go to the system by their bytes, whatever HOME holds, and as
// root no link in a user's folder is followed (PosixFile::openFolder).

QString UnitFolder::filePath(const QString &unitName) const
{
    return m_path + QLatin1Char('/') + unitName;
}

UnitFolder::State UnitFolder::state(const QString &unitName) const
{
    const Descriptor folder(PosixFile::openFolder(m_path, false));
    if (folder.get() < 0) {
        // A folder that is there but cannot be opened is not to be touched.
        return errno == ENOENT ? State::Missing : State::Foreign;
    }
    struct stat st
    {};
    if (::fstatat(folder.get(), FileNames::encode(unitName).constData(), &st,
                  AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? State::Missing : State::Foreign;
    }
    // A link (as "systemctl link" makes) or anything unreadable is not ours either.
    const std::optional<QByteArray> bytes =
        S_ISREG(st.st_mode) ? readUnit(folder.get(), FileNames::encode(unitName)) : std::nullopt;
    return bytes && UnitHeader::hasMarker(QString::fromUtf8(*bytes)) ? State::Ours : State::Foreign;
}

QString UnitFolder::text(const QString &unitName) const
{
    const Descriptor folder(PosixFile::openFolder(m_path, false));
    if (folder.get() < 0) {
        return QString();
    }
    return QString::fromUtf8(
        readUnit(folder.get(), FileNames::encode(unitName)).value_or(QByteArray()));
}

std::optional<UnitHeader> UnitFolder::header(const QString &unitName) const
{
    if (state(unitName) != State::Ours) {
        return std::nullopt;
    }
    return UnitHeader::parse(text(unitName));
}

QStringList UnitFolder::jobServices() const
{
    QStringList services;
    for (const QString &name : FileNames::entryList(m_path)) {
        if (name.endsWith(QLatin1String(".service")) && header(name)) {
            services.append(name);
        }
    }
    return services;
}

bool UnitFolder::write(const QString &unitName, const QString &text, QString *error) const
{
    const QString target = filePath(unitName);
    if (state(unitName) == State::Foreign) {
        *error =
            QStringLiteral("kairo-launchctl: %1 was not written by kairo-launchctl; it is left "
                           "as it is")
                .arg(target);
        return false;
    }
    const Descriptor folder(makeFolder());
    if (folder.get() < 0) {
        *error = QStringLiteral("kairo-launchctl: cannot create the folder %1").arg(m_path);
        return false;
    }
    // Written aside and renamed over the unit, so the manager never reads half a unit.
    const QByteArray name = FileNames::encode(unitName);
    QByteArray temporary;
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
        temporary =
            '.' + name + '.' + QByteArray::number(QRandomGenerator::global()->generate(), 36);
        fd = ::openat(folder.get(), temporary.constData(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd < 0 && errno != EEXIST) {
            break;
        }
    }
    if (fd < 0) {
        *error =
            QStringLiteral("kairo-launchctl: cannot write %1: %2").arg(target, errorText(errno));
        return false;
    }
    // Readable by the manager whatever the umask; the user's own manager reads the unit of
    // an owner, and the owner may remove it.
    bool ok = PosixFile::writeAll(fd, text.toUtf8()) && ::fchmod(fd, 0644) == 0 &&
              (!m_owner || ::fchown(fd, *m_owner, static_cast<gid_t>(-1)) == 0) && ::fsync(fd) == 0;
    int saved = errno;
    ::close(fd);
    if (ok &&
        ::renameat(folder.get(), temporary.constData(), folder.get(), name.constData()) != 0) {
        saved = errno;
        ok = false;
    }
    if (!ok) {
        ::unlinkat(folder.get(), temporary.constData(), 0);
        *error =
            QStringLiteral("kairo-launchctl: cannot write %1: %2").arg(target, errorText(saved));
    }
    return ok;
}

int UnitFolder::makeFolder() const
{
    QStringList missing;
    for (QString folder = m_path; !folder.isEmpty() && folder != QLatin1String("/") &&
                                  !FileNames::exists(folder) && !FileNames::isSymbolicLink(folder);
         folder = PathString::deletingLastPathComponent(folder)) {
        missing.prepend(folder);
    }
    const int fd = PosixFile::openFolder(m_path, true);
    if (fd < 0 || !m_owner) {
        return fd;
    }
    // The folders made for an owner are theirs, wherever they lie.
    for (const QString &folder : missing) {
        const Descriptor made(folder == m_path ? ::dup(fd) : PosixFile::openFolder(folder, false));
        if (made.get() >= 0) {
            [[maybe_unused]] const int ignored =
                ::fchown(made.get(), *m_owner, static_cast<gid_t>(-1));
        }
    }
    return fd;
}

bool UnitFolder::remove(const QString &unitName, QString *error) const
{
    const QString target = filePath(unitName);
    switch (state(unitName)) {
    case State::Missing:
        return true;
    case State::Foreign:
        *error =
            QStringLiteral("kairo-launchctl: %1 was not written by kairo-launchctl; it is left "
                           "as it is")
                .arg(target);
        return false;
    case State::Ours:
        break;
    }
    const Descriptor folder(PosixFile::openFolder(m_path, false));
    if (folder.get() < 0 ||
        ::unlinkat(folder.get(), FileNames::encode(unitName).constData(), 0) != 0) {
        *error =
            QStringLiteral("kairo-launchctl: cannot remove %1: %2").arg(target, errorText(errno));
        return false;
    }
    return true;
}
