#pragma once

#include <QString>

#include <optional>

// Where the standard folders lie for the user who is really using the machine, and which
// paths are system folders that must never be moved, deleted or trashed. When the process
// runs as root, the user meant is the user at the console.
class VTLocalPaths
{
public:
    static std::optional<QString> pathForDirectory(int directory, int domain);

    static std::optional<QString> applicationDirectory(bool user);
    static std::optional<QString> adminApplicationDirectory(bool user);
    static std::optional<QString> documentDirectory(bool user);
    static std::optional<QString> libraryDirectory(bool user);
    static std::optional<QString> prefsDirectory(bool user);
    static std::optional<QString> cacheDirectory(bool user);
    static std::optional<QString> appSupportDirectory(bool user);
    static std::optional<QString> logDirectory(bool user);
    static std::optional<QString> desktopDirectory();
    static std::optional<QString> systemLibraryDirectory();
    static std::optional<QString> localDocumentationDirectory();
    static std::optional<QString> movieDirectory();
    // The freedesktop.org trash's "files" folder of the user's home.
    static std::optional<QString> trashDirectory();
    static std::optional<QString> userDirectory();
    static std::optional<QString> username();
    static std::optional<QString> currentConsoleUser();
    static QString tempDirectory();
    static QString uuid();
    static QString tempFile();

    static bool isPathSystemDirectory(const QString &path, bool exactMatch = false);
    static bool isPathOnTimeMachineVolume(const QString &path);

    // The platform's path joining: one slash between the parts, doubled slashes collapsed.
    static QString appendPathComponent(const QString &path, const QString &component);
};
