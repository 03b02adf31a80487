#include "support/VTAuthorization.h"

#include "platform/Bundle.h"
#include "platform/ProcessSpawner.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/MockClock.h"
#include "testsupport/Poll.h"
#include "testsupport/RecordingSpawner.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

const QString kBundle = QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app");
const QString kHelper = kBundle + QStringLiteral("/Contents/MacOS/kairo-helper");
const QString kPassword = QStringLiteral("open sesame %20");
// The mock clock's local time, as the trash names it.
const QDateTime kNow(QDate(2011, 3, 4), QTime(12, 0, 5));
const QString kStamp = QStringLiteral("20110304120005");

bool appears(const QString &path)
{
    return Poll::until([&] { return QFileInfo::exists(path); });
}

bool disappears(const QString &path)
{
    return Poll::until([&] { return !QFileInfo::exists(path); });
}

std::string joined(const QStringList &lines)
{
    return lines.join(QLatin1Char('|')).toStdString();
}

// An ordinary user, anna, whose home is the sandbox's; pkexec is played by a script that
// records how it was called and starts the real helper.
class VTAuthorizationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_identity->uid = 1000;
        m_identity->name = QStringLiteral("anna");
        m_identity->home = m_sandbox.home();
        m_identity->homes.insert(QStringLiteral("anna"), m_sandbox.home());
        Bundle::setMainBundlePath(kBundle);
        const QString runtime = m_sandbox.mkdir(QStringLiteral("runtime"));
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_sandbox.setEnv("XDG_RUNTIME_DIR", runtime);
        VTLog::createNewLog(QStringLiteral("Authorization"));
        useElevate();
        VTAuthorization::resetForTesting();
    }

    void TearDown() override
    {
        VTAuthorization::resetForTesting();
        ProcessSpawner::setCurrent(nullptr);
    }

    // The stand-in for pkexec: runs `before`, then becomes the helper.
    void useElevate(const QString &before = QString())
    {
        const QString dir = m_sandbox.path();
        const QString script = TestFiles::writeScript(
            m_sandbox.file(QStringLiteral("bin/elevate")),
            QStringLiteral(
                "echo $$ >> '%1/elevate.pids'\n"
                "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done >> '%1/elevate.args'\n"
                "env > '%1/elevate.env'\n"
                "%2\n"
                "exec \"$@\" --allow-unprivileged 2>> '%1/helper.log'")
                .arg(dir, before));
        m_sandbox.setEnv("VT_ELEVATE", script);
    }

    void useElevateCheckingPassword()
    {
        useElevate(QStringLiteral("IFS= read -r pw || exit 1\n"
                                  "[ \"$pw\" = '%1' ] || exit 1")
                       .arg(kPassword));
    }

    QStringList elevations() const
    {
        return TestFiles::lines(m_sandbox.path() + QStringLiteral("/elevate.args"));
    }

    qint64 lastHelperPid() const
    {
        const QStringList pids =
            TestFiles::lines(m_sandbox.path() + QStringLiteral("/elevate.pids"));
        return pids.isEmpty() ? -1 : pids.last().toLongLong();
    }

    QString helperLog() const
    {
        return QString::fromUtf8(TestFiles::read(m_sandbox.path() + QStringLiteral("/helper.log")));
    }

    QString logText() const
    {
        VTLog::finishWriting();
        return QString::fromUtf8(TestFiles::read(VTLog::currentLogPath()));
    }

    QString trash() const { return m_sandbox.home() + QStringLiteral("/.local/share/Trash"); }

    // The system's job folder of the sandbox and a job file in it: the helper serves these.
    QString daemons() const
    {
        return m_sandbox.localRoot() + QStringLiteral("/Library/LaunchDaemons");
    }
    QString job(int n = 1) const
    {
        return daemons() + QStringLiteral("/com.vantreel.RootScheduledTask%1.plist").arg(n);
    }
    QString daemonJob(int n = 1, const QByteArray &content = "job") const
    {
        TestFiles::write(job(n), content);
        return job(n);
    }
    // Staged as the job file writer stages: in the user's private folder.
    QString staged(int n = 1, const QByteArray &content = "staged") const
    {
        const QString path = VTLocalPaths::tempDirectory() +
                             QStringLiteral("/com.vantreel.RootScheduledTask%1.plist").arg(n);
        TestFiles::write(path, content);
        return path;
    }

    QString work(const QString &name, const QByteArray &content = "data") const
    {
        const QString path = m_sandbox.file(QStringLiteral("work/") + name);
        TestFiles::write(path, content);
        return path;
    }

    // Plays root, with anna at the console, the tools recorded instead of run.
    std::shared_ptr<RecordingSpawner> playRoot(bool newInstance = true)
    {
        m_identity->uid = 0;
        m_identity->name = QStringLiteral("root");
        m_identity->home = m_sandbox.path() + QStringLiteral("/rootshome");
        m_identity->console = QStringLiteral("anna");
        auto spawner = std::make_shared<RecordingSpawner>();
        ProcessSpawner::setCurrent(spawner);
        if (newInstance) {
            VTAuthorization::resetForTesting();
        }
        return spawner;
    }

    Sandbox m_sandbox;
    FakeIdentity::Scoped m_identity;
    MockClock::Scoped m_clock{kNow};
};

