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

#include <gtest/gtest.h>

#include <chrono>

#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString kHelper =
    QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app/Contents/MacOS/kairo-helper");
const QString kBridge =
    QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app/Contents/MacOS/kairo-launchctl");
using Kind = PrivilegedHelperClient::Reply::Kind;

mode_t modeOf(const QByteArray &path)
{
    struct stat info
    {};
    return ::stat(path.constData(), &info) == 0 ? info.st_mode & 07777 : 0;
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
                         const QString &flag = "--allow-unprivileged")
    {
        const QString dir = m_sandbox.path();
        return TestFiles::writeScript(
            m_sandbox.file("bin/elevate"),
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
        return QString::fromUtf8(TestFiles::read(m_sandbox.path() + "/helper.log"));
    }

    QByteArray path(const char *relative) const
    {
        return QFile::encodeName(m_sandbox.path()) + '/' + relative;
    }

    // The system's job folder of the sandbox's local root, and a job file in it.
    QByteArray daemons() const
    {
        return QFile::encodeName(m_sandbox.localRoot()) + "/Library/LaunchDaemons";
    }
    QByteArray job(int n = 1) const { return daemons() + '/' + jobName(n); }
    static QByteArray jobName(int n = 1)
    {
        return "com.vantreel.RootScheduledTask" + QByteArray::number(n) + ".plist";
    }
    static QByteArray jobXml(int n = 1)
    {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
               "<key>Label</key><string>com.vantreel.RootScheduledTask" +
               QByteArray::number(n) +
               "</string><key>Program</key><string>/bin/true</string>"
               "<key>StartInterval</key><integer>60</integer></dict></plist>\n";
    }
    // A private folder of the test's user, as the application stages in.
    QByteArray stage() const
    {
        const QByteArray folder = path("stage");
        ::mkdir(folder.constData(), 0700);
        return folder;
    }
    QByteArray trash() const
    {
        const QString files = m_sandbox.home() + "/.local/share/Trash/files";
        QDir().mkpath(files);
        return QFile::encodeName(files);
    }
    // A systemctl stand-in for the bridge that records its calls, environment and process;
    // it hangs while the file "hang" exists.
    void useSystemctl()
    {
        const QString dir = m_sandbox.mkdir("systemctl");
        m_sandbox.setEnv("VT_SYSTEMCTL",
                         TestFiles::writeScript(dir + "/systemctl",
                                                QStringLiteral("echo \"$*\" >> '%1/calls'\n"
                                                               "env > '%1/env'\n"
                                                               "echo $$ >> '%1/pids'\n"
                                                               "[ -e '%1/hang' ] && exec sleep 60\n"
                                                               "exit 0")
                                                    .arg(dir)));
    }
    QString systemctl(const char *name) const
    {
        return m_sandbox.path() + QStringLiteral("/systemctl/") + QLatin1String(name);
    }

    Sandbox m_sandbox;
};

