#pragma once

#include <chrono>
#include <functional>

// Waiting in tests for something another thread or process brings about.
class Poll
{
public:
    // Checks the condition until it holds or the time is up, and returns its last answer.
    // On the application's thread, pending events are delivered between checks.
    static bool until(const std::function<bool()> &condition,
                      std::chrono::milliseconds limit = std::chrono::milliseconds(5000));
};
