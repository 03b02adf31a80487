#include "platform/DistributedNotification.h"
#include "platform/DBusSessionBus.h"
#include "platform/SessionBus.h"
#include "testsupport/DBusDaemon.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QSignalSpy>

class DistributedNotificationTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;

    void SetUp() override
    {
        identity->uid = 4123456;
        identity->home = sandbox.home();
    }

    void TearDown() override { SessionBus::setCurrent(nullptr); }

    // Sends the signal as another program of the session would.
    static int dbusSend(const QString &path, const QString &member)
    {
        return QProcess::execute(
            QStringLiteral("dbus-send"),
            {QStringLiteral("--session"), QStringLiteral("--type=signal"), path, member});
    }
};

TEST_F(DistributedNotificationTest, APostedNotificationReachesListenersOfItsNameOnly)
{
    DBusDaemon daemon;
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    // Listener and poster on connections of their own, as two processes would be.
    SessionBus::setCurrent(std::make_shared<DBusSessionBus>());
    DistributedNotification reload(QStringLiteral("VTShortcutKeysReload"));
    DistributedNotification other(QStringLiteral("VTSomethingElse"));
    ASSERT_TRUE(reload.isListening());
    QSignalSpy reloads(&reload, &DistributedNotification::received);
    QSignalSpy others(&other, &DistributedNotification::received);

    SessionBus::setCurrent(std::make_shared<DBusSessionBus>());
    ASSERT_TRUE(DistributedNotification::post(QStringLiteral("VTShortcutKeysReload")));

    ASSERT_TRUE(reloads.wait(5000));
    EXPECT_EQ(reloads.size(), 1);
    EXPECT_EQ(reloads.at(0).at(0).toString(), QStringLiteral("VTShortcutKeysReload"));
    EXPECT_EQ(others.size(), 0);
}

TEST_F(DistributedNotificationTest, AnotherProgramsSignalIsHeardOnlyOnThePathAndInterface)
{
    DBusDaemon daemon;
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    DistributedNotification reload(QStringLiteral("VTShortcutKeysReload"));
    ASSERT_TRUE(reload.isListening());
    QSignalSpy reloads(&reload, &DistributedNotification::received);

    ASSERT_EQ(dbusSend(QStringLiteral("/com/vantreel/Elsewhere"),
                       QStringLiteral("com.vantreel.DistributedNotification.VTShortcutKeysReload")),
              0);
    ASSERT_EQ(dbusSend(QStringLiteral("/com/vantreel/DistributedNotification"),
                       QStringLiteral("com.vantreel.Other.VTShortcutKeysReload")),
              0);
    ASSERT_EQ(dbusSend(QStringLiteral("/com/vantreel/DistributedNotification"),
                       QStringLiteral("com.vantreel.DistributedNotification.VTShortcutKeysReload")),
              0);

    ASSERT_TRUE(reloads.wait(5000));
    // Signals of one sender arrive in order: the two wrong ones came first and were dropped.
    EXPECT_EQ(reloads.size(), 1);
}

TEST_F(DistributedNotificationTest, WithoutABusOrASignalNameNothingIsPostedOrHeard)
{
    DistributedNotification reload(QStringLiteral("VTShortcutKeysReload"));
    EXPECT_FALSE(reload.isListening());
    EXPECT_FALSE(DistributedNotification::post(QStringLiteral("VTShortcutKeysReload")));

    DBusDaemon daemon;
    ASSERT_TRUE(daemon.isRunning()) << daemon.error().toStdString();
    EXPECT_FALSE(DistributedNotification::post(QStringLiteral("not a name")));
    EXPECT_FALSE(DistributedNotification::post(QString()));
    EXPECT_FALSE(DistributedNotification(QStringLiteral("not a name")).isListening());
}