// The first call decides whether there is a GUI; without one nothing asks for a password.
TEST_F(VTAuthorizationTest, WithoutAGuiNothingAsksForAPassword)
{
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    EXPECT_EQ(&VTAuthorization::sharedController(true), &auth);
    EXPECT_FALSE(auth.hasGUI());
    EXPECT_FALSE(auth.canAuthorize());
    const QString folder = m_sandbox.path() + QStringLiteral("/never");
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authStart());
    EXPECT_EQ(
        auth.authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), folder}, false), -1);
    EXPECT_FALSE(auth.authCreateDir(folder));
    const QString text = console.finish();
    EXPECT_EQ(text.count(QStringLiteral("] Unable to authorize\n")), 3) << text.toStdString();
    EXPECT_TRUE(elevations().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(folder));

    VTAuthorization::resetForTesting();
    VTAuthorization &windowed = VTAuthorization::sharedController();
    EXPECT_TRUE(windowed.hasGUI());
    EXPECT_TRUE(windowed.canAuthorize());
    EXPECT_FALSE(windowed.isAuthorized());
}

TEST_F(VTAuthorizationTest, AMissingToolIsReportedWithoutAskingForAPassword)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    TestFiles::CaptureStderr console;
    EXPECT_EQ(auth.authExecTask(QStringLiteral("/no/such/tool"), {QStringLiteral("x")}), -2);
    EXPECT_EQ(auth.authExecTask(QString(), {}, false), -2);
    EXPECT_TRUE(console.finish().contains(
        QStringLiteral("] Unable to execute task: path /no/such/tool doesn't exist\n")));
    EXPECT_TRUE(elevations().isEmpty());
    EXPECT_FALSE(auth.isAuthorized());
}

TEST_F(VTAuthorizationTest, TheHelperRunsToolsUntilAuthEnd)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    ASSERT_TRUE(auth.authStart()) << helperLog().toStdString();
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_EQ(joined(elevations()), "[" + kHelper.toStdString() + "]");
    // Already authorized: nothing more is started.
    EXPECT_TRUE(auth.authStart());
    EXPECT_EQ(elevations().size(), 1);

    EXPECT_EQ(
        auth.authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), daemons()}, false),
        0);
    EXPECT_TRUE(QFileInfo(daemons()).isDir());

    const QString started = daemonJob();
    EXPECT_EQ(auth.authExecTask(QStringLiteral("/bin/rm"), {QStringLiteral("-Rdf"), started}), 0);
    EXPECT_TRUE(disappears(started));

    // A program the helper does not run.
    const QString marker = m_sandbox.path() + QStringLiteral("/marker");
    const int status =
        auth.authExecTask(QStringLiteral("/bin/sh"),
                          {QStringLiteral("-c"), QStringLiteral("touch ") + marker}, false);
    EXPECT_NE(status, 0);
    EXPECT_NE(status, -1);
    EXPECT_NE(status, -2);
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_TRUE(helperLog().contains(
        QStringLiteral("Refused request (not an allowed program): run /bin/sh")));
    // Nor any other request than the system's own.
    EXPECT_EQ(
        auth.authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), marker}, false),
        status);
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_TRUE(auth.isAuthorized());

    const qint64 helper = lastHelperPid();
    ASSERT_GT(helper, 0);
    auth.authEnd();
    EXPECT_FALSE(auth.isAuthorized());
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/proc/%1").arg(helper)));
}

