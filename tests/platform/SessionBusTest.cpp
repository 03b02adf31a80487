#include "platform/SessionBus.h"
#include "platform/DBusSessionBus.h"
#include "platform/DistributedNotification.h"
#include "testsupport/DBusDaemon.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QThread>

#include <memory>

#include <csignal>
#include <unistd.h>

class SessionBusTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;

    void SetUp() override
    {
        // An ordinary user with no /run/user folder of its own.
        identity->uid = 4123456;
        identity->home = sandbox.home();
    }

    void TearDown() override { SessionBus::setCurrent(nullptr); }

    // Sends the signal as another program of the session would.
    static int dbusSend(const QString &path, const QString &member)
    {
        return QProcess::execute("dbus-send", {"--session", "--type=signal", path, member});
    }

    static QString address(const std::optional<DBusSessionBus::Target> &target)
    {
        return target ? target->address : "(none)";
    }

    // A file where a bus socket would be.
    QString socketAt(const QString &relative) const
    {
        const QString path = sandbox.file(relative);
        TestFiles::write(path, QByteArray());
        return path;
    }
};

// Addresses that would start a bus or name none are no bus; socket paths are escaped as
// address values.
TEST_F(SessionBusTest, AddressesThatWouldStartOrNameNoBusAreNoBus)
{
    const std::pair<const char *, const char *> usable[] = {
        {"", ""},
        {"disabled:", ""},
        {"autolaunch:", ""},
        {"autolaunch:;unix:path=/run/bus", "unix:path=/run/bus"},
        {"unix:abstract=/tmp/x,guid=1;tcp:host=localhost,port=1",
         "unix:abstract=/tmp/x,guid=1;tcp:host=localhost,port=1"},
    };
    for (const auto &[given, expected] : usable) {
        EXPECT_EQ(DBusSessionBus::usableAddress(given), QString(expected)) << given;
    }
    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", "autolaunch:");
    EXPECT_FALSE(DBusSessionBus::target());
    EXPECT_FALSE(DBusSessionBus().connection());
    EXPECT_EQ(DBusSessionBus::unixPathAddress("/tmp/a b,c;d=e%"),
              "unix:path=/tmp/a%20b%2cc%3bd%3de%25");
}

TEST_F(SessionBusTest, TheEnvironmentComesFirstThenTheRuntimeFolder)
{
    const QString runtime = sandbox.mkdir("run/user");
    sandbox.setEnv("XDG_RUNTIME_DIR", runtime);
    socketAt("run/user/bus");

    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/elsewhere");
    auto target = DBusSessionBus::target();
    EXPECT_EQ(address(target), "unix:path=/elsewhere");
    EXPECT_FALSE(target && target->connectAs);

    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    target = DBusSessionBus::target();
    EXPECT_EQ(address(target), "unix:path=" + runtime + "/bus");
    EXPECT_FALSE(target && target->connectAs);

    // No socket in the runtime folder, none in /run/user for this user: no bus.
    QFile::remove(runtime + "/bus");
    EXPECT_EQ(address(DBusSessionBus::target()), "(none)");
}

TEST_F(SessionBusTest, AsRootTheConsoleUsersBusIsReachedAsThatUser)
{
    identity->uid = 0;
    identity->console = "anna";
    identity->uids.insert("anna", 1000);
    // Root's own runtime folder names root's bus, not anna's.
    sandbox.setEnv("XDG_RUNTIME_DIR", sandbox.mkdir("run/root"));
    socketAt("run/root/bus");

    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/user/1000/bus");
    auto target = DBusSessionBus::target();
    ASSERT_TRUE(target);
    EXPECT_EQ(target->address, "unix:path=/run/user/1000/bus");
    EXPECT_EQ(target->connectAs, std::optional<uid_t>(1000));

    // Without the variable only /run/user/1000/bus would do; a name without an account
    // gives no bus at all.
    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    EXPECT_EQ(address(DBusSessionBus::target()),
              QFileInfo::exists("/run/user/1000/bus") ? "unix:path=/run/user/1000/bus" : "(none)");
    identity->console = "nobody-known";
    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/x");
    EXPECT_FALSE(DBusSessionBus::target());

    // With nobody at the console root's own bus is used.
    for (const std::optional<QString> &console :
         {std::optional<QString>(), std::optional<QString>("loginwindow")}) {
        identity->console = console;
        target = DBusSessionBus::target();
        ASSERT_TRUE(target);
        EXPECT_EQ(target->address, "unix:path=/x");
        EXPECT_FALSE(target->connectAs);
    }
}

