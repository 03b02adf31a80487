// Discovery of client applications over an Applications folder of 20,000 folders with 200
// bundles, against `find` walking the same tree. Goal: at most 1.5 times find's time.
#include "AppTree.h"
#include "app/AppController.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace {

constexpr int kRounds = 7;

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir sandbox;
    const QString root = sandbox.path() + QStringLiteral("/root");
    const QString applications = root + QStringLiteral("/Applications");
    QDir().mkpath(root + QStringLiteral("/Library/Logs/Vantreel"));
    setenv("HOME", (sandbox.path() + QStringLiteral("/home")).toLocal8Bit().constData(), 1);
    setenv("VT_LOCAL_ROOT", root.toLocal8Bit().constData(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    // Run as root, the user folders are the console user's: the sandbox's own home.
    if (const passwd *user = getpwuid(getuid())) {
        setenv("VT_CONSOLE_USER", user->pw_name, 1);
    }
    setenv("VT_CONSOLE_HOME", (sandbox.path() + QStringLiteral("/home")).toLocal8Bit().constData(),
           1);

    const AppTree::Counts counts = AppTree::make(applications, 20000, 200);
    auto controller = AppController::init(nullptr);

    std::vector<double> walks;
    std::vector<double> finds;
    size_t found = 0;
    // The first round of each warms the caches and is not counted.
    for (int round = 0; round <= kRounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        const auto apps = controller->appsForFolder(applications);
        const double walk = timer.nsecsElapsed() / 1e6;
        found = apps ? apps->size() : 0;

        QProcess find;
        find.setStandardOutputFile(QProcess::nullDevice());
        timer.restart();
        find.start(QStringLiteral("find"), {applications});
        find.waitForFinished(-1);
        const double walked = timer.nsecsElapsed() / 1e6;
        if (round > 0) {
            walks.push_back(walk);
            finds.push_back(walked);
        }
    }

    const double walk = median(walks);
    const double find = median(finds);
    const double ratio = walk / find;
    std::printf("DiscoveryBench: %d folders, %d bundles (%d of them clients)\n", counts.folders,
                counts.bundles, counts.clients);
    std::printf("  discovery %.1f ms, found %zu; find %.1f ms (medians of %d)\n", walk, found, find,
                kRounds);
    std::printf("  discovery / find = %.2f (goal: at most 1.50) %s\n", ratio,
                ratio <= 1.5 ? "OK" : "MISSED");
    std::fflush(stdout);
    return found == static_cast<size_t>(counts.clients) && ratio <= 1.5 ? 0 : 1;
}
