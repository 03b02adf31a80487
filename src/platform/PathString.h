#pragma once

#include <QString>

// Path operations on strings with the platform's traditional rules: no file system access,
// "/a/b.c/" has the last component "b.c", ".hidden" has no extension.
class PathString
{
public:
    static QString lastPathComponent(const QString &path);
    static QString deletingLastPathComponent(const QString &path);
    static QString pathExtension(const QString &path);
    static QString deletingPathExtension(const QString &path);
    // One slash between the parts; doubled slashes collapse and a trailing one goes.
    static QString appendingPathComponent(const QString &path, const QString &component);
    // The home folder of the process shortened to "~".
    static QString abbreviatingWithTildeInPath(const QString &path);
    // "~" and "~/..." become the process's home, "~user/..." that user's home.
    static QString expandingTildeInPath(const QString &path);
};
