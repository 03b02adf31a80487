#pragma once

#include <QString>

#include <cstddef>
#include <ctime>

// The fatal-signal handler that leaves a crash log for the crash reporter of the next start.
// Everything the handler needs (folder, names, the time-zone offset) is prepared when it is
// installed; the handler itself makes only async-signal-safe calls, then lets the signal
// end the process as it would have without it.
class CrashSignalHandler
{
public:
    // A moment as calendar fields.
    struct CivilTime
    {
        long long year;
        int month;
        int day;
        int hour;
        int minute;
        int second;
    };

    // Handles SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT on an alternate stack. False when
    // the texts do not fit the handler's fixed buffers.
    static bool install(const QString &folder, const QString &appName, const QString &host,
                        int utcOffsetSeconds);

    // The crash log's path for a moment, "FOLDER/NAME_YYYY-MM-DD-HHMMSS_HOST.crash", as the
    // handler makes it; its length, or 0 when it does not fit.
    static size_t crashLogPath(char *buffer, size_t size, time_t when);

    // Seconds since the epoch plus an offset as calendar fields, by arithmetic alone
    // (localtime is not safe in a signal handler).
    static CivilTime civilTime(long long seconds, int utcOffsetSeconds);
};