TEST(HelperProtocolTest, EveryByteSurvivesAFieldAndMalformedFieldsAreRejected)
{
    std::string all;
    for (int c = 0; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    const std::string encoded = HelperProtocol::encodeField(all);
    EXPECT_EQ(encoded.find_first_of(std::string(" \n\r\t\0", 5)), std::string::npos);
    EXPECT_EQ(HelperProtocol::decodeField(encoded), all);
    EXPECT_EQ(HelperProtocol::decodeField("%41%2f%2F"), std::string("A//"));

    const std::vector<std::string> fields{"run", "/bin/mv", "", "a b", "line\nbreak", "\xff\xfe"};
    const std::string line = HelperProtocol::line(fields);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(HelperProtocol::fields(line.substr(0, line.size() - 1)), fields);

    for (const char *bad : {"%", "%4", "%zz", "a b", "caf\xc3\xa9", "tab\there", "50%"}) {
        EXPECT_FALSE(HelperProtocol::decodeField(bad).has_value()) << bad;
    }
    EXPECT_FALSE(HelperProtocol::fields("run /bin/mv %g0").has_value());
}

TEST_F(PrivilegedHelperTest, TheSystemsOwnRequestsAreServed)
{
    useSystemctl();
    m_sandbox.setEnv("KAIRO_CALLERS_OWN", "set by the caller");
    m_sandbox.setEnv("LD_LIBRARY_PATH", m_sandbox.path());
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready)
        << helperLog().toStdString();
    EXPECT_TRUE(client.isRunning());
    EXPECT_EQ(TestFiles::lines(m_sandbox.path() + "/elevate.args"),
              QStringList{"[" + kHelper + "]"});
    const auto ran = [&](const QByteArray &tool, const QByteArrayList &arguments) {
        const auto reply = client.run(tool, arguments);
        return reply.kind == Kind::Status ? reply.status : -1000;
    };

    // A staged job moved in, owned by root and reloaded, as the writer does.
    TestFiles::write(QFile::decodeName(stage() + '/' + jobName()), jobXml());
    EXPECT_EQ(ran("/bin/mkdir", {"-p", daemons()}), 0);
    EXPECT_EQ(ran("/bin/mv", {"-f", stage() + '/' + jobName(), job()}), 0);
    EXPECT_EQ(TestFiles::read(QFile::decodeName(job())), jobXml());
    EXPECT_EQ(ran("/bin/chmod", {"644", job()}), 0);
    EXPECT_EQ(modeOf(job()), 0644u);
    const int chown = ran("/bin/chown", {"root:root", job()});
    EXPECT_EQ(chown == 0, ::geteuid() == 0) << chown;
    // Only root's bridge reaches systemd's system manager.
    const int daemon = ::geteuid() == 0 ? 0 : 1;
    EXPECT_EQ(ran(QFile::encodeName(kBridge), {"unload", job()}), daemon);
    EXPECT_EQ(ran(QFile::encodeName(kBridge), {"load", job()}), daemon)
        << helperLog().toStdString();
    EXPECT_EQ(TestFiles::read(systemctl("calls")).contains("daemon-reload"), daemon == 0);
    // Tools get a clean environment: none of the caller's variables.
    if (daemon == 0) {
        const QStringList environment = TestFiles::lines(systemctl("env"));
        EXPECT_TRUE(environment.contains("PATH=/usr/sbin:/usr/bin:/sbin:/bin"));
        EXPECT_TRUE(environment.contains("VT_LOCAL_ROOT=" + m_sandbox.localRoot()));
        for (const QString &variable : environment) {
            EXPECT_FALSE(variable.startsWith("KAIRO_CALLERS_OWN=") ||
                         variable.startsWith("LD_LIBRARY_PATH=") || variable.startsWith("HOME="))
                << variable.toStdString();
        }
    }

    // Deleted to the user's trash under the timed name; it is theirs. A missing file is no
    // failure of rm -f.
    const QByteArray timed = trash() + "/com.vantreel.RootScheduledTask1_20110304120005.plist";
    EXPECT_EQ(ran("/bin/mv", {"-f", job(), timed}), 0);
    struct stat trashed
    {};
    ASSERT_EQ(::lstat(timed.constData(), &trashed), 0);
    EXPECT_EQ(trashed.st_uid, ::getuid());
    EXPECT_EQ(ran("/bin/rm", {"-Rdf", job(3)}), 0);

    client.end();
    EXPECT_FALSE(client.isRunning());
    EXPECT_EQ(client.exitStatus(), 0);
    EXPECT_FALSE(helperLog().contains("Refused")) << helperLog().toStdString();
}

