#pragma once

#include "platform/PlistDict.h"

#include <QString>
#include <QStringList>

#include <optional>

class VTScheduledTask;

// A client application's task catalogue: "VTTasks" in Contents/VTTasks.plist, or in its
// Contents/Info.plist when that file is missing or no dictionary. The current form is an
// array of entries {id, command, description, root}; the old form maps the arguments
// joined with " ### " to a description. Nothing is cached: every call reads afresh.
class TaskCatalogue
{
public:
    // The catalogue's root dictionary for a bundle folder.
    static std::optional<PlistDict> read(const QString &bundlePath);

    static std::optional<QStringList> argumentsFromTaskID(const QString &taskID,
                                                          const QString &bundleID);
    static std::optional<QString> descriptionFromArguments(VTScheduledTask &task);
    // The "root" choice of the entry with this ID in Contents/VTTasks.plist; false when the
    // application, the file, the array or the entry is missing.
    static bool isRootTask(const QString &bundleID, const QString &taskID);

    static QString oldFormatKey(const QStringList &arguments);
};
