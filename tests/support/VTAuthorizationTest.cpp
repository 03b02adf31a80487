#include "support/VTAuthorization.h"
#include "platform/PrintQt.h"

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
#include <vector>

using namespace std::chrono_literals;

namespace {

const QString kBundle = QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app");
const QString kHelper = kBundle + "/Contents/MacOS/kairo-helper";
const QString kPassword = "open sesame %20";
// The mock clock's local time, as the trash names it.
const QDateTime kNow(QDate(2011, 3, 4), QTime(12, 0, 5));
const QString kStamp = "20110304120005";

// Waits for the helper's or a started tool's work.
bool appears(const QString &path, bool exists = true)
{
    return Poll::until([&] { return QFileInfo::exists(path) == exists; });
}

// An ordinary user, anna, whose home is the sandbox's; pkexec is played by a script that
// records how it was called and starts the real helper.
class VTAuthorizationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_identity->uid = 1000;
        m_identity->name = "anna";
        m_identity->home = m_sandbox.home();
        m_identity->homes.insert("anna", m_sandbox.home());
        Bundle::setMainBundlePath(kBundle);
        const QString runtime = m_sandbox.mkdir("runtime");
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_sandbox.setEnv("XDG_RUNTIME_DIR", runtime);
        VTLog::createNewLog("Authorization");
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
            m_sandbox.file("bin/elevate"),
            QStringLiteral(
                "echo $$ >> '%1/elevate.pids'\n"
                "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done >> '%1/elevate.args'\n"
                "env > '%1/elevate.env'\n"
                "%2\n"
                "exec \"$@\" --allow-unprivileged 2>> '%1/helper.log'")
                .arg(dir, before));
        m_sandbox.setEnv("VT_ELEVATE", script);
    }

    QStringList elevations() const { return TestFiles::lines(m_sandbox.path() + "/elevate.args"); }

    qint64 lastHelperPid() const
    {
        const QStringList pids = TestFiles::lines(m_sandbox.path() + "/elevate.pids");
        return pids.isEmpty() ? -1 : pids.last().toLongLong();
    }

    QString helperLog() const
    {
        return QString::fromUtf8(TestFiles::read(m_sandbox.path() + "/helper.log"));
    }

    static QString logText() { return TestFiles::logMessages().join(QLatin1Char('\n')) + '\n'; }

    QString trash() const { return m_sandbox.home() + "/.local/share/Trash"; }

    // The system's job folder of the sandbox and a job file in it: the helper serves these.
    QString daemons() const { return m_sandbox.localRoot() + "/Library/LaunchDaemons"; }
    QString job(int n = 1) const
    {
        return daemons() + QStringLiteral("/com.vantreel.RootScheduledTask%1.plist").arg(n);
    }
    QString daemonJob(int n = 1, const QByteArray &content = "job") const
    {
        return TestFiles::write(job(n), content);
    }
    // Staged as the job file writer stages: in the user's private folder.
    QString staged(int n = 1, const QByteArray &content = "staged") const
    {
        return TestFiles::write(
            VTLocalPaths::tempDirectory() +
                QStringLiteral("/com.vantreel.RootScheduledTask%1.plist").arg(n),
            content);
    }
    QString work(const QString &name, const QByteArray &content = "data") const
    {
        return TestFiles::write(m_sandbox.file("work/" + name), content);
    }

    // Plays root, with anna at the console, the tools recorded instead of run.
    std::shared_ptr<RecordingSpawner> playRoot(bool newInstance = true)
    {
        m_identity->uid = 0;
        m_identity->name = "root";
        m_identity->home = m_sandbox.path() + "/rootshome";
        m_identity->console = "anna";
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

// Refused before anything is asked or run: without a GUI, for a missing tool, for null
// credentials or paths, and for the system's own folders, whoever asks.
TEST_F(VTAuthorizationTest, RefusalsAskNothingAndRunNothing)
{
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    EXPECT_EQ(&VTAuthorization::sharedController(true), &auth);
    EXPECT_FALSE(auth.hasGUI());
    EXPECT_FALSE(auth.canAuthorize());
    const QString missing = m_sandbox.path() + "/missing";
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authStart());
    EXPECT_EQ(auth.authExecTask("/bin/mkdir", {"-p", missing}, false), -1);
    EXPECT_FALSE(auth.authCreateDir(missing));
    EXPECT_EQ(auth.authExecTask("/no/such/tool", {"x"}), -2);
    EXPECT_EQ(auth.authExecTask(QString(), {}, false), -2);
    EXPECT_FALSE(auth.authStartWithUser(QString(), kPassword));
    EXPECT_FALSE(auth.authStartWithUser("anna", QString()));
    EXPECT_FALSE(auth.authCopyFile(QString(), missing));
    EXPECT_FALSE(auth.authCopyFile(missing, QString()));
    EXPECT_FALSE(auth.authMoveFile(QString(), missing));
    EXPECT_FALSE(auth.authMoveFile(missing, QString()));
    EXPECT_FALSE(auth.authMoveFile(missing, missing + "2"));
    // An empty folder, or one that cannot be read, has nothing to fail on.
    EXPECT_TRUE(auth.authMoveFolderContents(missing, m_sandbox.path()));
    EXPECT_TRUE(auth.authTrashFolderContents(missing));

    const QString home = m_sandbox.home();
    const QString library = home + "/Library";
    const QString localLibrary = m_sandbox.localRoot() + "/Library";
    TestFiles::write(library + "/Preferences/keep.plist", "keep");
    QDir().mkpath(localLibrary);
    for (const QString &folder : {QString("/"), home, library, localLibrary}) {
        EXPECT_FALSE(auth.authMoveFile(folder, missing)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFile(folder)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFile(folder, true)) << folder.toStdString();
        EXPECT_FALSE(auth.authRemoveFile(folder)) << folder.toStdString();
        EXPECT_FALSE(auth.authMoveFolderContents(folder, missing)) << folder.toStdString();
        EXPECT_FALSE(auth.authTrashFolderContents(folder)) << folder.toStdString();
    }
    const QString text = console.finish();
    EXPECT_EQ(text.count("] Unable to authorize\n"), 3) << text.toStdString();
    EXPECT_TRUE(text.contains("] Unable to execute task: path /no/such/tool doesn't exist\n"));
    for (const char *line :
         {"authCopyFile: old", "authCopyFile: new", "authMoveFile: old", "authMoveFile: new"}) {
        EXPECT_TRUE(text.contains(QStringLiteral("] Error in %1 path is null\n").arg(line)));
    }
    EXPECT_TRUE(text.contains(
        QStringLiteral("] Unable to move contents of path %1 because it is a system directory.\n")
            .arg(localLibrary)));
    EXPECT_EQ(text.count("because it is a system directory."), 24);
    EXPECT_TRUE(elevations().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(missing));
    EXPECT_TRUE(QFileInfo::exists(library + "/Preferences/keep.plist"));
}

