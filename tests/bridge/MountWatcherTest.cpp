#include "BridgeTesting.h"

#include "JobLoader.h"
#include "MountWatcher.h"

#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

namespace {

const QByteArray kRoot = "/dev/sda1 / ext4 rw,relatime 0 0\n";
const QByteArray kProc = "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0\n";
const QByteArray kStick = "/dev/sdb1 /media/anna/STICK vfat rw,nosuid,nodev 0 0\n";

void append(const QString &path, const QByteArray &line)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write(line);
}

class MountWatcherTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    BridgeTesting::StandIn systemctl{sandbox};
    QString table = sandbox.file(QStringLiteral("mounts"));

    void SetUp() override { TestFiles::write(table, kRoot + kProc); }

    void load(const QString &label, const PlistDict &schedule, bool disabled = false)
    {
        const QString path = BridgeTesting::job(sandbox, label, schedule, disabled);
        ASSERT_EQ(JobLoader(BridgeTesting::bridgeBinary()).load(path), 0);
    }
};

} // namespace

TEST_F(MountWatcherTest, OnlyNewLinesOfTheMountTableCount)
{
    MountWatcher watcher(table, ManagerScope::user());
    EXPECT_TRUE(watcher.poll().isEmpty());
    append(table, kStick);
    EXPECT_EQ(watcher.poll(), QStringList{QString::fromUtf8(kStick.trimmed())});
    EXPECT_TRUE(watcher.poll().isEmpty());
    // An unmount is no event; mounting the same again is.
    TestFiles::write(table, kRoot + kProc);
    EXPECT_TRUE(watcher.poll().isEmpty());
    TestFiles::write(table, kRoot + kStick + kProc + kStick);
    EXPECT_EQ(watcher.poll().size(), 2);
}

TEST_F(MountWatcherTest, StartsTheServicesOfTheEnabledMountJobsOnly)
{
    load(QStringLiteral("com.vantreel.ScheduledTask1"), {{"StartOnMount", true}});
    load(QStringLiteral("com.vantreel.ScheduledTask2"), {{"StartOnMount", true}}, true);
    load(QStringLiteral("com.vantreel.ScheduledTask3"), {{"StartInterval", 60}});
    load(QStringLiteral("com.vantreel.ScheduledTask4"), {{"StartOnMount", true}});
    MountWatcher watcher(table, ManagerScope::user());
    EXPECT_EQ(watcher.mountJobServices(), (QStringList{"com.vantreel.ScheduledTask1.service",
                                                       "com.vantreel.ScheduledTask4.service"}));
    systemctl.clearCalls();
    EXPECT_TRUE(watcher.startJobs());
    EXPECT_EQ(systemctl.calls(),
              QStringList{"--user start --no-block com.vantreel.ScheduledTask1.service "
                          "com.vantreel.ScheduledTask4.service"});
}

TEST_F(MountWatcherTest, TheResidentWatcherStartsTheJobWhenADiskIsMounted)
{
    load(QStringLiteral("com.vantreel.ScheduledTask1"), {{"StartOnMount", true}});
    systemctl.clearCalls();

    QProcess watcher;
    watcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    watcher.start(BridgeTesting::bridgeBinary(),
                  {"watch-mounts", "--mounts", table, "--interval", "0.05"});
    ASSERT_TRUE(watcher.waitForStarted());
    // Several looks at an unchanged table start nothing.
    QThread::msleep(300);
    EXPECT_TRUE(systemctl.calls().isEmpty());

    append(table, kStick);
    const QString expected =
        QStringLiteral("--user start --no-block com.vantreel.ScheduledTask1.service");
    QElapsedTimer waited;
    waited.start();
    while (!systemctl.calls().contains(expected) && waited.elapsed() < 10000) {
        QThread::msleep(20);
    }
    EXPECT_EQ(systemctl.calls(), QStringList{expected});
    EXPECT_EQ(watcher.state(), QProcess::Running);
    watcher.terminate();
    watcher.waitForFinished();
}
