// "-disable" then "-enable" of all tasks, and the first "-tasks" of a new version (which
// rewrites every job), over 2,000 job files with a launchctl that records its calls.
// Saving a job runs three programs (launchctl unload, chmod, launchctl load); the yardstick
// of each command is the bare cost of as many runs: that many spawn-and-wait of /bin/true,
// measured in the same run right after it. Goal: each command within 1.5 times its
// yardstick, wall time, the least of the rounds on either side.
// TOGGLEBENCH_JOBS and TOGGLEBENCH_ROUNDS change the size and the rounds (default 2,000, 3:
// on a virtual machine the yardstick alone moves by a tenth from one round to the next);
// TOGGLEBENCH_BINARY measures another build's executable.
#include "BenchClient.h"
#include "platform/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int kClients = 50;
constexpr double kGoal = 1.5;
constexpr uid_t kFirstUser = 1000;

QString binary()
{
    const QString other = qEnvironmentVariable("TOGGLEBENCH_BINARY");
    return other.isEmpty() ? QStringLiteral(KAIRO_BINARY_DIR "/bin/kairo-planner") : other;
}

int setting(const char *name, int fallback)
{
    const char *v = std::getenv(name);
    return v && std::atoi(v) > 0 ? std::atoi(v) : fallback;
}

double runCommandMs(const QStringList &arguments, bool *ok)
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(binary(), arguments);
    process.waitForFinished(-1);
    *ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

// The yardstick: count times /bin/true started and waited for, in milliseconds.
double spawnTrueMs(int count)
{
    char program[] = "/bin/true";
    char *argv[] = {program, nullptr};
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < count; ++i) {
        pid_t pid = 0;
        if (posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0) {
            std::fprintf(stderr, "ToggleAllBench: cannot start /bin/true\n");
            std::exit(1);
        }
        int status = 0;
        waitpid(pid, &status, 0);
    }
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

struct Measure
{
    Measure(const char *n, const QString &argument) : name(n), arguments{argument} {}

    const char *name;
    QStringList arguments;
    std::vector<double> command;
    std::vector<double> yardstick;
    int runs = 0;
    bool ok = true;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int jobs = setting("TOGGLEBENCH_JOBS", 2000);
    const int rounds = setting("TOGGLEBENCH_ROUNDS", 3);
    QTemporaryDir sandbox;
    const QString home = sandbox.path() + QStringLiteral("/home");
    const QString root = sandbox.path() + QStringLiteral("/root");
    const QString applications = root + QStringLiteral("/Applications");
    const QString preferences = home + QStringLiteral("/Library/Preferences");
    const QString log = sandbox.path() + QStringLiteral("/launchctl.log");
    QDir().mkpath(applications);
    QDir().mkpath(root + QStringLiteral("/Library/Logs/Vantreel"));
    QDir().mkpath(preferences);
    qputenv("HOME", home.toLocal8Bit());
    qputenv("VT_LOCAL_ROOT", root.toLocal8Bit());
    qputenv("VT_CONSOLE_USER", "bench");
    qputenv("VT_CONSOLE_HOME", home.toLocal8Bit());
    qputenv("VT_LAUNCHCTL", KAIRO_RECORDING_LAUNCHCTL);
    qputenv("KAIRO_BENCH_LAUNCHCTL_LOG", log.toLocal8Bit());
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    qunsetenv("DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");

    BenchClient::writeClients(applications, kClients);
    const QString agents = home + QStringLiteral("/Library/LaunchAgents");
    const QStringList files = BenchClient::writeJobs(agents, applications, kClients, jobs);
    if (::geteuid() == 0) {
        // The second pass saves as the first user account: as root, the home is that user's,
        // and the sandbox open to it.
        ::chmod(QFile::encodeName(sandbox.path()).constData(), 0755);
        QDirIterator it(home, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                        QDirIterator::Subdirectories);
        ::chown(QFile::encodeName(home).constData(), kFirstUser, kFirstUser);
        while (it.hasNext()) {
            ::lchown(QFile::encodeName(it.next()).constData(), kFirstUser, kFirstUser);
        }
    }

    std::vector<Measure> measures{{"first -tasks of a new version", QStringLiteral("-tasks")},
                                  {"-disable of all", QStringLiteral("-disable")},
                                  {"-enable of all", QStringLiteral("-enable")}};
    for (int round = 0; round < rounds; ++round) {
        for (Measure &m : measures) {
            if (m.arguments.first() == QLatin1String("-tasks")) {
                // A version that differs from the last one recorded makes the listing
                // rewrite every job.
                const QDir prefs(preferences);
                for (const QString &name : prefs.entryList({QStringLiteral("*.plist")})) {
                    auto dict = PropertyList::readDictionary(prefs.filePath(name));
                    if (dict && dict->contains(QStringLiteral("lastRunVersion"))) {
                        dict->insert(QStringLiteral("lastRunVersion"), QStringLiteral("0"));
                        PropertyList::writeXml(PlistValue(*dict), prefs.filePath(name));
                    }
                }
            }
            // Open to the first user account too, which makes the calls of the second pass.
            QFile::remove(log);
            QFile made(log);
            made.open(QIODevice::WriteOnly);
            made.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                QFileDevice::ReadOther | QFileDevice::WriteOther);
            made.close();
            bool ok = false;
            m.command.push_back(runCommandMs(m.arguments, &ok));
            // Every save runs chmod once beside its launchctl unload.
            QFile recorded(log);
            recorded.open(QIODevice::ReadOnly);
            const QByteArray calls = recorded.readAll();
            m.runs = static_cast<int>(calls.count('\n') + calls.count("unload "));
            m.ok = m.ok && ok && calls.count("unload ") >= jobs;
            m.yardstick.push_back(spawnTrueMs(m.runs));
        }
    }

    const auto disabled = PropertyList::readDictionary(files.first());
    const bool enabledAgain = disabled && !disabled->contains(QStringLiteral("Disabled"));
    std::printf("ToggleAllBench: %d job files of %d client applications, %d rounds\n", jobs,
                kClients, rounds);
    bool met = enabledAgain;
    for (const Measure &m : measures) {
        const double command = *std::min_element(m.command.begin(), m.command.end());
        const double yardstick = *std::min_element(m.yardstick.begin(), m.yardstick.end());
        const double ratio = command / yardstick;
        const bool good = m.ok && ratio <= kGoal;
        met = met && good;
        std::printf("  %s: %.0f ms, %d process runs; as many of /bin/true %.0f ms; ratio %.2f "
                    "(goal at most %.1f) %s\n",
                    m.name, command, m.runs, yardstick, ratio, kGoal,
                    !m.ok ? "FAILED" : (good ? "OK" : "MISSED"));
    }
    if (!enabledAgain) {
        std::printf("  the jobs were not enabled again: FAILED\n");
    }
    return met ? 0 : 1;
}
