#pragma once

#include "ManagerScope.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

// The resident part of StartOnMount: looks at the mount table every few seconds and, when
// a file system has been mounted (a line appeared), starts the service of every loaded,
// enabled StartOnMount job of its manager. systemd has no trigger of its own for "any
// mount", which is what launchd's key means.
class MountWatcher
{
public:
    MountWatcher(QString mountTable, const ManagerScope &scope);

    // The lines that appeared since the last look. The first look only learns the table.
    QStringList poll();
    // The services of the StartOnMount jobs that are loaded and not disabled.
    QStringList mountJobServices() const;
    // Starts them (without waiting for them to finish); true when there was nothing to do
    // or systemctl did it.
    bool startJobs() const;
    // Looks at the table every interval until the process is ended.
    [[noreturn]] void run(std::chrono::milliseconds interval);

private:
    std::optional<QHash<QString, int>> readTable();

    QString m_table;
    ManagerScope m_scope;
    std::optional<QHash<QString, int>> m_known;
    bool m_reportedUnreadable = false;
};
