#include "BridgeTesting.h"

#include "JobLoader.h"

#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

const QString kBridge = QStringLiteral("/opt/kairo/kairo-launchctl");

const auto daily = &BridgeTesting::daily;

class JobLoaderTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    BridgeTesting::StandIn systemctl{sandbox};
    JobLoader loader{kBridge};

    QString agents() const { return sandbox.home() + QStringLiteral("/Library/LaunchAgents"); }
    QString userUnits() const { return sandbox.home() + QStringLiteral("/.config/systemd/user"); }
    QString systemUnits() const
    {
        return sandbox.localRoot() + QStringLiteral("/etc/systemd/system");
    }

    QString job(const QString &label, const PlistDict &schedule, bool disabled = false,
                bool daemon = false)
    {
        return BridgeTesting::job(sandbox, label, schedule, disabled, daemon);
    }

    static QStringList files(const QString &folder)
    {
        return QDir(folder).entryList(QDir::Files, QDir::Name);
    }
};

} // namespace

TEST_F(JobLoaderTest, LoadWritesTheUnitsThenEnablesAndStartsTheTrigger)
{
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask3"), daily());
    // The manager must be able to read the units whatever the caller's umask.
    const mode_t mask = umask(077);
    EXPECT_EQ(loader.load(path), 0);
    umask(mask);
    // A manager that does not answer is reloaded.
    EXPECT_EQ(systemctl.calls(),
              (QStringList{"--user show --timestamp=unix -p NeedDaemonReload "
                           "com.vantreel.ScheduledTask3.service com.vantreel.ScheduledTask3.timer",
                           "--user daemon-reload",
                           "--user enable --now --no-reload --no-block "
                           "com.vantreel.ScheduledTask3.timer"}));
    EXPECT_EQ(files(userUnits()), (QStringList{"com.vantreel.ScheduledTask3.service",
                                               "com.vantreel.ScheduledTask3.timer"}));
    EXPECT_EQ(QFileInfo(userUnits() + "/com.vantreel.ScheduledTask3.timer").permissions(),
              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser |
                  QFileDevice::WriteUser | QFileDevice::ReadGroup | QFileDevice::ReadOther);

    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_EQ(systemctl.calls(), QStringList{"--user disable --now --no-reload "
                                             "com.vantreel.ScheduledTask3.timer "
                                             "com.vantreel.ScheduledTask3.service"});
    EXPECT_TRUE(files(userUnits()).isEmpty());

    // Never loaded any more: quiet, and systemctl is not run.
    systemctl.clearCalls();
    TestFiles::CaptureStderr stderrCapture;
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_EQ(stderrCapture.finish(), QString());
    EXPECT_TRUE(systemctl.calls().isEmpty());
}

TEST_F(JobLoaderTest, TheManagerIsReloadedOnlyWhenItHoldsAnOlderUnit)
{
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask3"), daily());
    const QString timer = userUnits() + QStringLiteral("/com.vantreel.ScheduledTask3.timer");
    const QString enable = QStringLiteral(
        "--user enable --now --no-reload --no-block com.vantreel.ScheduledTask3.timer");
    for (const auto &[answer, reloads] :
         {std::pair{"NeedDaemonReload=no\n\nNeedDaemonReload=no\n", false},
          std::pair{"NeedDaemonReload=no\n\nNeedDaemonReload=yes\n", true}}) {
        systemctl.answerShow(QString::fromLatin1(answer));
        systemctl.clearCalls();
        ASSERT_EQ(loader.load(path), 0);
        const QStringList calls = systemctl.calls();
        EXPECT_EQ(calls.contains(QStringLiteral("--user daemon-reload")), reloads) << answer;
        EXPECT_EQ(calls.last(), enable);
    }
    // Loading it again unchanged leaves the files as they are, time included, so that the
    // manager has nothing to reload.
    QFile file(timer);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    ASSERT_TRUE(file.setFileTime(QDateTime::fromSecsSinceEpoch(1000000000),
                                 QFileDevice::FileModificationTime));
    file.close();
    ASSERT_EQ(loader.load(path), 0);
    EXPECT_EQ(QFileInfo(timer).lastModified().toSecsSinceEpoch(), 1000000000);
    // A disabled job is only written: the load that enables it asks the manager.
    systemctl.clearCalls();
    job(QStringLiteral("com.vantreel.ScheduledTask3"), daily(), true);
    ASSERT_EQ(loader.load(path), 0);
    EXPECT_EQ(systemctl.calls(), QStringList{"--user disable --now --no-reload "
                                             "com.vantreel.ScheduledTask3.timer "
                                             "com.vantreel.ScheduledTask3.service"});
}

