#include "JobWriteAhead.h"

#include "JobFileWriter.h"
#include "platform/PlistValue.h"
#include "platform/Workspace.h"

namespace {

JobWriteAhead *g_current = nullptr;

} // namespace

JobWriteAhead::JobWriteAhead() : m_worker([this] { run(); })
{
    g_current = this;
}

JobWriteAhead::~JobWriteAhead()
{
    g_current = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_worker.join();
    // A file written ahead and never taken is removed with its StagedWrite.
}

bool JobWriteAhead::saveInTurn(const std::vector<VTScheduledTask::Ptr> &tasks,
                               const std::function<void(VTScheduledTask &)> &change,
                               const std::function<bool(VTScheduledTask &)> &save,
                               bool stopAtFailure)
{
    JobWriteAhead ahead;
    bool saved = true;
    for (size_t i = 0; i < tasks.size(); ++i) {
        if (i == 0) {
            change(*tasks[i]);
        }
        if (i + 1 < tasks.size()) {
            change(*tasks[i + 1]);
            ahead.prepare(*tasks[i + 1]);
        }
        saved = save(*tasks[i]);
        if (!saved && stopAtFailure) {
            return false;
        }
    }
    return saved;
}

void JobWriteAhead::prepare(const VTScheduledTask &task)
{
    if (!task.filename() || !task.taskArguments() || !task.taskBundleID() || !task.scheduleType()) {
        return;
    }
    const auto appPath = Workspace::absolutePathForAppBundleWithIdentifier(*task.taskBundleID());
    if (!appPath) {
        return;
    }
    QByteArray xml;
    try {
        if (const auto job = JobFileWriter::jobDictionary(task, *appPath)) {
            xml = PropertyList::toXml(PlistValue(*job));
        }
    } catch (...) {
        return; // the save itself raises, where the caller's guard reports it
    }
    if (xml.isEmpty()) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_wake.wait(lock, [this] { return !m_pending && !m_busy; });
    m_path = *task.filename();
    m_xml = xml;
    m_pending = true;
    lock.unlock();
    m_wake.notify_all();
}

std::unique_ptr<PropertyList::StagedWrite> JobWriteAhead::take(const QString &path,
                                                               const QByteArray &xml)
{
    JobWriteAhead *ahead = g_current;
    if (!ahead) {
        return nullptr;
    }
    std::unique_lock<std::mutex> lock(ahead->m_mutex);
    ahead->m_wake.wait(
        lock, [&] { return !(ahead->m_pending || ahead->m_busy) || ahead->m_path != path; });
    auto &ready = ahead->m_ready;
    for (auto it = ready.begin(); it != ready.end(); ++it) {
        if ((*it)->path == path) {
            std::unique_ptr<PropertyList::StagedWrite> staged = std::move(*it);
            ready.erase(it);
            // Other contents than the save's own are dropped, and the save writes anew.
            return staged->bytes == xml ? std::move(staged) : nullptr;
        }
    }
    return nullptr;
}

void JobWriteAhead::retire(std::unique_ptr<PropertyList::StagedWrite> staged)
{
    JobWriteAhead *ahead = g_current;
    if (!ahead || !staged) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(ahead->m_mutex);
        ahead->m_retired.push_back(std::move(staged));
    }
    ahead->m_wake.notify_all();
}

void JobWriteAhead::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_pending || m_stop || !m_retired.empty(); });
        if (!m_retired.empty()) {
            std::vector<std::unique_ptr<PropertyList::StagedWrite>> retired;
            retired.swap(m_retired);
            lock.unlock();
            retired.clear();
            lock.lock();
            continue;
        }
        if (m_stop) {
            return;
        }
        m_pending = false;
        m_busy = true;
        const QString path = m_path;
        const QByteArray xml = m_xml;
        lock.unlock();
        std::unique_ptr<PropertyList::StagedWrite> staged = PropertyList::stageXml(xml, path);
        lock.lock();
        if (staged) {
            std::erase_if(m_ready, [&](const auto &other) { return other->path == path; });
            m_ready.push_back(std::move(staged));
        }
        m_busy = false;
        m_wake.notify_all();
    }
}
