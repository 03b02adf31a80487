#pragma once

#include "PlistDict.h"
#include "PlistValue.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

// Reading and writing property-list files. Reading accepts XML and binary files; a
// missing, unreadable or malformed file, one nested deeper than 256 levels, or one whose
// root is not of the asked type, is "no value". Writing produces XML and replaces the file
// atomically. Paths go to the system through FileNames, so names that are not UTF-8 work.
class PropertyList
{
public:
    static std::optional<PlistValue> read(const QString &path);
    static std::optional<PlistDict> readDictionary(const QString &path);
    static std::optional<PlistArray> readArray(const QString &path);
    // The dictionary to change and write back: empty for a missing file, no value for one
    // that is there but cannot be read as a dictionary, which writing would destroy.
    static std::optional<PlistDict> readDictionaryToUpdate(const QString &path);

    static std::optional<PlistValue> parse(const QByteArray &bytes);
    // The general reader alone, without the direct one for plain XML: what that one must
    // always agree with.
    static std::optional<PlistValue> parseGeneral(const QByteArray &bytes);
    static QByteArray toXml(const PlistValue &value);

    // Temporary file in the same folder, flushed to disk, then renamed over the target:
    // a crash mid-write leaves the old file whole, and a failed write leaves no temporary
    // file. An existing file keeps its permissions; through a symbolic link, the link's
    // target is replaced. On failure the reason goes to *error.
    static bool writeXml(const PlistValue &value, const QString &path, QString *error = nullptr);

    // The first half of writeXml for text made by toXml: written and flushed beside path,
    // so that a caller can prepare the next file while other work goes on, and put it in
    // place later with commit. Dropped uncommitted, it leaves nothing behind. Empty text (a
    // value toXml could not express) is refused.
    struct StagedWrite
    {
        QString path;
        QByteArray bytes;
        int dir = -1;
        int fd = -1;
        QByteArray base;
        QByteArray temporary;
        // The file that commit replaces, held open: its blocks are then freed (on some disks a
        // synchronous discard) when this is dropped, not inside the rename.
        int previous = -1;
        bool committed = false;

        StagedWrite() = default;
        StagedWrite(const StagedWrite &) = delete;
        StagedWrite &operator=(const StagedWrite &) = delete;
        ~StagedWrite();
        bool commit(QString *error = nullptr);
    };
    static std::unique_ptr<StagedWrite> stageXml(const QByteArray &xml, const QString &path,
                                                 QString *error = nullptr);
    // A new file that appears whole or not at all, and only where no file of that name is:
    // false otherwise, with *taken telling whether the name was taken.
    static bool createXml(const PlistValue &value, const QString &path, bool *taken = nullptr);
    // Removes from folder the temporaries that writers of files named prefix... left when
    // they were killed; those of writers still at work stay.
    static void removeStaleTemporaries(const QString &folder, const QString &prefix);
};