TEST_F(PrivilegedHelperTest, SpawnedToolsAreReapedAndNothingOutlivesTheHelper)
{
    useSystemctl();
    QDir().mkpath(QFile::decodeName(daemons()));
    for (int n = 1; n <= 3; ++n) {
        TestFiles::write(QFile::decodeName(job(n)), jobXml(n));
    }
    qint64 helperPid = 0;
    {
        PrivilegedHelperClient client;
        ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
        helperPid = client.processId();
        for (int n = 1; n <= 3; ++n) {
            EXPECT_EQ(client.spawn(QFile::encodeName(kBridge), {"load", job(n)}).kind,
                      Kind::Started);
        }
        // No child of the helper is left behind, not even a zombie.
        const QString children = QStringLiteral("/proc/%1/task/%1/children").arg(helperPid);
        EXPECT_TRUE(Poll::until([&] { return TestFiles::read(children).trimmed().isEmpty(); }))
            << TestFiles::read(children).toStdString();
        EXPECT_TRUE(client.isRunning());

        if (::geteuid() != 0) {
            return; // only root's bridge goes on to systemctl
        }
        // A bridge still running when the helper ends goes with it, and what it started.
        TestFiles::write(systemctl("hang"), "");
        QFile::remove(systemctl("pids"));
        EXPECT_EQ(client.spawn(QFile::encodeName(kBridge), {"unload", job(1)}).kind, Kind::Started);
        // The shell makes the file before it writes its number: wait for the number.
        ASSERT_TRUE(Poll::until([&] { return !TestFiles::lines(systemctl("pids")).isEmpty(); }));
    }
    const QStringList pids = TestFiles::lines(systemctl("pids"));
    ASSERT_FALSE(pids.isEmpty());
    // Gone, or a zombie waiting for whoever inherited it.
    const auto alive = [](const QString &pid) {
        const QByteArray stat = TestFiles::read(QStringLiteral("/proc/%1/stat").arg(pid));
        const qsizetype end = stat.lastIndexOf(')');
        return end > 0 && stat.size() > end + 2 && stat.at(end + 2) != 'Z';
    };
    EXPECT_TRUE(Poll::until([&] {
        return !alive(QString::number(helperPid)) && !alive(pids.first());
    })) << pids.first().toStdString();
}

