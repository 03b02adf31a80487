#pragma once

#include <QString>

#include <optional>

// The freedesktop.org trash: files go to TRASH/files, and TRASH/info/NAME.trashinfo
// records where they came from so that the desktop's trash can restore them.
class Trash
{
public:
    // Moves the file into filesFolder under a free name and writes its .trashinfo;
    // returns the path it now has.
    static std::optional<QString> moveToTrash(const QString &path, const QString &filesFolder);
    // Writes the .trashinfo of a file already moved into a trash "files" folder.
    static bool writeTrashInfo(const QString &trashedPath, const QString &originalPath);
};
