#pragma once

#include <QString>

// How a failure that concerns a client application is reported: posted to the client with
// the prefix "Kairo Planner: ", and written to the console without it.
class VTReport
{
public:
    static void report(const QString &message);
    // For the few messages whose console text differs from the notification's.
    static void report(const QString &message, const QString &consoleMessage);
};
