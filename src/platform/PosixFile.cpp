#include "PosixFile.h"

#include "FileNames.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

bool PosixFile::writeAll(int fd, const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, static_cast<size_t>(left));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

namespace {

// A link followed by a root process must be one that only root could have made: it stands
// in a folder of root's that nobody else may write.
bool isRootsLink(int folder, const char *name)
{
    struct stat parent
    {};
    struct stat link
    {};
    return ::fstat(folder, &parent) == 0 && parent.st_uid == 0 &&
           (parent.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
           ::fstatat(folder, name, &link, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(link.st_mode) &&
           link.st_uid == 0;
}

int openStep(int folder, const char *name, bool strict)
{
    int next =
        ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (strict ? O_NOFOLLOW : 0));
    if (next < 0 && strict && (errno == ELOOP || errno == ENOTDIR) && isRootsLink(folder, name)) {
        next = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    return next;
}

} // namespace

int PosixFile::openFolder(const QString &path, bool create)
{
    return openFolder(FileNames::encode(path), create);
}

int PosixFile::openFolder(const QByteArray &native, bool create)
{
    QByteArray absolute = native;
    if (!absolute.startsWith('/')) {
        char *cwd = ::getcwd(nullptr, 0);
        if (!cwd) {
            return -1;
        }
        absolute = QByteArray(cwd) + '/' + absolute;
        free(cwd);
    }
    const bool strict = ::geteuid() == 0;
    int fd = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const QByteArray &part : absolute.split('/')) {
        if (fd < 0) {
            return -1;
        }
        if (part.isEmpty() || part == ".") {
            continue;
        }
        int next = openStep(fd, part.constData(), strict);
        if (next < 0 && errno == ENOENT && create) {
            if (::mkdirat(fd, part.constData(), 0777) == 0) {
                next =
                    ::openat(fd, part.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (next >= 0) {
                    handToFolderOwner(fd, next);
                }
            } else if (errno == EEXIST) {
                next = openStep(fd, part.constData(), strict);
            }
        }
        ::close(fd);
        fd = next;
    }
    return fd;
}

bool PosixFile::makeFolders(const QString &path)
{
    const int fd = openFolder(path, true);
    if (fd < 0) {
        return false;
    }
    ::close(fd);
    return true;
}

void PosixFile::handToFolderOwner(int folder, int file)
{
    struct stat parent
    {};
    struct stat made
    {};
    if (::geteuid() != 0 || ::fstat(folder, &parent) != 0 || ::fstat(file, &made) != 0 ||
        parent.st_uid == made.st_uid) {
        return;
    }
    [[maybe_unused]] const int ignored = ::fchown(file, parent.st_uid, parent.st_gid);
}

int PosixFile::createFile(const QString &path, int flags, int mode)
{
    const QByteArray native = FileNames::encode(path);
    const qsizetype slash = native.lastIndexOf('/');
    const int folder =
        openFolder(slash < 0 ? QByteArray(".") : native.left(std::max<qsizetype>(slash, 1)), false);
    if (folder < 0) {
        return -1;
    }
    const int fd = ::openat(folder, native.mid(slash + 1).constData(),
                            flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0) {
        handToFolderOwner(folder, fd);
    }
    ::close(folder);
    return fd;
}
