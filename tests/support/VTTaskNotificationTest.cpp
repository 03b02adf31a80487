#include "support/VTTaskNotification.h"
#include "platform/PrintQt.h"
#include "platform/SessionBus.h"
#include "support/VTLog.h"
#include "testsupport/DBusDaemon.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/MockClock.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

#include <chrono>
#include <csignal>
#include <functional>

namespace {

using namespace std::chrono_literals;

// A client application's callback object, served by the NotificationClient program.
class CallbackClient
{
public:
    CallbackClient(const QString &mode, const QString &which, const QString &record)
        : m_which(which), m_record(record)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(NOTIFICATION_CLIENT), {mode, which, record});
        QDeadlineTimer deadline(10000);
        while (!m_process.canReadLine() && !deadline.hasExpired() &&
               m_process.state() != QProcess::NotRunning) {
            m_process.waitForReadyRead(100);
        }
        m_ready = m_process.readLine().trimmed() == "ready";
    }

    ~CallbackClient()
    {
        resume();
        m_process.kill();
        m_process.waitForFinished(5000);
    }

    bool ready() const { return m_ready; }
    QString name() const
    {
        return m_which == QLatin1String("tessel") ? "VTTesselClientCallback"
                                                  : "VTQuillClientCallback";
    }

    // Every message the object received, once a marker sent after them on the connection
    // the notifications use has arrived too (one sender's messages arrive in order).
    QStringList received()
    {
        const QString token = QStringLiteral("mark-%1").arg(++m_marks);
        const std::optional<QDBusConnection> bus = SessionBus::current().connection();
        if (!bus) {
            return {"(no bus)"};
        }
        bus->send(QDBusMessage::createMethodCall("com.vantreel." + name(), '/' + name(),
                                                 "com.vantreel.Test", "mark")
                  << token);
        const QString markLine = "mark|s|noreply|" + token;
        QDeadlineTimer deadline(10000);
        while (!deadline.hasExpired()) {
            QStringList lines = TestFiles::lines(m_record);
            if (lines.contains(markLine)) {
                QStringList before;
                for (const QString &line : lines) {
                    if (!line.startsWith(QLatin1String("mark|"))) {
                        before.append(line);
                    }
                }
                return before;
            }
            QThread::msleep(10);
        }
        return {"(marker never arrived)"};
    }

    void pause() { ::kill(static_cast<pid_t>(m_process.processId()), SIGSTOP); }
    void resume() { ::kill(static_cast<pid_t>(m_process.processId()), SIGCONT); }

private:
    QString m_which;
    QString m_record;
    QProcess m_process;
    bool m_ready = false;
    int m_marks = 0;
};

const QString kProcess = "VTTaskNotificationTest";

} // namespace

class VTTaskNotificationTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    MockClock::Scoped clock;

    void SetUp() override
    {
        // No /run/user folder belongs to this user.
        identity->uid = 4123456;
        identity->home = sandbox.home();
        VTLog::createNewLog("Test");
    }

    QString record(const QString &name) const { return sandbox.file(name + ".calls"); }

    int pauses()
    {
        int n = 0;
        for (const auto sleep : clock->sleeps()) {
            EXPECT_EQ(sleep, 15000us);
            ++n;
        }
        return n;
    }
};

// A client gets the rich forms when it has them, else the plain ones, one way; methods of
// another interface or signature do not count. Every call it could get pauses.
TEST_F(VTTaskNotificationTest, AClientGetsTheFormsItHas)
{
    DBusDaemon bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    const std::pair<const char *, QStringList> cases[] = {
        // Without incrementRemoteProgress that call sends nothing.
        {"plain",
         {"postErrorString|s|noreply|Kairo Planner: boom",
          "postError|v|noreply|variant:QString:failure", "postFinishedTask||noreply",
          "postDisconnect||noreply"}},
        {"rich",
         {"postErrorStringUserInfo|sa{sv}|noreply|Kairo Planner: boom|{appName=" + kProcess + "}",
          "postErrorForApp|vs|noreply|variant:QString:failure|" + kProcess,
          "incrementRemoteProgress||noreply", "postFinishedTask||noreply",
          "postDisconnect||noreply"}},
        {"none", {}},
    };
    int expectedPauses = 0;
    for (const auto &[mode, expected] : cases) {
        CallbackClient client(QLatin1String(mode), "quill", record(mode));
        ASSERT_TRUE(client.ready());
        TestFiles::CaptureStderr console;
        VTTaskNotification::postTaskErrorString("Kairo Planner: boom");
        VTTaskNotification::postTaskError("failure");
        VTTaskNotification::postIncrementProgress();
        VTTaskNotification::postTaskFinished();
        VTTaskNotification::postDisconnect();
        EXPECT_EQ(client.received(), expected) << mode;
        EXPECT_EQ(pauses(), expectedPauses += 5) << mode;
        EXPECT_EQ(console.finish(), QString());
    }
    EXPECT_EQ(TestFiles::logMessages(), QStringList());
}

// A client that does not answer, and an error value the bus cannot carry, are logged and
// never raised; nothing was sent, so there was nothing to wait for.
TEST_F(VTTaskNotificationTest, FailuresAreLoggedNeverRaised)
{
    DBusDaemon bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    CallbackClient client("rich", "quill", record("quill"));
    ASSERT_TRUE(client.ready());
    const std::pair<std::function<void()>, QString> cases[] = {
        {[] { VTTaskNotification::postTaskError(QVariant()); },
         "Exception in VTTaskNotification::postTaskError. NSPortSendException - Unable to send "
         "postErrorForApp to com.vantreel.VTQuillClientCallback"},
        {[&] {
             client.pause();
             VTTaskNotification::postTaskErrorString("Kairo Planner: boom");
             client.resume();
         },
         "Exception in VTTaskNotification::postTaskErrorString. NSPortTimeoutException - Unable "
         "to introspect com.vantreel.VTQuillClientCallback: "},
    };
    for (const auto &[post, expected] : cases) {
        VTLog::createNewLog("Test");
        TestFiles::CaptureStderr console;
        post();
        const QString printed = console.finish();
        const QStringList messages = TestFiles::logMessages();
        ASSERT_EQ(messages.size(), 1);
        EXPECT_TRUE(messages[0].startsWith(expected)) << messages[0].toStdString();
        EXPECT_TRUE(printed.contains(expected)) << printed.toStdString();
    }
    EXPECT_EQ(pauses(), 0);
    EXPECT_EQ(client.received(), QStringList());
}

// The first name wins and the second is found.
TEST_F(VTTaskNotificationTest, TheFirstNameWinsAndTheSecondIsFound)
{
    DBusDaemon bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    // Nobody listening: nothing is sent, nothing waited for.
    VTTaskNotification::postTaskFinished();
    EXPECT_EQ(pauses(), 0);
    CallbackClient tessel("plain", "tessel", record("tessel"));
    ASSERT_TRUE(tessel.ready());
    VTTaskNotification::postTaskErrorString("Kairo Planner: No tasks found in application");
    EXPECT_EQ(
        tessel.received(),
        QStringList({"postErrorString|s|noreply|Kairo Planner: No tasks found in application"}));
    CallbackClient quill("plain", "quill", record("first"));
    ASSERT_TRUE(quill.ready());
    VTTaskNotification::postTaskFinished();
    EXPECT_EQ(quill.received(), QStringList({"postFinishedTask||noreply"}));
    EXPECT_EQ(tessel.received().size(), 1);
}