TEST_F(VTAuthorizationTest, ADeadHelperIsStartedOnceMore)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    ASSERT_TRUE(auth.authStart());
    ASSERT_EQ(::kill(static_cast<pid_t>(lastHelperPid()), SIGKILL), 0);
    EXPECT_TRUE(Poll::until([&] { return !auth.isAuthorized(); }));

    EXPECT_EQ(
        auth.authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), daemons()}, false),
        0);
    EXPECT_TRUE(QFileInfo(daemons()).isDir());
    EXPECT_EQ(elevations().size(), 2);
    EXPECT_TRUE(auth.isAuthorized());
}

TEST_F(VTAuthorizationTest, ACancelledElevationLeavesTheInstanceUnauthorized)
{
    useElevate(QStringLiteral("exit 126"));
    VTAuthorization &auth = VTAuthorization::sharedController();
    EXPECT_FALSE(auth.authStart());
    EXPECT_FALSE(auth.isAuthorized());
    const QString folder = m_sandbox.path() + QStringLiteral("/refused");
    // The next privileged operation asks again, and is refused again.
    EXPECT_EQ(auth.authExecTask(QStringLiteral("/bin/mkdir"), {folder}, false), -1);
    EXPECT_FALSE(auth.authCreateDir(folder));
    EXPECT_EQ(elevations().size(), 3);
    EXPECT_FALSE(QFileInfo::exists(folder));
}

TEST_F(VTAuthorizationTest, CredentialsAreCheckedOnceAndNeverShown)
{
    useElevateCheckingPassword();
    VTAuthorization &auth = VTAuthorization::sharedController(false);

    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authStartWithUser(QStringLiteral("anna"), QStringLiteral("wrong")));
    EXPECT_FALSE(auth.isAuthorized());
    EXPECT_TRUE(console.finish().contains(
        QStringLiteral("] Authorization failed. Invalid username or password\n")));
    EXPECT_TRUE(logText().contains(
        QStringLiteral(" - Authorization failed. Invalid username or password\n")));

    // No interaction even without a GUI; an empty name goes on to the elevation program.
    EXPECT_TRUE(auth.authStartWithUser(QString(QLatin1String("")), kPassword));
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_EQ(
        auth.authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), daemons()}, false),
        0);
    EXPECT_TRUE(QFileInfo(daemons()).isDir());

    EXPECT_EQ(joined(elevations()),
              "[" + kHelper.toStdString() + "]|[" + kHelper.toStdString() + "]");
    for (const QString &recorded : {QStringLiteral("/elevate.args"), QStringLiteral("/elevate.env"),
                                    QStringLiteral("/helper.log")}) {
        EXPECT_FALSE(TestFiles::read(m_sandbox.path() + recorded).contains("open sesame"))
            << recorded.toStdString();
    }
    EXPECT_FALSE(logText().contains(QStringLiteral("open sesame")));
}

// Null credentials are refused at once; without a stand-in only the invoking user's
// credentials can be checked.
TEST_F(VTAuthorizationTest, NullOrForeignCredentialsAreRefused)
{
    useElevateCheckingPassword();
    VTAuthorization &auth = VTAuthorization::sharedController();
    EXPECT_FALSE(auth.authStartWithUser(QString(), kPassword));
    EXPECT_FALSE(auth.authStartWithUser(QStringLiteral("anna"), QString()));
    EXPECT_TRUE(elevations().isEmpty());

    m_sandbox.setEnv("VT_ELEVATE", std::nullopt);
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authStartWithUser(QStringLiteral("bob"), kPassword));
    EXPECT_TRUE(console.finish().contains(
        QStringLiteral("Authorization failed. Invalid username or password")));
    EXPECT_FALSE(auth.isAuthorized());
}

