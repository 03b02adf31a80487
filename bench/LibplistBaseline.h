#pragma once

#include <QStringList>

// The yardstick the readers are measured against: what libplist alone needs for the same
// files, and the CPU clock both are timed with.
class LibplistBaseline
{
public:
    // Reads each file and parses it with libplist, then frees the result.
    static void parse(const QStringList &files);
    // CPU time of this process (user and system) in seconds: what the work costs,
    // whatever else the machine is doing meanwhile.
    static double processCpuSeconds();
};
