#pragma once

#include <QString>
#include <QStringList>

// A client application bundle for the benchmarks: its Info.plist, an executable that does
// nothing and, with tasks above zero, a catalogue of tasks "task0", "task1", ... whose
// commands are "-task" and the task's number.
class BenchClient
{
public:
    // The bundle's path, folder/name.app.
    static QString write(const QString &folder, const QString &name, const QString &bundleID,
                         int tasks);
    // Clients "Client0" to "Client<clients-1>", bundle identifiers "com.vantreel.ClientN",
    // five tasks each, in applications.
    static void writeClients(const QString &applications, int clients);
    // count daily job files "com.vantreel.ScheduledTaskN.plist" in agents, spread over those
    // clients in turn; their paths.
    static QStringList writeJobs(const QString &agents, const QString &applications, int clients,
                                 int count);
};
