#pragma once

#include <QString>

#include <optional>

// The process environment, read with secure_getenv so that no variable has any effect in
// a set-user-id process.
class Environment
{
public:
    // Unset gives no value; set and empty gives the empty string.
    static std::optional<QString> value(const char *name);
    // The folder that stands for "/" in the local and system domains (VT_LOCAL_ROOT);
    // the empty string for the real root.
    static QString localRoot();
    // An absolute path of the local or system domain moved under the local root.
    static QString localPath(const QString &absolutePath);
};
