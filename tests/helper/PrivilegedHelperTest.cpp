#include "helper/HelperProtocol.h"
#include "support/PrivilegedHelperClient.h"

#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString kHelper =
    QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app/Contents/MacOS/kairo-helper");
using Kind = PrivilegedHelperClient::Reply::Kind;

std::string joined(const QStringList &lines)
{
    return lines.join(QLatin1Char('|')).toStdString();
}

bool existsRaw(const QByteArray &path)
{
    struct stat info
    {};
    return ::lstat(path.constData(), &info) == 0;
}

// The helper started as the application starts it, through a stand-in for pkexec that
// records its arguments and passes the test-only flag.
class PrivilegedHelperTest : public ::testing::Test
{
protected:
    QString writeElevate(const QString &before = QString(),
                         const QString &flag = QStringLiteral("--allow-unprivileged"))
    {
        const QString dir = m_sandbox.path();
        return TestFiles::writeScript(
            m_sandbox.file(QStringLiteral("bin/elevate")),
            QStringLiteral(
                "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done >> '%1/elevate.args'\n"
                "%2\n"
                "exec \"$@\" %3 2>> '%1/helper.log'")
                .arg(dir, before, flag));
    }

    PrivilegedHelperClient::Start startHelper(PrivilegedHelperClient &client,
                                              const QString &elevate = QString())
    {
        return client.start(elevate.isEmpty() ? writeElevate() : elevate, {kHelper}, nullptr,
                            10000ms);
    }

    QString helperLog() const
    {
        return QString::fromUtf8(TestFiles::read(m_sandbox.path() + QStringLiteral("/helper.log")));
    }

    QByteArray path(const char *relative) const
    {
        return QFile::encodeName(m_sandbox.path()) + '/' + relative;
    }

    Sandbox m_sandbox;
};

TEST(HelperProtocolTest, EveryByteSurvivesAFieldAndFieldsSurviveALine)
{
    std::string all;
    for (int c = 0; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    const std::string encoded = HelperProtocol::encodeField(all);
    EXPECT_EQ(encoded.find_first_of(std::string(" \n\r\t\0", 5)), std::string::npos);
    EXPECT_EQ(HelperProtocol::decodeField(encoded), all);

    const std::vector<std::string> fields{"run",  "/bin/mv",     "", "a b",
                                          "100%", "line\nbreak", "", "\xff\xfe"};
    const std::string line = HelperProtocol::line(fields);
    ASSERT_EQ(line.back(), '\n');
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(HelperProtocol::fields(line.substr(0, line.size() - 1)), fields);
}

TEST(HelperProtocolTest, MalformedFieldsAreRejected)
{
    for (const char *bad : {"%", "%4", "%zz", "a b", "caf\xc3\xa9", "tab\there", "50%"}) {
        EXPECT_FALSE(HelperProtocol::decodeField(bad).has_value()) << bad;
    }
    EXPECT_FALSE(HelperProtocol::fields("run /bin/mv %g0").has_value());
    EXPECT_EQ(HelperProtocol::decodeField("%41%2f%2F"), std::string("A//"));
}

TEST_F(PrivilegedHelperTest, RunsAllowedToolsWithTheirArgumentsAndReportsTheirStatus)
{
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready)
        << helperLog().toStdString();
    EXPECT_TRUE(client.isRunning());
    EXPECT_EQ(joined(TestFiles::lines(m_sandbox.path() + QStringLiteral("/elevate.args"))),
              "[" + kHelper.toStdString() + "]");

    // Spaces, a newline, percent signs and bytes that are not UTF-8, as one argument each.
    const QByteArray odd = path("odd name\nwith %20 and \xff\xfe");
    auto reply = client.run("/bin/mkdir", {"-p", odd + "/inner"});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_EQ(reply.status, 0);
    EXPECT_TRUE(existsRaw(odd + "/inner"));

    TestFiles::write(m_sandbox.file(QStringLiteral("from.txt")), "moved");
    reply = client.run("/bin/mv", {"-f", path("from.txt"), odd + "/to.txt"});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_EQ(reply.status, 0);
    EXPECT_FALSE(existsRaw(path("from.txt")));
    EXPECT_TRUE(existsRaw(odd + "/to.txt"));

    // A tool that fails: its own status comes back.
    reply = client.run("/bin/mkdir", {odd});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_EQ(reply.status, 1);
    reply = client.run("/bin/rm", {path("missing")});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_NE(reply.status, 0);

    // An empty argument stays an argument: mv sees three operands and fails.
    TestFiles::write(m_sandbox.file(QStringLiteral("stays.txt")), "x");
    reply = client.run("/bin/mv", {path("stays.txt"), "", path("elsewhere")});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_NE(reply.status, 0);
    EXPECT_TRUE(existsRaw(path("stays.txt")));

    client.end();
    EXPECT_FALSE(client.isRunning());
    EXPECT_EQ(client.exitStatus(), 0);
}

