#include "Identity.h"

#include "PosixIdentity.h"

#include <mutex>

namespace {
std::mutex g_mutex;
std::shared_ptr<Identity> g_current;
} // namespace

Identity::~Identity() = default;

Identity &Identity::current()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_current) {
        g_current = std::make_shared<PosixIdentity>();
    }
    return *g_current;
}

void Identity::setCurrent(std::shared_ptr<Identity> identity)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_current = std::move(identity);
}
