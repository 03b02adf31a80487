#include "BridgeTesting.h"

#include "JobLoader.h"
#include "MountWatcher.h"

#include "testsupport/FakeIdentity.h"
#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QThread>

namespace {

const QByteArray kRoot = "/dev/sda1 / ext4 rw,relatime 0 0\n";
const QByteArray kProc = "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0\n";
const QByteArray kStick = "/dev/sdb1 /media/anna/STICK vfat rw,nosuid,nodev 0 0\n";

class MountWatcherTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    BridgeTesting::StandIn systemctl{sandbox};
    QString table = sandbox.file("mounts");

    void SetUp() override { TestFiles::write(table, kRoot + kProc); }
};

} // namespace

TEST_F(MountWatcherTest, OnlyNewLinesOfTheMountTableCount)
{
    MountWatcher watcher(table, ManagerScope::user());
    EXPECT_TRUE(watcher.poll().isEmpty());
    TestFiles::write(table, kRoot + kProc + kStick);
    EXPECT_EQ(watcher.poll(), QStringList{QString::fromUtf8(kStick.trimmed())});
    EXPECT_TRUE(watcher.poll().isEmpty());
    // An unmount is no event; mounting the same again is.
    TestFiles::write(table, kRoot + kProc);
    EXPECT_TRUE(watcher.poll().isEmpty());
    TestFiles::write(table, kRoot + kStick + kProc + kStick);
    EXPECT_EQ(watcher.poll().size(), 2);
}

// The resident watcher starts the services of the enabled mount jobs only.
TEST_F(MountWatcherTest, TheResidentWatcherStartsTheJobsWhenADiskIsMounted)
{
    for (const auto &[number, schedule, disabled] :
         {std::tuple{1, "StartOnMount", false}, std::tuple{2, "StartOnMount", true},
          std::tuple{3, "RunAtLoad", false}, std::tuple{4, "StartOnMount", false}}) {
        const QString path = BridgeTesting::job(sandbox, QString("Task%1").arg(number),
                                                {{schedule, true}}, disabled);
        ASSERT_EQ(JobLoader(BridgeTesting::bridgeBinary()).load(path), 0);
    }
    // The same choice in this process, where its counters can be seen.
    MountWatcher inProcess(table, ManagerScope::user());
    EXPECT_EQ(inProcess.mountJobServices(), (QStringList{"Task1.service", "Task4.service"}));
    EXPECT_TRUE(inProcess.startJobs());
    systemctl.clearCalls();

    QProcess watcher;
    watcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    watcher.start(BridgeTesting::bridgeBinary(),
                  {"watch-mounts", "--mounts", table, "--interval", "0.05"});
    ASSERT_TRUE(watcher.waitForStarted());
    // Several looks at an unchanged table start nothing.
    QThread::msleep(300);
    EXPECT_TRUE(systemctl.calls().isEmpty());

    // Appended, as the kernel's table never looks half written.
    QFile file(table);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write(kStick);
    file.close();
    const QString expected = "--user start --no-block Task1.service Task4.service";
    Poll::until([&] { return systemctl.calls().contains(expected); }, std::chrono::seconds(10));
    EXPECT_EQ(systemctl.calls(), QStringList{expected});
    EXPECT_EQ(watcher.state(), QProcess::Running);
    watcher.terminate();
    watcher.waitForFinished();
}
