#include "BridgeTesting.h"

#include "platform/FileNames.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <unistd.h>

namespace {

const auto daily = &BridgeTesting::daily;

// The real program, as the application and a person at the terminal run it.
class BridgeCommandTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    BridgeTesting::StandIn systemctl{sandbox};

    QString job(const QString &label, const PlistDict &schedule, bool daemon = false)
    {
        return BridgeTesting::job(sandbox, label, schedule, false, daemon);
    }

    // Lets another user in: the sandbox is private to its owner.
    void openSandboxToEveryone()
    {
        const auto open = [](const QString &path) {
            QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ReadOther |
                                            QFileDevice::ExeOther | QFileDevice::ReadGroup |
                                            QFileDevice::ExeGroup);
        };
        open(sandbox.path());
        QDirIterator it(sandbox.path(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            open(it.next());
        }
    }
};

} // namespace

TEST_F(BridgeCommandTest, MissingJobFilesGetLaunchctlsMessagesAndStatus1)
{
    const QString missing = sandbox.path() + QStringLiteral("/nothing.plist");
    BridgeTesting::Run run = BridgeTesting::bridge({"load", missing});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.contains(
        QStringLiteral("launchctl: Couldn't stat(\"%1\"): No such file or directory\n")
            .arg(missing)))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("] nothing found to load\n")))
        << run.err.toStdString();
    EXPECT_EQ(BridgeTesting::bridge({"unload", missing}).status, 1);

    const QString invalid = sandbox.file(QStringLiteral("invalid.plist"));
    TestFiles::write(invalid, "not a property list");
    run = BridgeTesting::bridge({"load", invalid});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(
        run.err.contains(QStringLiteral("launchctl: no plist was returned for: ") + invalid))
        << run.err.toStdString();
    EXPECT_TRUE(systemctl.calls().isEmpty());
}

TEST_F(BridgeCommandTest, WrongUsageShowsTheUsage)
{
    for (const QStringList &arguments :
         {QStringList{}, QStringList{"load"}, QStringList{"start", "x"},
          QStringList{"list", "--base-time", "yesterday"},
          QStringList{"watch-mounts", "--interval", "0"}}) {
        const BridgeTesting::Run run = BridgeTesting::bridge(arguments);
        EXPECT_EQ(run.status, 1) << arguments.join(' ').toStdString();
        EXPECT_FALSE(run.err.isEmpty());
    }
}