TEST_F(PrivilegedHelperTest, EveryOtherRequestIsRefusedAndLogged)
{
    PrivilegedHelperClient client;
    ASSERT_EQ(startHelper(client), PrivilegedHelperClient::Start::Ready);
    QDir().mkpath(QFile::decodeName(daemons()));
    TestFiles::write(m_sandbox.file("victim"), "x");
    ::chmod(path("victim").constData(), 0600);
    const QByteArray link = path("bin/mv");
    ASSERT_EQ(::symlink("/bin/mv", link.constData()), 0);
    // A folder of the home that merely has the system folder's name.
    const QByteArray fake = QFile::encodeName(m_sandbox.home()) + "/Library/LaunchDaemons";
    QDir().mkpath(QFile::decodeName(fake));
    TestFiles::write(QFile::decodeName(fake + '/' + jobName()), jobXml());
    // Links planted where a plain file is expected, a staged file outside a private folder,
    // and a staged file that is a link.
    ASSERT_EQ(::symlink(path("victim").constData(), job(4).constData()), 0);
    TestFiles::write(QFile::decodeName(path("open/") + jobName()), jobXml());
    ASSERT_EQ(::symlink(path("victim").constData(), (stage() + '/' + jobName(5)).constData()), 0);
    TestFiles::write(QFile::decodeName(job(6)), jobXml(6));
    TestFiles::write(QFile::decodeName(trash() + '/' + jobName(6)), "already there");
    const QString standIn =
        TestFiles::writeScript(m_sandbox.file("tools/launchctl"),
                               QStringLiteral("touch '%1/marker'").arg(m_sandbox.path()));
    m_sandbox.setEnv("VT_LAUNCHCTL", standIn);

    const QByteArray victim = path("victim");
    const QByteArray marker = path("marker");
    const QByteArray bridge = QFile::encodeName(kBridge);
    const char *other = "not a request of the system";
    const char *unstaged = "not a job file staged in the requester's private folder";
    const QList<std::tuple<QByteArray, QByteArrayList, const char *>> refused = {
        // Programs it never runs.
        {"/bin/sh", {"-c", "touch " + marker}, "not an allowed program"},
        {"bin/mv", {"-f", victim, marker}, "not an allowed program"},
        {"/bin/../bin/mv", {"-f", victim, marker}, "not an allowed program"},
        {link, {"-f", victim, marker}, "not an allowed program"},
        {"", {}, "not an allowed program"},
        {QFile::encodeName(standIn), {"load", job()}, "not an allowed program"},
        // Options and modes of its own choosing, any other path.
        {"/bin/chmod", {"4755", job(6)}, other},
        {"/bin/chmod", {"644", victim}, other},
        {"/bin/rm", {"-Rdf", victim}, other},
        {"/bin/rm", {"-Rdf", "--", job(6)}, other},
        {"/bin/rm", {"-Rdf", daemons()}, other},
        {"/bin/rm", {"-Rdf", daemons() + "/../../../victim.plist"}, other},
        {"/bin/rm", {"-Rdf", daemons() + "/./" + jobName(6)}, other},
        {"/bin/rm", {"-Rdf", fake + '/' + jobName()}, other},
        {"/bin/mkdir", {"-p", path("elsewhere")}, other},
        {"/bin/mkdir", {daemons()}, other},
        {"/bin/mv", {"-f", victim, job(7)}, other},
        {"/bin/mv", {"-f", job(6), marker}, other},
        {"/bin/mv", {"-f", job(6), fake + '/' + jobName(6)}, other},
        {"/bin/mv", {"-f", stage() + '/' + jobName(), job(2)}, other},
        // Links and shared folders where the system's files should be.
        {"/bin/chmod", {"644", job(4)}, "not a plain job file"},
        {"/bin/mv", {"-f", path("open/") + jobName(), job()}, unstaged},
        {"/bin/mv", {"-f", stage() + '/' + jobName(5), job(5)}, unstaged},
        {"/bin/mv",
         {"-f", job(6), trash() + '/' + jobName(6)},
         "not a job file going to the requester's trash"},
        // The bridge only with a job of the system folder.
        {bridge, {"load", fake + '/' + jobName()}, other},
        {bridge, {"load", job(), job(6)}, other},
    };
    for (const auto &[tool, arguments, reason] : refused) {
        SCOPED_TRACE(tool.toStdString() + ' ' + arguments.join(' ').toStdString());
        const auto reply = client.run(tool, arguments);
        EXPECT_EQ(reply.kind, Kind::Refused);
        EXPECT_EQ(reply.reason, reason);
        EXPECT_EQ(client.spawn(tool, arguments).kind, Kind::Refused);
    }
    // A NUL byte cannot reach a program's arguments.
    EXPECT_EQ(client.run("/bin/rm", {"-Rdf", job(6) + QByteArray(1, '\0') + "x"}).kind,
              Kind::Refused);
    EXPECT_EQ(TestFiles::read(QFile::decodeName(victim)), "x");
    EXPECT_EQ(modeOf(victim), 0600u);
    EXPECT_FALSE(existsRaw(marker));
    EXPECT_FALSE(existsRaw(job(7)));
    EXPECT_TRUE(existsRaw(job(6)));
    EXPECT_TRUE(existsRaw(fake + '/' + jobName()));
    EXPECT_TRUE(client.isRunning());

    const QString log = helperLog();
    EXPECT_TRUE(log.contains("kairo-helper[")) << log.toStdString();
    EXPECT_TRUE(log.contains("Refused request (not an allowed program): run /bin/sh -c"));
    EXPECT_EQ(log.count("Refused request"), 2 * refused.size() + 1);

    // Still serving after all that.
    EXPECT_EQ(client.run("/bin/rm", {"-Rdf", job(6)}).kind, Kind::Status);
    EXPECT_FALSE(existsRaw(job(6)));
}

