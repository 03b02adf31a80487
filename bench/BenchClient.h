#pragma once

#include <QString>

// A client application bundle for the benchmarks: its Info.plist, an executable that does
// nothing and, with tasks above zero, a catalogue of tasks "task0", "task1", ... whose
// commands are "-task" and the task's number.
class BenchClient
{
public:
    // The bundle's path, folder/name.app.
    static QString write(const QString &folder, const QString &name, const QString &bundleID,
                         int tasks);
};
