#pragma once

#include "VTScheduledTask.h"

#include <QString>

// Rebuilds a task from a job file the writer produced. The caller sets the root flag
// from the folder the file was found in. A job whose application is gone is offered for
// removal on the spot.
class JobFileReader
{
public:
    static VTScheduledTask::Ptr taskWithFilename(const QString &path);
    // The schedule type by the first rule that matches the job's keys.
    static qint64 classify(const PlistDict &job, VTScheduledTask &task);

private:
    static void offerRemoval(const QString &path, const std::optional<QString> &executable,
                             const std::optional<QString> &bundleID);
};
