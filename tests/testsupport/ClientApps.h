#pragma once

#include "platform/PlistDict.h"

#include <QString>

// Sample client applications for tests: bundles whose executable appends its arguments to
// a file, with a task catalogue.
class ClientApps
{
public:
    // One catalogue entry.
    static PlistValue entry(const QString &id, const QStringList &command,
                            const QString &description, std::optional<bool> root = std::nullopt);
    // A bundle NAME.app in folder with the identifier, CFBundleName and the catalogue
    // ("VTTasks" = tasks) in Contents/VTTasks.plist, or in Info.plist when inInfoPlist.
    static QString make(const QString &folder, const QString &name, const QString &bundleID,
                        const PlistValue &tasks, bool inInfoPlist = false);
    // "Quill" (com.vantreel.Quill) in folder, with the tasks "backup" (-backup, "Back up the
    // library"), "clean" (-clean -quiet, "Clean caches") and the root task "repair"
    // (-repair, "Repair permissions"); the bundle's path.
    static QString makeQuill(const QString &folder);
};