TEST_F(PrivilegedHelperTest, SpawnedToolsRunWithoutWaitingAndAreReaped)
{
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
    const qint64 helperPid = client.processId();
    for (int i = 0; i < 5; ++i) {
        const auto reply =
            client.spawn("/bin/mkdir", {"-p", path("spawned/") + QByteArray::number(i)});
        EXPECT_EQ(reply.kind, Kind::Started);
    }
    EXPECT_TRUE(Poll::until([&] {
        return QDir(m_sandbox.path() + QStringLiteral("/spawned"))
                   .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
                   .size() == 5;
    }));
    // No child of the helper is left behind, not even a zombie.
    const QString children = QStringLiteral("/proc/%1/task/%1/children").arg(helperPid);
    EXPECT_TRUE(Poll::until([&] { return TestFiles::read(children).trimmed().isEmpty(); }))
        << TestFiles::read(children).toStdString();
    EXPECT_TRUE(client.isRunning());
}

TEST_F(PrivilegedHelperTest, RefusesEveryOtherProgramAndLogsIt)
{
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
    TestFiles::write(m_sandbox.file(QStringLiteral("victim")), "x");
    const QByteArray link = path("bin/mv");
    ASSERT_EQ(::symlink("/bin/mv", link.constData()), 0);

    const QByteArray victim = path("victim");
    const QByteArray marker = path("marker");
    const QList<QPair<QByteArray, QByteArrayList>> refused = {
        {"/bin/sh", {"-c", "touch " + marker}},
        {"/usr/bin/touch", {marker}},
        {"bin/mv", {"-f", victim, marker}},
        {"mv", {"-f", victim, marker}},
        {"/bin/../bin/mv", {"-f", victim, marker}},
        {"/bin//mv", {"-f", victim, marker}},
        {"/bin/mv ", {"-f", victim, marker}},
        {link, {"-f", victim, marker}},
        {"", {}},
    };
    for (const auto &[tool, arguments] : refused) {
        const auto reply = client.run(tool, arguments);
        EXPECT_EQ(reply.kind, Kind::Refused) << tool.toStdString();
        EXPECT_EQ(reply.reason, "not an allowed program") << tool.toStdString();
        EXPECT_EQ(client.spawn(tool, arguments).kind, Kind::Refused) << tool.toStdString();
    }
    // A NUL byte cannot reach a program's arguments.
    EXPECT_EQ(client.run("/bin/mv", {"-f", victim + QByteArray(1, '\0') + "x", marker}).kind,
              Kind::Refused);
    EXPECT_TRUE(existsRaw(victim));
    EXPECT_FALSE(existsRaw(marker));
    EXPECT_TRUE(client.isRunning());

    const QString log = helperLog();
    EXPECT_TRUE(log.contains(QStringLiteral("kairo-helper[")));
    EXPECT_TRUE(
        log.contains(QStringLiteral("Refused request (not an allowed program): run /bin/sh -c")))
        << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("/bin/../bin/mv")));
    EXPECT_TRUE(log.contains(QString::fromUtf8(link)));
    EXPECT_EQ(log.count(QStringLiteral("Refused request")), 2 * refused.size() + 1);

    // Still serving after all that.
    EXPECT_EQ(client.run("/bin/rm", {"-f", victim}).kind, Kind::Status);
    EXPECT_FALSE(existsRaw(victim));
}

