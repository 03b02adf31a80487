// Writing and reading back 1,000 scheduled tasks. The reader's cost per file is compared
// with what libplist alone needs to parse the same files; the goal is at most twice that.
#include "BenchClient.h"
#include "LibplistBaseline.h"
#include "platform/PropertyList.h"
#include "support/VTAlert.h"
#include "tasks/VTScheduledTask.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

// TASKSBENCH_TASKS and TASKSBENCH_ROUNDS shrink the run, for profiling.
int setting(const char *name, int fallback)
{
    const char *v = std::getenv(name);
    return v ? std::atoi(v) : fallback;
}
const int kTasks = setting("TASKSBENCH_TASKS", 1000);
const int kRounds = setting("TASKSBENCH_ROUNDS", 5);

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir sandbox;
    const QString home = sandbox.path() + QStringLiteral("/home");
    const QString applications = sandbox.path() + QStringLiteral("/Applications");
    QDir().mkpath(home);
    QDir().mkpath(applications);
    setenv("HOME", home.toLocal8Bit().constData(), 1);
    setenv("VT_LOCAL_ROOT", (sandbox.path() + QStringLiteral("/root")).toLocal8Bit().constData(),
           1);
    setenv("VT_APP_SEARCH_PATH", applications.toLocal8Bit().constData(), 1);
    setenv("VT_LAUNCHCTL", "/bin/true", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    // As root the user's folders are the console user's: make that the sandbox's user.
    setenv("VT_CONSOLE_USER", "bench", 1);
    setenv("VT_CONSOLE_HOME", home.toLocal8Bit().constData(), 1);
    BenchClient::write(applications, QStringLiteral("Quill"), QStringLiteral("com.vantreel.Quill"),
                       20);

    const QString agents = home + QStringLiteral("/Library/LaunchAgents");
    QDir().mkpath(agents);
    QStringList files;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTasks; ++i) {
        VTScheduledTask task;
        task.setFilename(agents + QStringLiteral("/com.vantreel.ScheduledTask%1.plist").arg(i + 1));
        task.setTaskBundleID(QStringLiteral("com.vantreel.Quill"));
        task.setTaskArguments(QStringList{QStringLiteral("-task"), QString::number(i % 20)});
        task.setTaskID(QStringLiteral("task%1").arg(i % 20));
        task.setScheduleType(i % 9);
        task.setIntervalSeconds(60);
        task.setIntervalDirectory(QStringLiteral("/srv/inbox"));
        PlistDict interval;
        interval.insert(QStringLiteral("Minute"), 30);
        interval.insert(QStringLiteral("Hour"), i % 24);
        task.setInterval(interval);
        if (!task.saveData(false)) {
            std::fprintf(stderr, "TasksBench: task %d not written\n", i);
            return 1;
        }
        files << *task.filename();
    }
    const double writeSeconds = secondsSince(start);

    // The best of several interleaved rounds, in CPU time.
    double readerBest = 1e9;
    double libplistBest = 1e9;
    int read = 0;
    for (int round = 0; round < kRounds; ++round) {
        double cpu = LibplistBaseline::processCpuSeconds();
        read = 0;
        for (const QString &file : files) {
            if (VTScheduledTask::taskWithFilename(file)) {
                ++read;
            }
        }
        readerBest = std::min(readerBest, LibplistBaseline::processCpuSeconds() - cpu);

        cpu = LibplistBaseline::processCpuSeconds();
        LibplistBaseline::parse(files);
        libplistBest = std::min(libplistBest, LibplistBaseline::processCpuSeconds() - cpu);
    }

    const double ratio = readerBest / libplistBest;
    std::printf("TasksBench: %d tasks\n", kTasks);
    std::printf("  written and reloaded in %.1f ms (%.1f us per task, reload tool /bin/true)\n",
                writeSeconds * 1e3, writeSeconds * 1e6 / kTasks);
    std::printf("  read back %d in %.1f ms (%.1f us per file); libplist alone %.1f us per file\n",
                read, readerBest * 1e3, readerBest * 1e6 / kTasks, libplistBest * 1e6 / kTasks);
    std::printf("  reader / libplist = %.2f (goal: at most 2.00) %s\n", ratio,
                ratio <= 2.0 ? "OK" : "MISSED");
    return read == kTasks && ratio <= 2.0 ? 0 : 1;
}