TEST_F(SessionBusTest, ABrokenConnectionIsDroppedAndMadeAgain)
{
    DBusDaemon::Options options;
    options.socketPath = sandbox.path() + "/bus";
    const QString address = "unix:path=" + options.socketPath;
    DBusSessionBus bus;

    auto first = std::make_unique<DBusDaemon>(options);
    ASSERT_TRUE(first->isRunning()) << first->error().toStdString();
    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", address);
    const auto before = bus.connection();
    ASSERT_TRUE(before);

    // Once the connection notices that its bus is gone there is nothing to connect to.
    first->stop();
    std::optional<QDBusConnection> gone = bus.connection();
    for (int i = 0; i < 500 && gone; ++i) {
        QThread::msleep(10);
        gone = bus.connection();
    }
    EXPECT_FALSE(gone);
    first.reset();

    // A new bus at the same address is found by the next call.
    QFile::remove(options.socketPath);
    DBusDaemon second(options);
    ASSERT_TRUE(second.isRunning()) << second.error().toStdString();
    sandbox.setEnv("DBUS_SESSION_BUS_ADDRESS", address);
    const auto after = bus.connection();
    ASSERT_TRUE(after);
    EXPECT_TRUE(after->isConnected());
    EXPECT_NE(after->name(), before->name());
}

TEST_F(SessionBusTest, ABusThatDoesNotAnswerIsNoBusForAWhile)
{
    DBusDaemon daemon;
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    DBusSessionBus bus;
    ::kill(static_cast<pid_t>(daemon.processId()), SIGSTOP);
    const auto hung = bus.connection();
    ::kill(static_cast<pid_t>(daemon.processId()), SIGCONT);
    EXPECT_FALSE(hung);
    // The same bus is not asked again at once (each try costs the time limit)...
    EXPECT_FALSE(bus.connection());
    // ...but it is by a fresh start.
    EXPECT_TRUE(DBusSessionBus().connection());
}

TEST_F(SessionBusTest, AsRootTheConnectionIsMadeWithTheConsoleUsersId)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to switch the effective user id";
    }
    DBusDaemon::Options options;
    options.allowAnyUser = true;
    DBusDaemon daemon(options);
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    identity->uid = 0;
    identity->console = "anna";
    identity->uids.insert("anna", 65534);

    DBusSessionBus bus;
    const auto connection = bus.connection();
    ASSERT_TRUE(connection);
    EXPECT_EQ(geteuid(), 0u);
    const QDBusReply<uint> user = connection->interface()->serviceUid(connection->baseService());
    ASSERT_TRUE(user.isValid()) << user.error().message().toStdString();
    EXPECT_EQ(user.value(), 65534u);
}

// A posted notification reaches listeners of its name only; another program's signal is
// heard only on the notification's path and interface.
TEST_F(SessionBusTest, APostedNotificationReachesListenersOfItsNameOnly)
{
    DBusDaemon daemon;
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    // Listener and poster on connections of their own, as two processes would be.
    SessionBus::setCurrent(std::make_shared<DBusSessionBus>());
    DistributedNotification reload("VTShortcutKeysReload");
    DistributedNotification other("VTSomethingElse");
    ASSERT_TRUE(reload.isListening());
    QSignalSpy reloads(&reload, &DistributedNotification::received);
    QSignalSpy others(&other, &DistributedNotification::received);

    SessionBus::setCurrent(std::make_shared<DBusSessionBus>());
    ASSERT_TRUE(DistributedNotification::post("VTShortcutKeysReload"));
    ASSERT_TRUE(reloads.wait(5000));
    EXPECT_EQ(reloads.at(0).at(0).toString(), "VTShortcutKeysReload");

    const QString path = "/com/vantreel/DistributedNotification";
    const QString member = "com.vantreel.DistributedNotification.VTShortcutKeysReload";
    ASSERT_EQ(dbusSend("/com/vantreel/Elsewhere", member), 0);
    ASSERT_EQ(dbusSend(path, "com.vantreel.Other.VTShortcutKeysReload"), 0);
    ASSERT_EQ(dbusSend(path, member), 0);
    ASSERT_TRUE(reloads.wait(5000));
    // Signals of one sender arrive in order: the two wrong ones came first and were dropped.
    EXPECT_EQ(reloads.size(), 2);
    EXPECT_EQ(others.size(), 0);
}
