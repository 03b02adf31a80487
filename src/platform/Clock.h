#pragma once

#include <QDateTime>

#include <chrono>
#include <memory>

// The time of day and the waits of the system. Tests install a clock of their own so that
// time-dependent rules are checked without waiting.
class Clock
{
public:
    virtual ~Clock();
    virtual QDateTime now() const = 0;
    virtual void sleepFor(std::chrono::microseconds duration) = 0;

    static Clock &current();
    // Replaces the clock for the whole process; null restores the system clock.
    static void setCurrent(std::shared_ptr<Clock> clock);
};

class SystemClock : public Clock
{
public:
    QDateTime now() const override;
    void sleepFor(std::chrono::microseconds duration) override;
};