TEST_F(JobLoaderTest, RunAtLoadEnablesAndStartsTheServiceItself)
{
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask0"), {{"RunAtLoad", true}});
    EXPECT_EQ(loader.load(path), 0);
    EXPECT_EQ(systemctl.calls().last(), QStringLiteral("--user enable --now --no-reload --no-block "
                                                       "com.vantreel.ScheduledTask0.service"));
    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_EQ(systemctl.calls(),
              QStringList{"--user disable --now --no-reload com.vantreel.ScheduledTask0.service"});
}

TEST_F(JobLoaderTest, DisabledJobsAndJobsWithoutTriggerAreWrittenButNotStarted)
{
    EXPECT_EQ(loader.load(job(QStringLiteral("com.vantreel.ScheduledTask1"), daily(), true)), 0);
    EXPECT_EQ(loader.load(job(QStringLiteral("com.vantreel.ScheduledTask2"),
                              {{"StartCalendarInterval", PlistArray{}}})),
              0);
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_EQ(files(userUnits()), (QStringList{"com.vantreel.ScheduledTask1.service",
                                               "com.vantreel.ScheduledTask1.timer",
                                               "com.vantreel.ScheduledTask2.service"}));
}

TEST_F(JobLoaderTest, LoadingAgainReplacesTheUnitsOfTheOldSchedule)
{
    const QString label = QStringLiteral("com.vantreel.ScheduledTask3");
    const QString path = job(label, daily());
    ASSERT_EQ(loader.load(path), 0);
    systemctl.clearCalls();
    // The application rewrites the job file for a new schedule.
    job(label, {{"WatchPaths", QStringList{"/srv/inbox"}}});
    EXPECT_EQ(loader.load(path), 0);
    EXPECT_EQ(systemctl.calls(),
              (QStringList{
                  "--user disable --now --no-reload com.vantreel.ScheduledTask3.timer "
                  "com.vantreel.ScheduledTask3.service",
                  "--user show --timestamp=unix -p NeedDaemonReload "
                  "com.vantreel.ScheduledTask3.service com.vantreel.ScheduledTask3.path",
                  "--user daemon-reload",
                  "--user enable --now --no-reload --no-block com.vantreel.ScheduledTask3.path"}));
    EXPECT_EQ(files(userUnits()), (QStringList{"com.vantreel.ScheduledTask3.path",
                                               "com.vantreel.ScheduledTask3.service"}));
    // Unload finds the units by label, whatever the job file says now.
    job(label, {{"StartInterval", 60}});
    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_EQ(systemctl.calls().first(),
              QStringLiteral("--user disable --now --no-reload com.vantreel.ScheduledTask3.path "
                             "com.vantreel.ScheduledTask3.service"));
    EXPECT_TRUE(files(userUnits()).isEmpty());
}

