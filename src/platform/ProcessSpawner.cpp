#include "ProcessSpawner.h"

#include "PosixSpawner.h"

#include <mutex>

namespace {
std::mutex g_mutex;
std::shared_ptr<ProcessSpawner> g_current;
} // namespace

ChildProcess::~ChildProcess() = default;
ProcessSpawner::~ProcessSpawner() = default;

ProcessSpawner &ProcessSpawner::current()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_current) {
        g_current = std::make_shared<PosixSpawner>();
    }
    return *g_current;
}

void ProcessSpawner::setCurrent(std::shared_ptr<ProcessSpawner> spawner)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_current = std::move(spawner);
}
