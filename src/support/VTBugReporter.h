#pragma once

#include <QString>

#include <optional>

// Told on the main thread when the previous run crashed.
class VTBugReporterDelegate
{
public:
    virtual ~VTBugReporterDelegate();
    virtual void applicationDidCrashWithLog(const QString &path) = 0;
};

// Notices at start-up that the previous run ended in a crash (a "launch" mark later than
// the "exit" mark and a crash log written after it) and hands the crash log to the
// bug-reporting application.
class VTBugReporter
{
public:
    static void startBugReporter(const std::optional<QString> &appName,
                                 const std::optional<QString> &plistPath,
                                 VTBugReporterDelegate *delegate);
    static void startBugReporter(const std::optional<QString> &appName,
                                 const std::optional<QString> &plistPath);
    static void startBugReporterWithDelegate(VTBugReporterDelegate *delegate);
    static void startBugReporter();
    static void stopBugReporter(const std::optional<QString> &plistPath);
    static void stopBugReporter();
    static std::optional<QString> checkForCrashes(const std::optional<QString> &appName,
                                                  const std::optional<QString> &plistPath);
    static std::optional<QString> checkForCrashes();
    static void chownPlist(const QString &path);

    // Writes NAME_YYYY-MM-DD-HHMMSS_HOST.crash with a backtrace into the user's
    // Library/Logs/DiagnosticReports when the process dies of a fatal signal.
    static void installCrashHandler(const QString &appName);
};