TEST_F(PrivilegedHelperTest, RawRequestsOutsideTheProtocolAreRefused)
{
    QProcess helper;
    helper.setProcessChannelMode(QProcess::SeparateChannels);
    helper.start(kHelper, {"--allow-unprivileged"});
    ASSERT_TRUE(helper.waitForStarted());
    const QByteArray tooLong(HelperProtocol::kMaxLine + 10, 'a');
    helper.write("chmod 777 /\n");
    helper.write("run /bin/mv%20-f\n");
    helper.write("run /bin/mkdir bad%zz\n");
    helper.write("spawn\n");
    helper.write("run " + tooLong + "\n");
    helper.write("run /bin/mkdir -p " + QUrl::toPercentEncoding(QFile::decodeName(daemons())) +
                 "\n");
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
    EXPECT_TRUE(QFileInfo::exists(QFile::decodeName(daemons())));
    EXPECT_EQ(QString::fromUtf8(helper.readAllStandardError()).count("Refused request"), 5);
}

// A program that never says it is ready (given up after the limit), a missing elevation
// program, and a local root others could change never get ready.
TEST_F(PrivilegedHelperTest, StartsThatNeverGetReady)
{
    PrivilegedHelperClient silent;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(silent.start(writeElevate("exec sleep 30"), {kHelper}, nullptr, 300ms),
              PrivilegedHelperClient::Start::Refused);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s); // the program sleeps 30 s
    EXPECT_FALSE(silent.isRunning());

    PrivilegedHelperClient missing;
    int error = 0;
    EXPECT_EQ(
        missing.start(m_sandbox.path() + "/no-such-program", {kHelper}, nullptr, 1000ms, &error),
        PrivilegedHelperClient::Start::LaunchFailed);
    EXPECT_EQ(error, ENOENT);
    EXPECT_EQ(missing.run("/bin/mkdir", {path("x")}).kind, Kind::NotSent);

    const QString shared = m_sandbox.mkdir("shared root");
    ::chmod(QFile::encodeName(shared).constData(), 0777);
    m_sandbox.setEnv("VT_LOCAL_ROOT", shared);
    PrivilegedHelperClient client;
    EXPECT_EQ(startHelper(client), PrivilegedHelperClient::Start::Refused);
    EXPECT_TRUE(helperLog().contains("is not a folder that only root can change"));
}

TEST_F(PrivilegedHelperTest, TheSecretIsTheFirstLineOfInput)
{
    QDir().mkpath(QFile::decodeName(daemons()));
    TestFiles::write(QFile::decodeName(job()), jobXml());
    // An elevation that asks for no password leaves the line unread: the helper never sees
    // it, even when it reads like a request, and its answers stay in step.
    const QByteArray shaped = QByteArray::fromStdString(
        HelperProtocol::line({"run", "/bin/rm", "-Rdf", job().toStdString()}));
    PrivilegedHelperClient nopasswd;
    ASSERT_EQ(nopasswd.start(writeElevate(), {kHelper}, &shaped, 5000ms),
              PrivilegedHelperClient::Start::Ready);
    EXPECT_EQ(nopasswd.run("/bin/chmod", {"644", job()}).kind, Kind::Status);
    EXPECT_EQ(nopasswd.run("/bin/sh", {"-c", "true"}).reason, "not an allowed program");
    nopasswd.end();
    EXPECT_TRUE(existsRaw(job()));
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
    EXPECT_EQ(underPkexec.start(writeElevate("export PKEXEC_UID=1000"), {kHelper}, nullptr, 5000ms),
              PrivilegedHelperClient::Start::Refused);
    EXPECT_TRUE(helperLog().contains("must run as root"));
}

} // namespace
