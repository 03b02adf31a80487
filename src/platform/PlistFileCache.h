#pragma once

#include "PlistDict.h"

#include <QString>

#include <optional>

// Parsed property-list dictionaries of small files that are read over and over (bundles'
// Info.plist, task catalogues). Every call checks the file's identity (device, inode,
// size, modification and change times), so a changed file is always read afresh; only an
// unchanged file skips the parse. Within a LookupSnapshot a file is checked once.
class PlistFileCache
{
public:
    static std::optional<PlistDict> readDictionary(const QString &path);
    static void clear();

private:
    static std::optional<PlistDict> readChecked(const QString &path);
};
