#include "BridgeTesting.h"

#include "JobLoader.h"

#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

const auto daily = &BridgeTesting::daily;

class JobLoaderTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    BridgeTesting::StandIn systemctl{sandbox};
    JobLoader loader{"/opt/kairo/kairo-launchctl"};
    const QString userUnits = sandbox.home() + "/.config/systemd/user";

    QString job(const QString &label, const PlistDict &schedule, bool disabled = false,
                bool daemon = false)
    {
        return BridgeTesting::job(sandbox, label, schedule, disabled, daemon);
    }

    QStringList files() const { return QDir(userUnits).entryList(QDir::Files, QDir::Name); }

    // What the loader said on the console while running f.
    template <typename F>
    static QString said(F f)
    {
        TestFiles::CaptureStderr capture;
        f();
        return capture.finish();
    }
};

} // namespace

// A timer, or for RunAtLoad the service itself, is enabled and started; unload undoes it,
// and a second unload is quiet and runs nothing.
TEST_F(JobLoaderTest, LoadWritesTheUnitsThenEnablesAndStartsTheTrigger)
{
    const QString timer = "Task3.timer";
    const QString service0 = "Task0.service";
    const QString service3 = "Task3.service";
    const std::tuple<QString, PlistDict, QStringList, QString> cases[] = {
        {"Task3", daily(), {service3, timer}, timer + " " + service3},
        {"Task0", {{"RunAtLoad", true}}, {service0}, service0},
    };
    for (const auto &[label, schedule, units, disabled] : cases) {
        const QString path = job(label, schedule);
        systemctl.clearCalls();
        // The manager must be able to read the units whatever the caller's umask.
        const mode_t mask = umask(077);
        EXPECT_EQ(loader.load(path), 0);
        umask(mask);
        // A manager that does not answer is reloaded.
        EXPECT_EQ(
            systemctl.calls(),
            (QStringList{"--user show --timestamp=unix -p NeedDaemonReload " + units.join(' '),
                         "--user daemon-reload",
                         "--user enable --now --no-reload --no-block " + units.last()}));
        EXPECT_EQ(files(), units);
        EXPECT_EQ(QFileInfo(userUnits + "/" + units.last()).permissions(),
                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser |
                      QFileDevice::WriteUser | QFileDevice::ReadGroup | QFileDevice::ReadOther);

        systemctl.clearCalls();
        EXPECT_EQ(loader.unload(path), 0);
        EXPECT_EQ(systemctl.calls(), QStringList{"--user disable --now --no-reload " + disabled});
        EXPECT_TRUE(files().isEmpty());
        systemctl.clearCalls();
        EXPECT_EQ(said([&] { EXPECT_EQ(loader.unload(path), 0); }), QString());
        EXPECT_TRUE(systemctl.calls().isEmpty());
    }
}

