#pragma once

#include "platform/PlistDict.h"

#include <QString>

#include <optional>

class VTScheduledTask;

// Turns a task into a launchd job file, writes it (with administrator rights when its
// folder is not writable), and reloads the job through the launchctl tool.
class JobFileWriter
{
public:
    // The job's keys. No value for a schedule type outside 0 to 8; a type whose value is
    // unset (seconds for 6, folder for 8) raises, as inserting nothing would.
    static std::optional<PlistDict> jobDictionary(const VTScheduledTask &task,
                                                  const QString &appPath);
    // The executable the job runs: the bundle's MacOS folder plus the bundle's own name.
    static QString programPath(const QString &appPath);

    static bool saveData(VTScheduledTask &task, bool authorize);

private:
    static bool writeWithAuthorization(const PlistDict &job, const QString &filename);
    static void reload(const VTScheduledTask &task);
};
