#pragma once

#include "platform/Clock.h"

#include <mutex>
#include <vector>

// A clock that stands still until told to move; sleeping moves it instead of waiting.
class MockClock : public Clock
{
public:
    explicit MockClock(const QDateTime &start = QDateTime(QDate(2011, 3, 4), QTime(12, 0)));

    QDateTime now() const override;
    void sleepFor(std::chrono::microseconds duration) override;
    void advance(std::chrono::milliseconds duration);
    std::vector<std::chrono::microseconds> sleeps() const;

    // Installs a mock clock until the guard goes away.
    class Scoped
    {
    public:
        explicit Scoped(const QDateTime &start = QDateTime(QDate(2011, 3, 4), QTime(12, 0)));
        ~Scoped();
        MockClock *operator->() { return m_clock.get(); }

    private:
        std::shared_ptr<MockClock> m_clock;
    };

private:
    mutable std::mutex m_mutex;
    QDateTime m_now;
    std::vector<std::chrono::microseconds> m_sleeps;
};