// The helper runs the system's own tool requests until authEnd, is started again once
// when it died, and a refused elevation leaves the instance asking again next time.
TEST_F(VTAuthorizationTest, TheHelperRunsToolsUntilAuthEnd)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    ASSERT_TRUE(auth.authStart()) << helperLog().toStdString();
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_EQ(elevations(), QStringList{"[" + kHelper + "]"});
    // Already authorized: nothing more is started.
    EXPECT_TRUE(auth.authStart());
    EXPECT_EQ(elevations().size(), 1);

    const QString started = daemonJob();
    EXPECT_EQ(auth.authExecTask("/bin/rm", {"-Rdf", started}), 0);
    EXPECT_TRUE(appears(started, false));

    // A program the helper does not run, nor any other request than the system's own.
    const QString marker = m_sandbox.path() + "/marker";
    const int status = auth.authExecTask("/bin/sh", {"-c", "touch " + marker}, false);
    EXPECT_TRUE(status != 0 && status != -1 && status != -2) << status;
    EXPECT_TRUE(helperLog().contains("Refused request (not an allowed program): run /bin/sh"));
    EXPECT_EQ(auth.authExecTask("/bin/mkdir", {"-p", marker}, false), status);
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_TRUE(auth.isAuthorized());

    ASSERT_EQ(::kill(static_cast<pid_t>(lastHelperPid()), SIGKILL), 0);
    EXPECT_TRUE(Poll::until([&] { return !auth.isAuthorized(); }));
    EXPECT_EQ(auth.authExecTask("/bin/mkdir", {"-p", daemons()}, false), 0);
    EXPECT_TRUE(QFileInfo(daemons()).isDir());
    EXPECT_EQ(elevations().size(), 2);

    const qint64 helper = lastHelperPid();
    ASSERT_GT(helper, 0);
    auth.authEnd();
    EXPECT_FALSE(auth.isAuthorized());
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/proc/%1").arg(helper)));

    useElevate("exit 126");
    EXPECT_FALSE(auth.authStart());
    EXPECT_FALSE(auth.isAuthorized());
    EXPECT_EQ(auth.authExecTask("/bin/mkdir", {marker}, false), -1);
    EXPECT_FALSE(auth.authCreateDir(marker));
    EXPECT_EQ(elevations().size(), 5);
    EXPECT_FALSE(QFileInfo::exists(marker));
}

