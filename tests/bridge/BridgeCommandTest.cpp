#include "BridgeTesting.h"

#include "platform/FileNames.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include <unistd.h>

namespace {

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
};

} // namespace

TEST_F(BridgeCommandTest, WrongUsageAndBadJobFilesGetLaunchctlsMessagesAndStatus1)
{
    const QString missing = sandbox.path() + "/nothing.plist";
    const QString invalid = sandbox.file("invalid.plist");
    TestFiles::write(invalid, "not a property list");
    const std::pair<QStringList, QString> cases[] = {
        {{}, "usage: kairo-launchctl"},
        {{"load"}, "usage: kairo-launchctl"},
        {{"start", "x"}, "usage: kairo-launchctl"},
        {{"list", "--bogus"}, "usage: kairo-launchctl"},
        {{"watch-mounts", "--bogus"}, "usage: kairo-launchctl"},
        {{"list", "--base-time", "yesterday"}, "invalid time \"yesterday\""},
        {{"list", "--base-time", "@x"}, "invalid time \"@x\""},
        {{"watch-mounts", "--interval", "0"}, "invalid interval \"0\""},
        {{"load", missing},
         "launchctl: Couldn't stat(\"" + missing + "\"): No such file or directory\n"},
        {{"load", missing}, "] nothing found to load\n"},
        {{"unload", missing}, "No such file or directory\n"},
        {{"load", invalid}, "launchctl: no plist was returned for: " + invalid},
    };
    for (const auto &[arguments, said] : cases) {
        const BridgeTesting::Run run = BridgeTesting::bridge(arguments);
        EXPECT_EQ(run.status, 1) << arguments.join(' ').toStdString();
        EXPECT_TRUE(run.err.contains(said)) << run.err.toStdString();
    }
    EXPECT_TRUE(systemctl.calls().isEmpty());
}

TEST_F(BridgeCommandTest, OnlyRootLoadsDaemons)
{
    const QString path = job("RootTask1", BridgeTesting::daily(), true);
    const QString systemUnits = sandbox.localRoot() + "/etc/systemd/system";
    BridgeTesting::Run run;
    if (geteuid() == 0) {
        // As nobody, through the real identity calls of the program; the sandbox is private
        // to its owner, so it is opened to everyone first.
        ASSERT_EQ(BridgeTesting::run("chmod", {"-R", "o+rX", sandbox.path()}).status, 0);
        run = BridgeTesting::run("setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups",
                                             BridgeTesting::bridgeBinary(), "load", path});
    } else {
        run = BridgeTesting::bridge({"load", path});
    }
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.contains(path + " is a daemon; only root can load it"))
        << run.err.toStdString();
    EXPECT_TRUE(systemctl.calls().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(systemUnits));

    if (geteuid() == 0) {
        run = BridgeTesting::bridge({"load", path});
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        EXPECT_EQ(systemctl.calls(),
                  (QStringList{
                      "show --timestamp=unix -p NeedDaemonReload RootTask1.service RootTask1.timer",
                      "daemon-reload", "enable --now --no-reload --no-block RootTask1.timer"}));
        EXPECT_TRUE(QFileInfo::exists(systemUnits + "/RootTask1.timer"));
    }
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
        sandbox.home(), BridgeTesting::writerJob(QStringLiteral("com.vantreel.X"), program, {},
                                                 BridgeTesting::daily()));
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
