#pragma once

#include "platform/PlistDict.h"

#include <QString>

#include <functional>
#include <optional>

#include <sys/types.h>

// The name of a new job file: the folder plus "/com.vantreel.%@ScheduledTask%d.plist" with
// the first free number, lowest first. Where the folder can be written, the name is
// claimed by creating the file exclusively with its whole job, so two processes adding
// tasks at the same moment never get the same number, and a process killed at any moment
// leaves either no file or a complete one.
class JobFileName
{
public:
    struct Claim
    {
        QString path;
        // True when this process created the file and must remove it on failure.
        bool created = false;
        dev_t device = 0;
        ino_t inode = 0;
    };

    // job gives the job's keys under a given path (its label follows the name); without
    // them the name is only checked, and the save that follows reports why.
    static Claim claim(const QString &folder, bool root,
                       const std::function<std::optional<PlistDict>(const QString &)> &job);
    // Removes a claimed file that no save has replaced since.
    static void release(const Claim &claim);
};
