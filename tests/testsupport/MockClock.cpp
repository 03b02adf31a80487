#include "MockClock.h"

MockClock::MockClock(const QDateTime &start) : m_now(start) {}

QDateTime MockClock::now() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_now;
}

void MockClock::sleepFor(std::chrono::microseconds duration)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sleeps.push_back(duration);
    m_now = m_now.addMSecs(duration.count() / 1000);
}

void MockClock::advance(std::chrono::milliseconds duration)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_now = m_now.addMSecs(duration.count());
}

std::vector<std::chrono::microseconds> MockClock::sleeps() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sleeps;
}

MockClock::Scoped::Scoped(const QDateTime &start) : m_clock(std::make_shared<MockClock>(start))
{
    Clock::setCurrent(m_clock);
}

MockClock::Scoped::~Scoped()
{
    Clock::setCurrent(nullptr);
}
