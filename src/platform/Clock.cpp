#include "Clock.h"

#include <mutex>
#include <thread>

namespace {
std::mutex g_mutex;
std::shared_ptr<Clock> g_current;
} // namespace

Clock::~Clock() = default;

Clock &Clock::current()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_current) {
        g_current = std::make_shared<SystemClock>();
    }
    return *g_current;
}

void Clock::setCurrent(std::shared_ptr<Clock> clock)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_current = std::move(clock);
}

QDateTime SystemClock::now() const
{
    return QDateTime::currentDateTime();
}

void SystemClock::sleepFor(std::chrono::microseconds duration)
{
    std::this_thread::sleep_for(duration);
}
