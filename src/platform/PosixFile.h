#pragma once

#include <QByteArray>

// Plain file-descriptor writing for the places that must not go through buffered I/O.
class PosixFile
{
public:
    // Writes every byte, going on after interrupted and partial writes; false on an error.
    static bool writeAll(int fd, const QByteArray &bytes);
};