TEST_F(JobLoaderTest, DaemonsNeedRoot)
{
    const QString path =
        job(QStringLiteral("com.vantreel.RootScheduledTask1"), daily(), false, true);
    TestFiles::CaptureStderr stderrCapture;
    EXPECT_EQ(loader.load(path), 1);
    EXPECT_EQ(loader.unload(path), 1);
    const QString said = stderrCapture.finish();
    EXPECT_TRUE(said.contains(path + QStringLiteral(" is a daemon; only root can unload it")))
        << said.toStdString();
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(systemUnits()));

    identity->uid = 0;
    EXPECT_EQ(loader.load(path), 0);
    EXPECT_EQ(systemctl.calls(),
              (QStringList{
                  "show --timestamp=unix -p NeedDaemonReload "
                  "com.vantreel.RootScheduledTask1.service com.vantreel.RootScheduledTask1.timer",
                  "daemon-reload",
                  "enable --now --no-reload --no-block com.vantreel.RootScheduledTask1.timer"}));
    EXPECT_EQ(files(systemUnits()), (QStringList{"com.vantreel.RootScheduledTask1.service",
                                                 "com.vantreel.RootScheduledTask1.timer"}));
    EXPECT_FALSE(QFileInfo::exists(userUnits()));
}

TEST_F(JobLoaderTest, UnitsWithoutTheMarkerAreNeverTouched)
{
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask3"), daily());
    const QString foreign = userUnits() + QStringLiteral("/com.vantreel.ScheduledTask3.timer");
    TestFiles::write(foreign, "[Timer]\nOnCalendar=daily\n");
    TestFiles::CaptureStderr stderrCapture;
    EXPECT_EQ(loader.load(path), 1);
    EXPECT_EQ(loader.unload(path), 1);
    const QString said = stderrCapture.finish();
    EXPECT_EQ(said.count(foreign + QStringLiteral(" was not written by kairo-launchctl")), 2)
        << said.toStdString();
    EXPECT_EQ(files(userUnits()), QStringList{"com.vantreel.ScheduledTask3.timer"});
    EXPECT_TRUE(systemctl.calls().isEmpty());
}

TEST_F(JobLoaderTest, LabelsThatEscapeToTheSameNameDoNotTakeEachOthersUnits)
{
    // systemd-escape turns "/" into "-".
    const QString first = job(QStringLiteral("com.vantreel.a-b"), daily());
    const QString second = job(QStringLiteral("com.vantreel.a/b"), daily());
    ASSERT_EQ(loader.load(first), 0);
    const QByteArray before =
        TestFiles::read(userUnits() + QStringLiteral("/com.vantreel.a-b.service"));
    systemctl.clearCalls();
    TestFiles::CaptureStderr stderrCapture;
    EXPECT_EQ(loader.load(second), 1);
    EXPECT_EQ(loader.unload(second), 0);
    EXPECT_TRUE(
        stderrCapture.finish().contains(QStringLiteral("belong to the job com.vantreel.a-b")));
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_EQ(TestFiles::read(userUnits() + QStringLiteral("/com.vantreel.a-b.service")), before);
}

TEST_F(JobLoaderTest, FailingSystemctlLeavesTheUnitsWrittenAndFailsTheCommand)
{
    systemctl.fail(QStringLiteral("daemon-reload"), 1);
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask3"), daily());
    TestFiles::CaptureStderr stderrCapture;
    EXPECT_EQ(loader.load(path), 1);
    const QString said = stderrCapture.finish();
    EXPECT_TRUE(said.contains(
        QStringLiteral("kairo-launchctl: systemctl --user daemon-reload failed with status 1: "
                       "Failed to daemon-reload: the stand-in refuses")))
        << said.toStdString();
    // Enabling works without a running manager, so it is still done.
    EXPECT_EQ(systemctl.calls().size(), 3);
    EXPECT_TRUE(systemctl.calls().last().startsWith(QStringLiteral("--user enable --now ")));
    EXPECT_EQ(files(userUnits()).size(), 2);

    // Stopping a unit the manager does not know is no failure.
    QFile::remove(systemctl.folder() + QStringLiteral("/fail-daemon-reload"));
    systemctl.fail(QStringLiteral("disable"), 5);
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_TRUE(files(userUnits()).isEmpty());

    sandbox.setEnv("VT_SYSTEMCTL", sandbox.path() + QStringLiteral("/no/systemctl"));
    TestFiles::CaptureStderr missing;
    EXPECT_EQ(loader.load(path), 1);
    EXPECT_TRUE(missing.finish().contains(QStringLiteral("kairo-launchctl: cannot run ") +
                                          sandbox.path() + QStringLiteral("/no/systemctl")));
    EXPECT_EQ(files(userUnits()).size(), 2);
}

