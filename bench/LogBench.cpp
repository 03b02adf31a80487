// appendLog of a 200-character message while the writer is busy: the median call must stay
// under 2 microseconds, and 100,000 such messages must all reach the file, in order.
#include "support/VTLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

int main(int argc, char **argv)
{
    // An ordinary user's log: as root the current file lives in the local Library while the
    // user's folder is rotated, which is another path than the one measured here.
    if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
        std::fprintf(stderr, "LogBench: cannot leave the root account\n");
        return 1;
    }
    QCoreApplication app(argc, argv);
    QTemporaryDir sandbox;
    sandbox.setAutoRemove(std::getenv("LOGBENCH_KEEP") == nullptr);
    const QString home = sandbox.path() + QStringLiteral("/home");
    const QString root = sandbox.path() + QStringLiteral("/root");
    QDir().mkpath(home);
    QDir().mkpath(root + QStringLiteral("/Library/Logs/Vantreel"));
    setenv("HOME", home.toLocal8Bit().constData(), 1);
    setenv("VT_LOCAL_ROOT", root.toLocal8Bit().constData(), 1);

    constexpr int kMessages = 100000;
    VTLog::createNewLog(QStringLiteral("LogBench"));
    const QString filler(190, QLatin1Char('m'));

    std::vector<double> nanoseconds;
    nanoseconds.reserve(kMessages);
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < kMessages; ++i) {
        const auto before = std::chrono::steady_clock::now();
        VTLog::appendLog(QStringLiteral("%08d %@"), i, filler);
        const auto after = std::chrono::steady_clock::now();
        nanoseconds.push_back(std::chrono::duration<double, std::nano>(after - before).count());
    }
    const auto queued = std::chrono::steady_clock::now();
    VTLog::finishWriting();
    const auto written = std::chrono::steady_clock::now();

    std::vector<double> sorted = nanoseconds;
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[sorted.size() / 2];
    const double p99 = sorted[sorted.size() * 99 / 100];

    // The log rotates every 500 KB and keeps five generations, so the oldest messages are
    // gone by design: the survivors must be one unbroken run, in order, ending with the last.
    int expected = -1;
    int first = -1;
    bool inOrder = true;
    for (int g = 5; g >= 1; --g) {
        QFile file(VTLog::currentLogPath().replace(QStringLiteral(".1.log"),
                                                   QStringLiteral(".%1.log").arg(g)));
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        while (!file.atEnd()) {
            const QByteArray line = file.readLine();
            const int dash = line.indexOf(" - ");
            if (dash < 0 || line.size() < dash + 11 ||
                line.mid(dash + 3).startsWith("Log truncated")) {
                continue;
            }
            bool ok = false;
            const int n = line.mid(dash + 3, 8).toInt(&ok);
            if (!ok) {
                continue;
            }
            if (first < 0) {
                first = n;
            } else if (n != expected) {
                inOrder = false;
            }
            expected = n + 1;
        }
    }

    const double queueMs = std::chrono::duration<double, std::milli>(queued - started).count();
    const double writeMs = std::chrono::duration<double, std::milli>(written - started).count();
    std::printf("LogBench: appendLog of a 200-character message\n");
    std::printf("  median %.0f ns, 99th percentile %.0f ns (goal: median under 2000 ns) %s\n",
                median, p99, median < 2000 ? "OK" : "MISSED");
    std::printf("  %d messages queued in %.1f ms, all written after %.1f ms\n", kMessages, queueMs,
                writeMs);
    std::printf("  messages %d to %d in the five generations, %s %s\n", first, expected - 1,
                inOrder ? "unbroken and in order" : "WITH GAPS OR OUT OF ORDER",
                expected == kMessages && inOrder ? "OK" : "MISSED");
    return median < 2000 && expected == kMessages && inOrder ? 0 : 1;
}