TEST_F(PrivilegedHelperTest, RawRequestsOutsideTheProtocolAreRefused)
{
    QProcess helper;
    helper.setProcessChannelMode(QProcess::SeparateChannels);
    helper.start(kHelper, {QStringLiteral("--allow-unprivileged")});
    ASSERT_TRUE(helper.waitForStarted());
    const QByteArray tooLong(HelperProtocol::kMaxLine + 10, 'a');
    helper.write("chmod 777 /\n");
    helper.write("run /bin/mv%20-f\n");
    helper.write("run /bin/mkdir bad%zz\n");
    helper.write("spawn\n");
    helper.write("run " + tooLong + "\n");
    helper.write("run /bin/mkdir -p " +
                 QUrl::toPercentEncoding(m_sandbox.path() + QStringLiteral("/after")) + "\n");
    helper.closeWriteChannel();
    ASSERT_TRUE(helper.waitForFinished(10000));
    EXPECT_EQ(helper.exitCode(), 0);
    EXPECT_EQ(helper.readAllStandardOutput().toStdString(), "ready\n"
                                                            "refused unknown%20request\n"
                                                            "refused not%20an%20allowed%20program\n"
                                                            "refused malformed%20request\n"
                                                            "refused no%20program\n"
                                                            "refused request%20too%20long\n"
                                                            "status 0\n");
    EXPECT_TRUE(QFileInfo::exists(m_sandbox.path() + QStringLiteral("/after")));
    EXPECT_EQ(
        QString::fromUtf8(helper.readAllStandardError()).count(QStringLiteral("Refused request")),
        5);
}

TEST_F(PrivilegedHelperTest, TheLaunchctlBridgeRunsOnlyWhenNamedAndSeesNoTerminal)
{
    // A stand-in bridge that reports how it was started.
    const QString report = m_sandbox.path() + QStringLiteral("/bridge.report");
    const QString bridge = TestFiles::writeScript(
        m_sandbox.file(QStringLiteral("tools/launchctl")),
        QStringLiteral("i=$(readlink /proc/$$/fd/0) o=$(readlink /proc/$$/fd/1) "
                       "e=$(readlink /proc/$$/fd/2)\n"
                       "{ for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done\n"
                       "  printf '%s\\n' \"$i\" \"$o\" \"$e\"; pwd; } > '%1'\n"
                       "exit 3")
            .arg(report));
    {
        PrivilegedHelperClient client;
        ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
        EXPECT_EQ(client.run(QFile::encodeName(bridge), {"load"}).kind, Kind::Refused);
    }
    EXPECT_FALSE(QFileInfo::exists(report));

    m_sandbox.setEnv("VT_LAUNCHCTL", bridge);
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
    const auto reply =
        client.run(QFile::encodeName(bridge), {"load", "/Library/Launch Daemons/x.plist"});
    EXPECT_EQ(reply.kind, Kind::Status);
    EXPECT_EQ(reply.status, 3);
    EXPECT_EQ(joined(TestFiles::lines(report)),
              "[load]|[/Library/Launch Daemons/x.plist]|/dev/null|/dev/null|/dev/null|/");
}

TEST_F(PrivilegedHelperTest, ARefusedElevationOrAMissingProgramNeverGetsReady)
{
    PrivilegedHelperClient cancelled;
    EXPECT_EQ(startHelper(cancelled, writeElevate(QStringLiteral("exit 126"))),
              PrivilegedHelperClient::Start::Refused);
    EXPECT_FALSE(cancelled.isRunning());
    EXPECT_EQ(cancelled.exitStatus(), 126);

    // Something that starts but never says it is ready is given up after the limit.
    PrivilegedHelperClient silent;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(
        silent.start(writeElevate(QStringLiteral("exec sleep 30")), {kHelper}, nullptr, 300ms),
        PrivilegedHelperClient::Start::Refused);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_FALSE(silent.isRunning());

    PrivilegedHelperClient missing;
    int error = 0;
    EXPECT_EQ(missing.start(m_sandbox.path() + QStringLiteral("/no-such-program"), {kHelper},
                            nullptr, 1000ms, &error),
              PrivilegedHelperClient::Start::LaunchFailed);
    EXPECT_EQ(error, ENOENT);
    EXPECT_EQ(missing.run("/bin/mkdir", {path("x")}).kind, Kind::NotSent);
}

