#pragma once

#include "PlistDict.h"

#include <QHash>
#include <QString>

#include <optional>

// While one lives on a thread, application lookups and cached property-list files are
// checked against the disk once and then taken as they were: a scan of a thousand job
// files of fifty applications sees one consistent picture and pays for fifty checks, not
// thousands. Nested snapshots share the outermost one.
class LookupSnapshot
{
public:
    LookupSnapshot();
    ~LookupSnapshot();
    LookupSnapshot(const LookupSnapshot &) = delete;
    LookupSnapshot &operator=(const LookupSnapshot &) = delete;

    // The snapshot of the calling thread, or null.
    static LookupSnapshot *current();

    // The path remembered for the identifier: absent when not yet looked up; an empty
    // inner value when the lookup found nothing.
    std::optional<std::optional<QString>> applicationPath(const QString &bundleID) const;
    void rememberApplicationPath(const QString &bundleID, const std::optional<QString> &path);

    std::optional<std::optional<PlistDict>> dictionary(const QString &path) const;
    void rememberDictionary(const QString &path, const std::optional<PlistDict> &value);

    // Whether a file is there, looked at once: the jobs of one application share its
    // executable.
    bool fileExists(const QString &path);

private:
    bool m_installed = false;
    QHash<QString, std::optional<QString>> m_applicationPaths;
    QHash<QString, std::optional<PlistDict>> m_dictionaries;
    QHash<QString, bool> m_existingFiles;
};
