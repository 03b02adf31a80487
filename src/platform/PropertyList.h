#pragma once

#include "PlistDict.h"
#include "PlistValue.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Reading and writing property-list files. Reading accepts XML and binary files; a
// missing, unreadable or malformed file, or one whose root is not of the asked type, is
// "no value". Writing produces XML and replaces the file atomically.
class PropertyList
{
public:
    static std::optional<PlistValue> read(const QString &path);
    static std::optional<PlistDict> readDictionary(const QString &path);
    static std::optional<PlistArray> readArray(const QString &path);

    static std::optional<PlistValue> parse(const QByteArray &bytes);
    static QByteArray toXml(const PlistValue &value);

    // Temporary file in the same folder, flushed to disk, then renamed over the target:
    // a crash mid-write leaves the old file whole. On failure the reason goes to *error.
    static bool writeXml(const PlistValue &value, const QString &path, QString *error = nullptr);
};
