#include "SessionBus.h"

#include "DBusSessionBus.h"

#include <mutex>

namespace {
std::mutex g_mutex;
std::shared_ptr<SessionBus> g_current;
} // namespace

SessionBus::~SessionBus() = default;

SessionBus &SessionBus::current()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_current) {
        g_current = std::make_shared<DBusSessionBus>();
    }
    return *g_current;
}

void SessionBus::setCurrent(std::shared_ptr<SessionBus> bus)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_current = std::move(bus);
}