TEST_F(JobLoaderTest, TheManagerIsReloadedOnlyWhenItHoldsAnOlderUnit)
{
    const QString path = job("Task3", daily());
    const QString timer = userUnits + "/Task3.timer";
    for (const auto &[answer, reloads] :
         {std::pair{"NeedDaemonReload=no\n\nNeedDaemonReload=no\n", false},
          std::pair{"NeedDaemonReload=no\n\nNeedDaemonReload=yes\n", true}}) {
        systemctl.answerShow(answer);
        systemctl.clearCalls();
        ASSERT_EQ(loader.load(path), 0);
        const QStringList calls = systemctl.calls();
        EXPECT_EQ(calls.contains("--user daemon-reload"), reloads) << answer;
        EXPECT_EQ(calls.last(), "--user enable --now --no-reload --no-block Task3.timer");
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
    job("Task3", daily(), true);
    ASSERT_EQ(loader.load(path), 0);
    EXPECT_EQ(systemctl.calls(),
              QStringList{"--user disable --now --no-reload Task3.timer Task3.service"});
}

TEST_F(JobLoaderTest, LoadingAgainReplacesTheUnitsOfTheOldSchedule)
{
    const QString label = "Task3";
    const QString path = job(label, daily());
    ASSERT_EQ(loader.load(path), 0);
    systemctl.clearCalls();
    // The application rewrites the job file for a new schedule.
    job(label, {{"WatchPaths", QStringList{"/srv/inbox"}}});
    EXPECT_EQ(loader.load(path), 0);
    EXPECT_EQ(
        systemctl.calls(),
        (QStringList{"--user disable --now --no-reload Task3.timer Task3.service",
                     "--user show --timestamp=unix -p NeedDaemonReload Task3.service Task3.path",
                     "--user daemon-reload",
                     "--user enable --now --no-reload --no-block Task3.path"}));
    EXPECT_EQ(files(), (QStringList{"Task3.path", "Task3.service"}));
    // Unload finds the units by label, whatever the job file says now.
    job(label, {{"StartInterval", 60}});
    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_EQ(systemctl.calls().first(),
              "--user disable --now --no-reload Task3.path Task3.service");
    EXPECT_TRUE(files().isEmpty());
}

// Jobs the loader must leave alone: a daemon for anyone but root, units it did not write,
// and units of another label that escapes to the same name.
TEST_F(JobLoaderTest, JobsAndUnitsThatAreNotOursAreLeftAlone)
{
    const QString daemon = job("RootTask1", daily(), false, true);
    EXPECT_TRUE(said([&] {
                    EXPECT_EQ(loader.load(daemon), 1);
                    EXPECT_EQ(loader.unload(daemon), 1);
                }).contains(daemon + " is a daemon; only root can unload it"));
    EXPECT_FALSE(QFileInfo::exists(sandbox.localRoot() + "/etc/systemd/system"));

    const QString path = job("Task3", daily());
    const QString foreign = userUnits + "/Task3.timer";
    TestFiles::write(foreign, "[Timer]\nOnCalendar=daily\n");
    EXPECT_EQ(said([&] {
                  EXPECT_EQ(loader.load(path), 1);
                  EXPECT_EQ(loader.unload(path), 1);
              }).count(foreign + " was not written by kairo-launchctl"),
              2);
    EXPECT_EQ(files(), QStringList{"Task3.timer"});

    // systemd-escape turns "/" into "-".
    ASSERT_EQ(loader.load(job("a-b", daily())), 0);
    const QString service = userUnits + "/a-b.service";
    const QByteArray before = TestFiles::read(service);
    systemctl.clearCalls();
    const QString second = job("a/b", daily());
    EXPECT_TRUE(said([&] {
                    EXPECT_EQ(loader.load(second), 1);
                    EXPECT_EQ(loader.unload(second), 0);
                }).contains("belong to the job a-b"));
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_EQ(TestFiles::read(service), before);
}

TEST_F(JobLoaderTest, FailingSystemctlLeavesTheUnitsWrittenAndFailsTheCommand)
{
    systemctl.fail("daemon-reload", 1);
    const QString path = job("Task3", daily());
    EXPECT_TRUE(said([&] { EXPECT_EQ(loader.load(path), 1); })
                    .contains("kairo-launchctl: systemctl --user daemon-reload failed with status "
                              "1: Failed to daemon-reload: the stand-in refuses"));
    // Enabling works without a running manager, so it is still done.
    EXPECT_EQ(systemctl.calls().size(), 3);
    EXPECT_TRUE(systemctl.calls().last().startsWith("--user enable --now "));
    EXPECT_EQ(files().size(), 2);

    // Stopping a unit the manager does not know is no failure.
    QFile::remove(systemctl.folder() + "/fail-daemon-reload");
    systemctl.fail("disable", 5);
    EXPECT_EQ(loader.unload(path), 0);
    EXPECT_TRUE(files().isEmpty());

    sandbox.setEnv("VT_SYSTEMCTL", sandbox.path() + "/no/systemctl");
    EXPECT_TRUE(said([&] {
                    EXPECT_EQ(loader.load(path), 1);
                }).contains("kairo-launchctl: cannot run " + sandbox.path() + "/no/systemctl"));
    EXPECT_EQ(files().size(), 2);
}

TEST_F(JobLoaderTest, TheMountWatcherComesWithTheFirstMountJobAndGoesWithTheLast)
{
    const QString first = job("Task1", {{"StartOnMount", true}});
    const QString second = job("Task2", {{"StartOnMount", true}});
    const QString disabled = job("Task3", {{"StartOnMount", true}}, true);
    const QString watcher = userUnits + "/kairo-mount-watcher.service";

    // A disabled job, and one without a trigger, are written and never started.
    EXPECT_EQ(loader.load(disabled), 0);
    EXPECT_EQ(loader.load(job("Task4", {{"StartCalendarInterval", PlistArray{}}})), 0);
    EXPECT_FALSE(QFileInfo::exists(watcher));
    EXPECT_EQ(loader.load(first), 0);
    EXPECT_TRUE(TestFiles::read(watcher).contains(
        "ExecStart=\"/opt/kairo/kairo-launchctl\" \"watch-mounts\"\n"));
    EXPECT_EQ(loader.load(second), 0);
    const QStringList calls = systemctl.calls();
    ASSERT_EQ(calls.size(), 6);
    EXPECT_EQ(calls.at(0), "--user show --timestamp=unix -p NeedDaemonReload Task1.service "
                           "kairo-mount-watcher.service");
    EXPECT_EQ(calls.at(2),
              "--user enable --now --no-reload --no-block kairo-mount-watcher.service");
    EXPECT_EQ(calls.at(5), calls.at(2));

    systemctl.clearCalls();
    EXPECT_EQ(loader.unload(first), 0);
    EXPECT_TRUE(QFileInfo::exists(watcher));
    EXPECT_EQ(loader.unload(second), 0);
    EXPECT_FALSE(QFileInfo::exists(watcher));
    EXPECT_EQ(systemctl.calls(),
              (QStringList{
                  "--user disable --now --no-reload Task1.service",
                  "--user disable --now --no-reload kairo-mount-watcher.service Task2.service"}));
    EXPECT_EQ(files(), (QStringList{"Task3.service", "Task4.service"}));
}

TEST_F(JobLoaderTest, AsRootAnAgentGoesToTheConsoleUsersManager)
{
    // Root acting for the user at the console (the application writes that user's agents):
    // the units go to the user's folder and manager, and belong to the user.
    const uid_t anna = geteuid() == 0 ? 65534 : geteuid();
    identity->uid = 0;
    identity->home = "/root";
    identity->console = "anna";
    identity->homes.insert("anna", sandbox.home());
    identity->uids.insert("anna", anna);
    const QString path = job("Task1", daily());

    EXPECT_EQ(loader.load(path), 0);
    ASSERT_FALSE(systemctl.calls().isEmpty());
    for (const QString &call : systemctl.calls()) {
        EXPECT_TRUE(call.startsWith("--user --machine=anna@ ")) << call.toStdString();
    }
    for (const QString &made :
         {userUnits + "/Task1.timer", userUnits, sandbox.home() + "/.config"}) {
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
        EXPECT_FALSE(call.contains("--machine")) << call.toStdString();
    }
}