TEST_F(JobLoaderTest, TheMountWatcherComesWithTheFirstMountJobAndGoesWithTheLast)
{
    const QString first =
        job(QStringLiteral("com.vantreel.ScheduledTask1"), {{"StartOnMount", true}});
    const QString second =
        job(QStringLiteral("com.vantreel.ScheduledTask2"), {{"StartOnMount", true}});
    const QString disabled =
        job(QStringLiteral("com.vantreel.ScheduledTask3"), {{"StartOnMount", true}}, true);
    const QString watcher = userUnits() + QStringLiteral("/kairo-mount-watcher.service");

    EXPECT_EQ(loader.load(disabled), 0);
    EXPECT_FALSE(QFileInfo::exists(watcher));
    EXPECT_EQ(loader.load(first), 0);
    EXPECT_TRUE(TestFiles::read(watcher).contains(
        "ExecStart=\"/opt/kairo/kairo-launchctl\" \"watch-mounts\"\n"));
    EXPECT_EQ(loader.load(second), 0);
    const QStringList calls = systemctl.calls();
    ASSERT_EQ(calls.size(), 6);
    EXPECT_EQ(calls.at(0),
              QStringLiteral("--user show --timestamp=unix -p NeedDaemonReload "
                             "com.vantreel.ScheduledTask1.service kairo-mount-watcher.service"));
    EXPECT_EQ(calls.at(2), QStringLiteral("--user enable --now --no-reload --no-block "
                                          "kairo-mount-watcher.service"));
    EXPECT_EQ(calls.at(5), calls.at(2));

    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(first), 0);
    EXPECT_TRUE(QFileInfo::exists(watcher));
    EXPECT_EQ(loader.unload(second), 0);
    EXPECT_FALSE(QFileInfo::exists(watcher));
    EXPECT_EQ(systemctl.calls(),
              (QStringList{"--user disable --now --no-reload com.vantreel.ScheduledTask1.service",
                           "--user disable --now --no-reload kairo-mount-watcher.service "
                           "com.vantreel.ScheduledTask2.service"}));
    // The disabled one is still loaded.
    EXPECT_EQ(files(userUnits()), QStringList{"com.vantreel.ScheduledTask3.service"});
}

TEST_F(JobLoaderTest, AsRootAnAgentGoesToTheConsoleUsersManager)
{
    // Root acting for the user at the console (the application writes that user's agents):
    // the units go to the user's folder and manager, and belong to the user.
    const uid_t anna = geteuid() == 0 ? 65534 : geteuid();
    identity->uid = 0;
    identity->home = QStringLiteral("/root");
    identity->console = QStringLiteral("anna");
    identity->homes.insert(QStringLiteral("anna"), sandbox.home());
    identity->uids.insert(QStringLiteral("anna"), anna);
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask1"), daily());

    EXPECT_EQ(loader.load(path), 0);
    ASSERT_FALSE(systemctl.calls().isEmpty());
    for (const QString &call : systemctl.calls()) {
        EXPECT_TRUE(call.startsWith(QStringLiteral("--user --machine=anna@ ")))
            << call.toStdString();
    }
    for (const QString &made : {userUnits() + "/com.vantreel.ScheduledTask1.timer", userUnits(),
                                sandbox.home() + "/.config"}) {
        struct stat info
        {};
        ASSERT_EQ(::stat(QFile::encodeName(made).constData(), &info), 0);
        EXPECT_EQ(info.st_uid, anna) << made.toStdString();
    }

    // Nobody at the console: root's own manager, as before.
    identity->console = std::nullopt;
    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(path), 0);
    for (const QString &call : systemctl.calls()) {
        EXPECT_FALSE(call.contains(QStringLiteral("--machine"))) << call.toStdString();
    }
}