TEST_F(PrivilegedHelperTest, TheSecretIsTheFirstLineOfInput)
{
    const QString check = QStringLiteral("IFS= read -r pw || exit 1\n"
                                         "[ \"$pw\" = 'it is %20 me' ] || exit 1");
    const QByteArray right = "it is %20 me\n";
    const QByteArray wrong = "it is not me\n";
    PrivilegedHelperClient refused;
    EXPECT_EQ(refused.start(writeElevate(check), {kHelper}, &wrong, 5000ms),
              PrivilegedHelperClient::Start::Refused);
    PrivilegedHelperClient accepted;
    ASSERT_EQ(accepted.start(writeElevate(check), {kHelper}, &right, 5000ms),
              PrivilegedHelperClient::Start::Ready);
    // The line was consumed by the elevation program, not taken for a request.
    EXPECT_EQ(accepted.run("/bin/mkdir", {path("after-secret")}).kind, Kind::Status);
    EXPECT_TRUE(existsRaw(path("after-secret")));
    EXPECT_FALSE(helperLog().contains(QStringLiteral("Refused")));
}

TEST_F(PrivilegedHelperTest, WithoutRootOrTheFlagTheHelperRefusesToServe)
{
    if (::getuid() == 0) {
        GTEST_SKIP() << "runs as root: the helper serves whatever its parent says";
    }
    PrivilegedHelperClient plain;
    EXPECT_EQ(plain.start(writeElevate(QString(), QString()), {kHelper}, nullptr, 5000ms),
              PrivilegedHelperClient::Start::Refused);
    EXPECT_EQ(plain.exitStatus(), 1);
    // The flag means nothing to a helper started by pkexec.
    PrivilegedHelperClient underPkexec;
    EXPECT_EQ(underPkexec.start(writeElevate(QStringLiteral("export PKEXEC_UID=1000")), {kHelper},
                                nullptr, 5000ms),
              PrivilegedHelperClient::Start::Refused);
    EXPECT_TRUE(helperLog().contains(QStringLiteral("must run as root")));
}

TEST_F(PrivilegedHelperTest, InstallPutsTheHelperAndAPolicyNamingItInPlace)
{
    const QString prefix = m_sandbox.mkdir(QStringLiteral("prefix"));
    QProcess install;
    install.start(QStringLiteral(KAIRO_CMAKE_COMMAND),
                  {QStringLiteral("--install"), QStringLiteral(KAIRO_BINARY_DIR),
                   QStringLiteral("--component"), QStringLiteral("helper"),
                   QStringLiteral("--prefix"), prefix});
    ASSERT_TRUE(install.waitForFinished(60000));
    ASSERT_EQ(install.exitCode(), 0) << install.readAllStandardError().toStdString();

    QFile policy(prefix +
                 QStringLiteral("/share/polkit-1/actions/com.vantreel.KairoPlanner.policy"));
    ASSERT_TRUE(policy.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&policy);
    QString action, execPath, allowActive;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        if (xml.name() == QLatin1String("action")) {
            action = xml.attributes().value(QLatin1String("id")).toString();
        } else if (xml.name() == QLatin1String("allow_active")) {
            allowActive = xml.readElementText();
        } else if (xml.name() == QLatin1String("annotate") &&
                   xml.attributes().value(QLatin1String("key")) ==
                       QLatin1String("org.freedesktop.policykit.exec.path")) {
            execPath = xml.readElementText();
        }
    }
    EXPECT_FALSE(xml.hasError()) << xml.errorString().toStdString();
    EXPECT_EQ(action, QStringLiteral("com.vantreel.KairoPlanner.helper"));
    EXPECT_EQ(allowActive, QStringLiteral("auth_admin_keep"));
    EXPECT_TRUE(execPath.startsWith(prefix + QLatin1Char('/'))) << execPath.toStdString();
    EXPECT_TRUE(
        execPath.endsWith(QStringLiteral("/Kairo Planner.app/Contents/MacOS/kairo-helper")));
    EXPECT_TRUE(QFileInfo(execPath).isExecutable()) << execPath.toStdString();
}

} // namespace