// Credentials are checked once, need no GUI and never appear anywhere; without a stand-in
// only the invoking user's can be checked.
TEST_F(VTAuthorizationTest, CredentialsAreCheckedOnceAndNeverShown)
{
    useElevate(
        QStringLiteral("IFS= read -r pw || exit 1\n[ \"$pw\" = '%1' ] || exit 1").arg(kPassword));
    VTAuthorization &auth = VTAuthorization::sharedController(false);

    TestFiles::CaptureStderr console;
    EXPECT_FALSE(auth.authStartWithUser("anna", "wrong"));
    EXPECT_FALSE(auth.isAuthorized());
    EXPECT_TRUE(
        console.finish().contains("] Authorization failed. Invalid username or password\n"));
    EXPECT_TRUE(logText().contains("Authorization failed. Invalid username or password\n"));

    // An empty name goes on to the elevation program.
    EXPECT_TRUE(auth.authStartWithUser(QString(QLatin1String("")), kPassword));
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_EQ(auth.authExecTask("/bin/mkdir", {"-p", daemons()}, false), 0);
    EXPECT_TRUE(QFileInfo(daemons()).isDir());
    EXPECT_EQ(elevations().size(), 2);
    for (const QString &recorded : {"/elevate.args", "/elevate.env", "/helper.log"}) {
        EXPECT_FALSE(TestFiles::read(m_sandbox.path() + recorded).contains("open sesame"))
            << recorded.toStdString();
    }
    EXPECT_FALSE(logText().contains("open sesame"));

    auth.authEnd();
    m_sandbox.setEnv("VT_ELEVATE", std::nullopt);
    TestFiles::CaptureStderr foreign;
    EXPECT_FALSE(auth.authStartWithUser("bob", kPassword));
    EXPECT_TRUE(foreign.finish().contains("Authorization failed. Invalid username or password"));
    EXPECT_FALSE(auth.isAuthorized());
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
    EXPECT_TRUE(appears(source, false));
    EXPECT_EQ(TestFiles::read(job()), "moved");
    EXPECT_TRUE(auth.authRemoveFile(job()));
    EXPECT_TRUE(appears(job(), false));
    // Folder contents move entry by entry.
    staged(1);
    staged(2);
    EXPECT_TRUE(auth.authMoveFolderContents(VTLocalPaths::tempDirectory(), daemons()));
    EXPECT_TRUE(appears(job(1)));
    EXPECT_TRUE(appears(job(2)));

    // The helper copies nothing, and moves nothing else: the operation fails.
    const QString library = m_sandbox.home() + "/Library";
    TestFiles::write(library + "/Preferences/a.plist", "prefs");
    const QString copy = m_sandbox.path() + "/copy of library";
    EXPECT_FALSE(auth.authCopyFile(library, copy));
    const QString other = work("move me.plist");
    EXPECT_FALSE(auth.authMoveFile(other, job(2)));
    EXPECT_FALSE(QFileInfo::exists(copy));
    EXPECT_TRUE(QFileInfo::exists(other));
    EXPECT_EQ(elevations().size(), 1);
}