TEST_F(VTAuthorizationTest, SystemFoldersAreNeverMovedTrashedOrDeleted)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    const QString home = m_sandbox.home();
    const QString library = home + QStringLiteral("/Library");
    const QString localLibrary = m_sandbox.localRoot() + QStringLiteral("/Library");
    QDir().mkpath(library + QStringLiteral("/Preferences"));
    QDir().mkpath(localLibrary);
    TestFiles::write(library + QStringLiteral("/Preferences/keep.plist"), "keep");
    const QString target = m_sandbox.path() + QStringLiteral("/target");

    TestFiles::CaptureStderr console;
    for (const QString &folder : {QStringLiteral("/"), home, library, localLibrary}) {
        EXPECT_FALSE(auth.authMoveFile(folder, target)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFile(folder)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFile(folder, true)) << folder.toStdString();
        EXPECT_FALSE(auth.authRemoveFile(folder)) << folder.toStdString();
        EXPECT_FALSE(auth.authMoveFolderContents(folder, target)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFolderContents(folder)) << folder.toStdString();
    }
    const QString text = console.finish();
    EXPECT_TRUE(text.contains(
        QStringLiteral("] Unable to move path / because it is a system directory.\n")));
    EXPECT_TRUE(text.contains(
        QStringLiteral("] Unable to delete path %1 because it is a system directory.\n")
            .arg(library)));
    EXPECT_TRUE(text.contains(
        QStringLiteral("] Unable to move contents of path %1 because it is a system directory.\n")
            .arg(localLibrary)));
    EXPECT_EQ(text.count(QStringLiteral("because it is a system directory.")), 24);
    // Refused before anything is asked or run.
    EXPECT_TRUE(elevations().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(library + QStringLiteral("/Preferences/keep.plist")));
    EXPECT_FALSE(QFileInfo::exists(target));
}

TEST_F(VTAuthorizationTest, AsRootTheGuardMatchesExactlyAndToolsRunDirectly)
{
    auto spawner = playRoot();
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    EXPECT_TRUE(auth.canAuthorize());
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_TRUE(auth.authStart());
    EXPECT_TRUE(auth.authStartWithUser(QStringLiteral("anyone"), QStringLiteral("anything")));

    // The user meant is anna at the console: her home and Library are protected.
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authMoveFile(m_sandbox.home(), QStringLiteral("/tmp/x")));
    EXPECT_FALSE(auth.authRemoveFile(m_sandbox.home() + QStringLiteral("/Library")));
    EXPECT_FALSE(auth.authTrashFile(QStringLiteral("/")));
    EXPECT_EQ(console.finish().count(QStringLiteral("because it is a system directory.")), 3);
    EXPECT_TRUE(spawner->calls().isEmpty());

    // Only exact matches count here: /usr/bin lies under /usr and still moves.
    EXPECT_TRUE(auth.authMoveFile(QStringLiteral("/usr/bin"), QStringLiteral("/usr/bin.old")));
    EXPECT_TRUE(auth.authCopyFile(QStringLiteral("/usr/bin"), QStringLiteral("/opt/bin")));
    EXPECT_TRUE(auth.authRemoveFile(QStringLiteral("/usr/bin.old")));
    EXPECT_TRUE(auth.authCreateDir(QStringLiteral("/opt/new")));
    EXPECT_EQ(auth.authExecTask(QStringLiteral("/bin/chown"),
                                {QStringLiteral("root:root"), QStringLiteral("/x")}),
              0);
    EXPECT_EQ(auth.authExecTask(QStringLiteral("/bin/chmod"),
                                {QStringLiteral("644"), QStringLiteral("/x")}, false),
              0);
    EXPECT_EQ(joined(spawner->calls()), "/bin/mv -f /usr/bin /usr/bin.old &|"
                                        "/bin/cp -f -p -R /usr/bin /opt/bin &|"
                                        "/bin/rm -Rdf /usr/bin.old &|"
                                        "/bin/mkdir -p /opt/new &|"
                                        "/bin/chown root:root /x &|"
                                        "/bin/chmod 644 /x");
    EXPECT_TRUE(elevations().isEmpty());
    EXPECT_TRUE(m_clock->sleeps().empty());
}

TEST_F(VTAuthorizationTest, NullAndMissingPaths)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    const QString missing = m_sandbox.path() + QStringLiteral("/missing");
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authCopyFile(QString(), missing));
    EXPECT_FALSE(auth.authCopyFile(missing, QString()));
    EXPECT_FALSE(auth.authMoveFile(QString(), missing));
    EXPECT_FALSE(auth.authMoveFile(missing, QString()));
    EXPECT_FALSE(auth.authCopyFile(missing, missing + QStringLiteral("2")));
    EXPECT_FALSE(auth.authMoveFile(missing, missing + QStringLiteral("2")));
    const QString text = console.finish();
    for (const char *line :
         {"authCopyFile: old", "authCopyFile: new", "authMoveFile: old", "authMoveFile: new"}) {
        EXPECT_TRUE(text.contains(QStringLiteral("] Error in %1 path is null\n").arg(line)));
    }
    EXPECT_EQ(text.count(QLatin1Char('\n')), 4);
    EXPECT_TRUE(elevations().isEmpty());
    // An empty folder, or one that cannot be read, has nothing to fail on.
    EXPECT_TRUE(auth.authMoveFolderContents(missing, m_sandbox.path()));
    EXPECT_TRUE(auth.authTrashFolderContents(missing));
}

