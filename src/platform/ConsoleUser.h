#pragma once

#include <QString>

#include <optional>

// The user of the active session of seat0, as sd-login reports it. A greeter session (the
// login screen) answers "loginwindow"; no logind or no active session gives no value.
class ConsoleUser
{
public:
    static std::optional<QString> query();
};