TEST_F(VTAuthorizationTest, TrashingKeepsEveryNameAndTellsTheDesktop)
{
    VTAuthorization &auth = VTAuthorization::sharedController();
    const QString files = trash() + "/files/";
    const QString info = trash() + "/info/";
    const QString name = "com.vantreel.RootScheduledTask1";

    // The trash does not exist yet.
    EXPECT_TRUE(auth.authTrashFile(daemonJob(1, "first")));
    EXPECT_TRUE(appears(files + name + ".plist"));
    EXPECT_TRUE(appears(job(), false));
    const QString firstInfo = QString::fromUtf8(TestFiles::read(info + name + ".plist.trashinfo"));
    EXPECT_TRUE(firstInfo.startsWith("[Trash Info]\nPath="));
    EXPECT_TRUE(firstInfo.contains("/Library/LaunchDaemons/" + name));
    EXPECT_TRUE(firstInfo.contains("DeletionDate=2011-03-04T12:00:05"));

    // The same name again: the base name, "_", fourteen digits of local time, the extension.
    EXPECT_TRUE(auth.authTrashFile(daemonJob(1, "second")));
    const QString renamed = files + name + QLatin1Char('_') + kStamp + ".plist";
    EXPECT_TRUE(appears(renamed));
    EXPECT_TRUE(appears(job(), false));
    EXPECT_EQ(TestFiles::read(renamed), "second");
    EXPECT_EQ(TestFiles::read(files + name + ".plist"), "first");
    EXPECT_TRUE(QFileInfo::exists(info + name + QLatin1Char('_') + kStamp + ".plist.trashinfo"));

    // A folder's contents are trashed entry by entry.
    daemonJob(2);
    daemonJob(3);
    EXPECT_TRUE(auth.authTrashFolderContents(daemons()));
    EXPECT_TRUE(appears(files + "com.vantreel.RootScheduledTask2.plist"));
    EXPECT_TRUE(appears(files + "com.vantreel.RootScheduledTask3.plist"));
    EXPECT_TRUE(Poll::until([&] {
        return QDir(daemons()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }));
    EXPECT_EQ(QDir(info).entryList(QDir::Files | QDir::Hidden).size(), 4);
}

// Trash names as root: without an extension the name ends in a lone "." and a leading dot
// is no extension; deleting removes the trash's path and leaves the source; an instance
// made before becoming root keeps its user's trash.
TEST_F(VTAuthorizationTest, AsRootTrashNamesAndDeleting)
{
    VTAuthorization &auth = VTAuthorization::sharedController(false);
    auto spawner = playRoot(false);
    // Someone else at the console now: the trash is still that of the instance's user.
    const QString bobsHome = m_sandbox.mkdir("home/bob");
    m_identity->console = "bob";
    m_identity->homes.insert("bob", bobsHome);
    const QString files = trash() + "/files/";
    const QString stamp = QLatin1Char('_') + kStamp;
    // Name, deleting, the call (%1 the source, %2 the trash's files folder).
    const std::tuple<QString, bool, QString> cases[] = {
        {"fresh.plist", true, "/bin/mv -f %1 %2fresh.plist &"},
        {"notes", false, "/bin/mv -f %1 %2notes" + stamp + ". &"},
        {".profile", false, "/bin/mv -f %1 %2.profile" + stamp + ". &"},
        {"archive.tar.gz", false, "/bin/mv -f %1 %2archive.tar" + stamp + ".gz &"},
        {"job.plist", false, "/bin/mv -f %1 %2job" + stamp + ".plist &"},
    };
    for (const auto &[name, deleting, call] : cases) {
        if (name != QLatin1String("fresh.plist")) {
            TestFiles::write(files + name, "in the trash");
        }
        const QString source = work(name);
        EXPECT_TRUE(auth.authTrashFile(source, deleting));
        EXPECT_EQ(spawner->calls().last(), call.arg(source, files));
    }

    EXPECT_FALSE(QFileInfo::exists(bobsHome + "/.local"));

    spawner = playRoot();
    VTAuthorization &root = VTAuthorization::sharedController(false);
    const QString source = work("job.plist");
    EXPECT_TRUE(root.authTrashFile(source, true));
    EXPECT_EQ(spawner->calls().value(0),
              QStringLiteral("/bin/rm -Rdf %1job%2.plist &").arg(files, stamp));
    EXPECT_TRUE(QFileInfo::exists(source));
    EXPECT_EQ(TestFiles::read(files + "job.plist"), "in the trash");
    // A folder's contents are deleted entry by entry.
    const QString folder = m_sandbox.file("gone");
    TestFiles::write(folder + "/.hidden", "x");
    TestFiles::write(folder + "/job.plist", "x");
    EXPECT_TRUE(root.authTrashFolderContents(folder, true));
    EXPECT_EQ(spawner->calls().mid(1), QStringList({"/bin/rm -R -f " + folder + "/.hidden &",
                                                    "/bin/rm -R -f " + folder + "/job.plist &"}));

    // Root needs no credentials and runs the tools itself.
    EXPECT_TRUE(root.authStartWithUser("anyone", "anything"));
    EXPECT_TRUE(root.authCreateDir("/opt/new"));
    EXPECT_EQ(root.authExecTask("/bin/chmod", {"644", "/x"}, false), 0);
    EXPECT_EQ(spawner->calls().mid(3),
              QStringList({"/bin/mkdir -p /opt/new &", "/bin/chmod 644 /x"}));
    EXPECT_TRUE(elevations().isEmpty());
}

} // namespace