TEST_F(VTAuthorizationTest, FileOperationsWithPrivileges)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    EXPECT_TRUE(auth.authCreateDir(daemons()));
    EXPECT_TRUE(appears(daemons()));
    EXPECT_EQ(m_clock->sleeps(), std::vector<std::chrono::microseconds>{500us});

    // The writer's way: staged, then moved into the system folder.
    const QString source = staged(1, "moved");
    EXPECT_TRUE(auth.authMoveFile(source, job()));
    EXPECT_TRUE(appears(job()));
    EXPECT_TRUE(disappears(source));
    EXPECT_EQ(TestFiles::read(job()), "moved");
    EXPECT_TRUE(auth.authRemoveFile(job()));
    EXPECT_TRUE(disappears(job()));
    // Folder contents move entry by entry.
    staged(1);
    staged(2);
    EXPECT_TRUE(auth.authMoveFolderContents(VTLocalPaths::tempDirectory(), daemons()));
    EXPECT_TRUE(appears(job(1)));
    EXPECT_TRUE(appears(job(2)));

    // The helper copies nothing, and moves nothing else: the operation fails.
    const QString library = m_sandbox.home() + QStringLiteral("/Library");
    TestFiles::write(library + QStringLiteral("/Preferences/a.plist"), "prefs");
    const QString copy = m_sandbox.path() + QStringLiteral("/copy of library");
    EXPECT_FALSE(auth.authCopyFile(library, copy));
    const QString other = work(QStringLiteral("move me.plist"));
    EXPECT_FALSE(auth.authMoveFile(other, job(2)));
    EXPECT_FALSE(QFileInfo::exists(copy));
    EXPECT_TRUE(QFileInfo::exists(other));
    EXPECT_EQ(elevations().size(), 1);
}

TEST_F(VTAuthorizationTest, TrashingKeepsEveryNameAndTellsTheDesktop)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    const QString files = trash() + QStringLiteral("/files");
    const QString info = trash() + QStringLiteral("/info");
    const QString name = QStringLiteral("com.vantreel.RootScheduledTask1");

    // The trash does not exist yet.
    EXPECT_TRUE(auth.authTrashFile(daemonJob(1, "first")));
    EXPECT_TRUE(appears(files + QLatin1Char('/') + name + QStringLiteral(".plist")));
    EXPECT_TRUE(disappears(job()));
    const QString firstInfo = QString::fromUtf8(
        TestFiles::read(info + QLatin1Char('/') + name + QStringLiteral(".plist.trashinfo")));
    EXPECT_TRUE(firstInfo.startsWith(QStringLiteral("[Trash Info]\nPath=")));
    EXPECT_TRUE(firstInfo.contains(QStringLiteral("/Library/LaunchDaemons/") + name));
    EXPECT_TRUE(firstInfo.contains(QStringLiteral("DeletionDate=2011-03-04T12:00:05")));

    // The same name again: the base name, "_", fourteen digits of local time, the extension.
    EXPECT_TRUE(auth.authTrashFile(daemonJob(1, "second")));
    const QString renamed =
        files + QLatin1Char('/') + name + QLatin1Char('_') + kStamp + QStringLiteral(".plist");
    EXPECT_TRUE(appears(renamed));
    EXPECT_TRUE(disappears(job()));
    EXPECT_EQ(TestFiles::read(renamed), "second");
    EXPECT_EQ(TestFiles::read(files + QLatin1Char('/') + name + QStringLiteral(".plist")), "first");
    EXPECT_TRUE(QFileInfo::exists(info + QLatin1Char('/') + name + QLatin1Char('_') + kStamp +
                                  QStringLiteral(".plist.trashinfo")));

    // A folder's contents are trashed entry by entry.
    daemonJob(2);
    daemonJob(3);
    EXPECT_TRUE(auth.authTrashFolderContents(daemons()));
    EXPECT_TRUE(appears(files + QStringLiteral("/com.vantreel.RootScheduledTask2.plist")));
    EXPECT_TRUE(appears(files + QStringLiteral("/com.vantreel.RootScheduledTask3.plist")));
    EXPECT_TRUE(Poll::until([&] {
        return QDir(daemons()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }));
    EXPECT_EQ(QDir(info).entryList(QDir::Files | QDir::Hidden).size(), 4);
}

