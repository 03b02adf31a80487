#pragma once

#include <QString>
#include <QStringList>

// The command line of kairo-launchctl, the launchctl of the system on Linux:
//
//   kairo-launchctl load PATH...
//   kairo-launchctl unload PATH...
//   kairo-launchctl list [--system] [--base-time TIME]
//   kairo-launchctl watch-mounts [--mounts FILE] [--interval SECONDS] [--system]
//
// TIME is "@SECONDS" since the epoch or an ISO 8601 date and time (local unless it names
// its offset). The exit status is 0 for success and 1 otherwise; wrong usage prints the
// usage and gives 1.
class BridgeCommand
{
public:
    // arguments without the program's own name; bridgePath is the program's absolute path.
    static int run(const QStringList &arguments, const QString &bridgePath);

private:
    static int usage();
    static int list(const QStringList &options);
    static int watchMounts(const QStringList &options);
};
