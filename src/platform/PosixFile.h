#pragma once

#include <QByteArray>
#include <QString>

// Plain file-descriptor work for the places that must not go through buffered I/O, and for
// the writes a root process makes into users' folders.
class PosixFile
{
public:
    // Writes every byte, going on after interrupted and partial writes; false on an error.
    static bool writeAll(int fd, const QByteArray &bytes);

    // Opens a folder for the *at calls (-1 on failure), making it and its missing parents
    // when asked. As root, no link is followed that anyone but root could have made, and a
    // folder made inside someone else's folder is given to that folder's owner, so that a
    // user's later runs of their own can use it.
    static int openFolder(const QString &path, bool create);
    static int openFolder(const QByteArray &native, bool create);
    static bool makeFolders(const QString &path);
    // As root, gives a file just made in the folder to the folder's owner; nothing otherwise.
    static void handToFolderOwner(int folder, int file);
    // Creates or truncates a file in a folder without following a link at its name; as root
    // the file belongs to the folder's owner. -1 on failure.
    static int createFile(const QString &path, int flags, int mode);
};