TEST_F(VTAuthorizationTest, TrashNamesWithoutAnExtension)
{
    // Without an extension the name ends in a lone "."; a leading dot is no extension.
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    auto spawner = playRoot(false);
    const QString files = trash() + QStringLiteral("/files/");
    const std::pair<const char *, const char *> names[] = {{"notes", "notes_%1."},
                                                           {".profile", ".profile_%1."},
                                                           {"archive.tar.gz", "archive.tar_%1.gz"}};
    for (const auto &[name, renamed] : names) {
        TestFiles::write(files + QLatin1String(name), "old");
        const QString source = work(QLatin1String(name));
        EXPECT_TRUE(auth.authTrashFile(source));
        EXPECT_EQ(spawner->calls().last(),
                  QStringLiteral("/bin/mv -f %1 %2%3 &")
                      .arg(source, files, QString::fromLatin1(renamed).arg(kStamp)));
    }
}

TEST_F(VTAuthorizationTest, AsRootDeletingRemovesTheTrashPathAndLeavesTheSource)
{
    auto spawner = playRoot();
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    const QString files = trash() + QStringLiteral("/files");
    TestFiles::write(files + QStringLiteral("/job.plist"), "in the trash");
    const QString source = work(QStringLiteral("job.plist"));

    EXPECT_TRUE(auth.authTrashFile(source, true));
    EXPECT_TRUE(auth.authTrashFile(source));
    EXPECT_EQ(joined(spawner->calls()), "/bin/rm -Rdf " + files.toStdString() + "/job_" +
                                            kStamp.toStdString() +
                                            ".plist &|"
                                            "/bin/mv -f " +
                                            source.toStdString() + " " + files.toStdString() +
                                            "/job_" + kStamp.toStdString() + ".plist &");
    EXPECT_TRUE(QFileInfo::exists(source));
    EXPECT_EQ(TestFiles::read(files + QStringLiteral("/job.plist")), "in the trash");

    // A folder's contents are deleted entry by entry.
    work(QStringLiteral(".hidden"));
    const QString folder = m_sandbox.path() + QStringLiteral("/work");
    EXPECT_TRUE(auth.authTrashFolderContents(folder, true));
    const QStringList calls = spawner->calls().mid(2);
    EXPECT_EQ(joined(calls), "/bin/rm -R -f " + folder.toStdString() + "/.hidden &|/bin/rm -R -f " +
                                 folder.toStdString() + "/job.plist &");
}

TEST_F(VTAuthorizationTest, AnInstanceMadeBeforeBecomingRootKeepsItsUsersTrash)
{
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    auto spawner = playRoot(false);
    // Someone else at the console now: the trash is still the one of the user the instance
    // was made for, and nothing is deleted.
    const QString bobsHome = m_sandbox.mkdir(QStringLiteral("home/bob"));
    m_identity->console = QStringLiteral("bob");
    m_identity->homes.insert(QStringLiteral("bob"), bobsHome);
    const QString source = work(QStringLiteral("job.plist"));
    EXPECT_TRUE(auth.authTrashFile(source, true));
    EXPECT_EQ(joined(spawner->calls()), "/bin/mv -f " + source.toStdString() + " " +
                                            trash().toStdString() + "/files/job.plist &");
    EXPECT_FALSE(QFileInfo::exists(bobsHome + QStringLiteral("/.local")));
}

TEST_F(VTAuthorizationTest, AsRootTheRealToolsRunInTheSandbox)
{
    m_identity->uid = 0;
    m_identity->console = QStringLiteral("anna");
    VTAuthorization::resetForTesting();
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    const QString source = work(QStringLiteral("report.txt"), "report");
    EXPECT_TRUE(auth.authTrashFile(source));
    const QString trashed = trash() + QStringLiteral("/files/report.txt");
    EXPECT_TRUE(appears(trashed));
    EXPECT_TRUE(disappears(source));
    EXPECT_TRUE(QFileInfo::exists(trash() + QStringLiteral("/info/report.txt.trashinfo")));
    EXPECT_TRUE(elevations().isEmpty());
}

} // namespace