TEST_F(BridgeCommandTest, LoadAndUnloadCallSystemctlInOrder)
{
    const QString path = job(QStringLiteral("com.vantreel.ScheduledTask3"), daily());
    BridgeTesting::Run run = BridgeTesting::bridge({"load", path});
    EXPECT_EQ(run.status, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    run = BridgeTesting::bridge({"unload", path});
    EXPECT_EQ(run.status, 0) << run.err.toStdString();
    // Never loaded any more: quiet.
    run = BridgeTesting::bridge({"unload", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(
        systemctl.calls(),
        (QStringList{"--user show --timestamp=unix -p NeedDaemonReload "
                     "com.vantreel.ScheduledTask3.service com.vantreel.ScheduledTask3.timer",
                     "--user daemon-reload",
                     "--user enable --now --no-reload --no-block com.vantreel.ScheduledTask3.timer",
                     "--user disable --now --no-reload com.vantreel.ScheduledTask3.timer "
                     "com.vantreel.ScheduledTask3.service"}));
}

TEST_F(BridgeCommandTest, OnlyRootLoadsDaemons)
{
    const QString path = job(QStringLiteral("com.vantreel.RootScheduledTask1"), daily(), true);
    const QString systemUnits = sandbox.localRoot() + QStringLiteral("/etc/systemd/system");
    BridgeTesting::Run run;
    if (geteuid() == 0) {
        // As nobody, through the real identity calls of the program.
        openSandboxToEveryone();
        run = BridgeTesting::run(QStringLiteral("setpriv"),
                                 {"--reuid=65534", "--regid=65534", "--clear-groups",
                                  BridgeTesting::bridgeBinary(), "load", path});
    } else {
        run = BridgeTesting::bridge({"load", path});
    }
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.contains(path + QStringLiteral(" is a daemon; only root can load it")))
        << run.err.toStdString();
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(systemUnits));

    if (geteuid() == 0) {
        run = BridgeTesting::bridge({"load", path});
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        EXPECT_EQ(systemctl.calls(), (QStringList{"show --timestamp=unix -p NeedDaemonReload "
                                                  "com.vantreel.RootScheduledTask1.service "
                                                  "com.vantreel.RootScheduledTask1.timer",
                                                  "daemon-reload",
                                                  "enable --now --no-reload --no-block "
                                                  "com.vantreel.RootScheduledTask1.timer"}));
        EXPECT_TRUE(QFileInfo::exists(systemUnits +
                                      QStringLiteral("/com.vantreel.RootScheduledTask1.timer")));
    }
}

TEST_F(BridgeCommandTest, ListPrintsEveryLoadedJobAtAFixedBaseTime)
{
    ASSERT_EQ(
        BridgeTesting::bridge({"load", job(QStringLiteral("com.vantreel.ScheduledTask3"), daily())})
            .status,
        0);
    ASSERT_EQ(BridgeTesting::bridge({"load", job(QStringLiteral("com.vantreel.ScheduledTask6"),
                                                 {{"StartInterval", 90}})})
                  .status,
              0);
    systemctl.fail(QStringLiteral("show"), 1);
    const BridgeTesting::Run run =
        BridgeTesting::bridge({"list", "--base-time", "2011-03-04T12:00:00Z"}, {{"TZ", "UTC"}});
    EXPECT_EQ(run.status, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, "com.vantreel.ScheduledTask3\tyes\t2011-03-05T07:00:00+00:00\t-\n"
                       "com.vantreel.ScheduledTask6\tyes\t2011-03-04T12:01:30+00:00\t-\n");
}

// Under a home whose name is not UTF-8 the units go into that very home, where list and
// unload find them again; no second home appears under another name. A program so named
// survives the job file and is named by its bytes in the unit.
TEST_F(BridgeCommandTest, AHomeThatIsNotUtf8GetsTheUnits)
{
    const QString home = sandbox.path() + FileNames::decode("/caf\xe9");
    sandbox.setEnv("HOME", home);
    const QString units = home + QStringLiteral("/.config/systemd/user/com.vantreel.X");
    const QString program = sandbox.localRoot() + FileNames::decode("/T\xf6ols/run");
    const QString path = BridgeTesting::writeJob(
        sandbox.home(),
        BridgeTesting::writerJob(QStringLiteral("com.vantreel.X"), program, {}, daily()));
    BridgeTesting::Run run = BridgeTesting::bridge({"load", path});
    EXPECT_EQ(run.status, 0) << run.err.toStdString();
    EXPECT_TRUE(FileNames::exists(units + QStringLiteral(".timer")));
    const QByteArray service = TestFiles::read(units + QStringLiteral(".service"));
    EXPECT_TRUE(service.contains("ExecStart=@\"" + FileNames::encode(sandbox.localRoot()) +
                                 "/T\\xf6ols/run\" \"run\"\n"))
        << service.toStdString();
    systemctl.fail(QStringLiteral("show"), 1);
    run = BridgeTesting::bridge({"list"});
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("com.vantreel.X\tyes\t")))
        << run.out.toStdString();
    EXPECT_EQ(BridgeTesting::bridge({"unload", path}).status, 0);
    EXPECT_FALSE(FileNames::exists(units + QStringLiteral(".timer")));
    EXPECT_EQ(FileNames::entryList(sandbox.path()).filter(QStringLiteral("caf")),
              QStringList{home.mid(sandbox.path().size() + 1)});
}
