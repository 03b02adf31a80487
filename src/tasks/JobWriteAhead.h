#pragma once

#include "VTScheduledTask.h"
#include "platform/PropertyList.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// A pass that saves many jobs in turn spends most of its time waiting for the launchctl
// tool and chmod. Meanwhile a worker writes and flushes the next job's file beside it, so
// that its save only renames it into place: the same durable, atomic write, in the same
// order of renames and tool runs, with the disk's wait hidden. One pass at a time, on one
// thread; while a pass runs, saves look here first.
class JobWriteAhead
{
public:
    JobWriteAhead();
    ~JobWriteAhead();
    JobWriteAhead(const JobWriteAhead &) = delete;
    JobWriteAhead &operator=(const JobWriteAhead &) = delete;

    // Saves every task in turn, after change(task) and with the next task's file written
    // ahead; stops at the first save that returns false when stopAtFailure. The last result.
    static bool saveInTurn(const std::vector<VTScheduledTask::Ptr> &tasks,
                           const std::function<void(VTScheduledTask &)> &change,
                           const std::function<bool(VTScheduledTask &)> &save, bool stopAtFailure);

    // Starts writing task's file; a task that cannot be saved as it stands is left to its
    // own save, which reports why.
    void prepare(const VTScheduledTask &task);
    // The file written ahead for path with exactly these contents, once it is written; null
    // when there is none (no pass, another file, other contents, or its writing failed).
    static std::unique_ptr<PropertyList::StagedWrite> take(const QString &path,
                                                           const QByteArray &xml);
    // Drops a committed write on the worker, where freeing the replaced file's blocks does
    // not hold up the pass; at once when no pass runs.
    static void retire(std::unique_ptr<PropertyList::StagedWrite> staged);

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    QString m_path;
    QByteArray m_xml;
    bool m_pending = false;
    bool m_busy = false;
    bool m_stop = false;
    // Written and not yet taken: the current save's file while the next one is written.
    std::vector<std::unique_ptr<PropertyList::StagedWrite>> m_ready;
    std::vector<std::unique_ptr<PropertyList::StagedWrite>> m_retired;
    std::thread m_worker;
};
