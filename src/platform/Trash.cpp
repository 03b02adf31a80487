#include "Trash.h"

#include "Clock.h"
#include "FileNames.h"
#include "PosixFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString infoFolderFor(const QString &filesFolder)
{
    return QFileInfo(filesFolder).absolutePath() + QStringLiteral("/info");
}

QByteArray trashInfo(const QString &originalPath)
{
    const QString absolute = QFileInfo(originalPath).absoluteFilePath();
    return "[Trash Info]\nPath=" + FileNames::encode(absolute).toPercentEncoding("/") +
           "\nDeletionDate=" +
           Clock::current().now().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")).toUtf8() + "\n";
}

// Claims NAME.trashinfo with O_EXCL so two processes never pick the same name. Returns 0,
// or the errno of the failure (EEXIST: the name is taken).
int claimInfoFile(const QString &infoPath, const QByteArray &content)
{
    const int fd = ::open(FileNames::encode(infoPath).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno;
    }
    const bool ok =
        ::write(fd, content.constData(), static_cast<size_t>(content.size())) == content.size();
    ::close(fd);
    if (!ok) {
        ::unlink(FileNames::encode(infoPath).constData());
        return EIO;
    }
    return 0;
}

// Whether anything, even a dangling symbolic link, has this path.
bool taken(const QString &path)
{
    struct stat st
    {};
    return ::lstat(FileNames::encode(path).constData(), &st) == 0;
}

// A file name is at most 255 bytes, and NAME.trashinfo must fit as well.
constexpr qsizetype kNameMax = 255;
const QLatin1String kInfoSuffix(".trashinfo");

bool fits(const QString &name)
{
    return FileNames::encode(name).size() + kInfoSuffix.size() <= kNameMax;
}

// stem + tail, with the stem (then, if need be, the whole) shortened until NAME.trashinfo
// fits in a file name.
QString fitted(QString stem, const QString &tail)
{
    while (!stem.isEmpty() && !fits(stem + tail)) {
        stem.chop(1);
        if (!stem.isEmpty() && stem.back().isHighSurrogate()) {
            stem.chop(1);
        }
    }
    QString name = stem + tail;
    while (!name.isEmpty() && !fits(name)) {
        name.chop(1);
    }
    return name;
}

// "name.ext", then "name 2.ext", "name 3.ext" and so on.
QString candidateName(const QFileInfo &source, int n)
{
    const QString suffix = source.completeSuffix();
    const QString base = source.baseName();
    const bool split = !suffix.isEmpty() && !base.isEmpty();
    const QString stem = split ? base : source.fileName();
    QString tail = n == 1 ? QString() : QStringLiteral(" ") + QString::number(n);
    if (split) {
        tail += QLatin1Char('.') + suffix;
    }
    return fitted(stem, tail);
}

} // namespace

std::optional<QString> Trash::moveToTrash(const QString &path, const QString &filesFolder)
{
    const QFileInfo source(path);
    if (!taken(path)) {
        return std::nullopt;
    }
    const QString infoFolder = infoFolderFor(filesFolder);
    if (!PosixFile::makeFolders(filesFolder) || !PosixFile::makeFolders(infoFolder)) {
        return std::nullopt;
    }
    const QByteArray info = trashInfo(path);
    for (int n = 1; n < 10000; ++n) {
        const QString name = candidateName(source, n);
        const QString target = filesFolder + QLatin1Char('/') + name;
        const QString infoPath =
            infoFolder + QLatin1Char('/') + name + QStringLiteral(".trashinfo");
        if (name.isEmpty() || taken(target)) {
            continue;
        }
        if (const int error = claimInfoFile(infoPath, info)) {
            if (error == EEXIST) {
                continue;
            }
            return std::nullopt;
        }
        if (taken(target)) {
            ::unlink(FileNames::encode(infoPath).constData());
            continue;
        }
        if (::rename(FileNames::encode(path).constData(), FileNames::encode(target).constData()) ==
                0 ||
            (errno == EXDEV && QFile::rename(path, target))) {
            return target;
        }
        ::unlink(FileNames::encode(infoPath).constData());
        return std::nullopt;
    }
    return std::nullopt;
}

bool Trash::writeTrashInfo(const QString &trashedPath, const QString &originalPath)
{
    const QFileInfo trashed(trashedPath);
    const QString infoFolder = infoFolderFor(trashed.absolutePath());
    if (!PosixFile::makeFolders(infoFolder)) {
        return false;
    }
    const QString infoPath =
        infoFolder + QLatin1Char('/') + trashed.fileName() + QStringLiteral(".trashinfo");
    // Never through a link planted at the name; as root the file is the trash owner's.
    const int fd = PosixFile::createFile(infoPath, O_WRONLY | O_TRUNC, 0600);
    if (fd < 0) {
        return false;
    }
    const QByteArray info = trashInfo(originalPath);
    const bool written = PosixFile::writeAll(fd, info) && !info.isEmpty();
    ::close(fd);
    return written;
}
