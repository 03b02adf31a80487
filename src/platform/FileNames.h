#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// File names are bytes on Linux, and not every byte string is UTF-8. Qt decodes names as
// UTF-8 and turns the bytes that are not into U+FFFD, after which the file cannot be
// opened under its name. These functions keep every byte: a byte that is not part of
// valid UTF-8 becomes the lone surrogate U+DC80..U+DCFF ("surrogate escape") and turns
// back into the same byte. For names that are valid UTF-8 they give what Qt gives.
class FileNames
{
public:
    static QString decode(const QByteArray &native);
    static QByteArray encode(const QString &path);
    // The names in a folder (without "." and ".."), decoded losslessly, sorted; empty when
    // the folder cannot be read.
    static QStringList entryList(const QString &folder);
    // The file system by these bytes, where Qt's own calls would look at other names.
    // exists and isDirectory follow a link, as QFileInfo does.
    static bool exists(const QString &path);
    static bool isDirectory(const QString &path);
    static bool isSymbolicLink(const QString &path);
    // A file (not a folder) that this process may run.
    static bool isExecutable(const QString &path);
    // The path made absolute against the working folder (by its bytes) and cleaned of "."
    // and "..", without looking at the file system otherwise.
    static QString absolutePath(const QString &path);
    // The absolute path with every link and "." or ".." resolved; empty when it does not exist.
    static QString canonicalPath(const QString &path);
};
