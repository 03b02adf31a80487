#include "support/VTLocalPaths.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

std::optional<QString> some(const QString &s)
{
    return s;
}

} // namespace

class VTLocalPathsTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    QString annaHome;

    void SetUp() override
    {
        annaHome = sandbox.home();
        identity->home = annaHome;
        identity->homes.insert(QStringLiteral("anna"), annaHome);
    }

    // Root, with its own home where the platform puts it and anna at the console.
    void becomeRoot(const QString &rootHome,
                    const std::optional<QString> &console = QStringLiteral("anna"))
    {
        identity->uid = 0;
        identity->name = QStringLiteral("root");
        identity->home = rootHome;
        identity->console = console;
    }
};

TEST_F(VTLocalPathsTest, OrdinaryUserGetsTheFoldersOfHisHome)
{
    const QString root = sandbox.localRoot();
    EXPECT_EQ(VTLocalPaths::libraryDirectory(true), some(annaHome + "/Library"));
    EXPECT_EQ(VTLocalPaths::libraryDirectory(false), some(root + "/Library"));
    EXPECT_EQ(VTLocalPaths::prefsDirectory(true), some(annaHome + "/Library/Preferences"));
    EXPECT_EQ(VTLocalPaths::prefsDirectory(false), some(root + "/Library/Preferences"));
    EXPECT_EQ(VTLocalPaths::logDirectory(true), some(annaHome + "/Library/Logs"));
    EXPECT_EQ(VTLocalPaths::applicationDirectory(false), some(root + "/Applications"));
    EXPECT_EQ(VTLocalPaths::adminApplicationDirectory(true),
              some(annaHome + "/Applications/Utilities"));
    EXPECT_EQ(VTLocalPaths::appSupportDirectory(false),
              some(root + "/Library/Application Support"));
    EXPECT_EQ(VTLocalPaths::cacheDirectory(true), some(annaHome + "/Library/Caches"));
    EXPECT_EQ(VTLocalPaths::systemLibraryDirectory(), some(root + "/System/Library"));
    EXPECT_EQ(VTLocalPaths::localDocumentationDirectory(), some(root + "/Library/Documentation"));
    EXPECT_EQ(VTLocalPaths::userDirectory(), some(annaHome));
    EXPECT_EQ(VTLocalPaths::movieDirectory(), some(annaHome + "/Movies"));
    EXPECT_EQ(VTLocalPaths::username(), some(QStringLiteral("anna")));
    // The local domain has no Documents folder, and no domain 4.
    EXPECT_EQ(VTLocalPaths::documentDirectory(false), std::nullopt);
    EXPECT_EQ(VTLocalPaths::pathForDirectory(5, 4), std::nullopt);
    EXPECT_EQ(VTLocalPaths::pathForDirectory(99, 1), std::nullopt);
}

TEST_F(VTLocalPathsTest, TrashIsTheFreedesktopTrashOfTheHome)
{
    EXPECT_EQ(VTLocalPaths::trashDirectory(), some(annaHome + "/.local/share/Trash/files"));
    sandbox.setEnv("XDG_DATA_HOME", sandbox.path() + "/data");
    EXPECT_EQ(VTLocalPaths::trashDirectory(), some(sandbox.path() + "/data/Trash/files"));
    // Root's own XDG_DATA_HOME says nothing about the console user's trash.
    becomeRoot(QStringLiteral("/root"));
    EXPECT_EQ(VTLocalPaths::trashDirectory(), some(annaHome + "/.local/share/Trash/files"));
}

TEST_F(VTLocalPathsTest, RootIsRedirectedIntoTheConsoleUsersHome)
{
    becomeRoot(QStringLiteral("/root"));
    EXPECT_EQ(VTLocalPaths::libraryDirectory(true), some(annaHome + "/Library"));
    EXPECT_EQ(VTLocalPaths::prefsDirectory(true), some(annaHome + "/Library/Preferences"));
    EXPECT_EQ(VTLocalPaths::userDirectory(), some(annaHome));
    EXPECT_EQ(VTLocalPaths::username(), some(QStringLiteral("anna")));
    // The local domain is never redirected.
    EXPECT_EQ(VTLocalPaths::libraryDirectory(false), some(sandbox.localRoot() + "/Library"));

    becomeRoot(QStringLiteral("/var/root"));
    EXPECT_EQ(VTLocalPaths::libraryDirectory(true), some(annaHome + "/Library"));

    // A sandboxed root home is stripped the same way.
    becomeRoot(sandbox.path() + "/roothome");
    EXPECT_EQ(VTLocalPaths::appSupportDirectory(true),
              some(annaHome + "/Library/Application Support"));

    // Sixteen characters go, one short of the prefix, so the "t" stays.
    becomeRoot(QStringLiteral("/private/var/root"));
    EXPECT_EQ(VTLocalPaths::libraryDirectory(true), some(annaHome + "/t/Library"));
}

TEST_F(VTLocalPathsTest, NobodyAtTheConsoleLeavesRootWithoutUserFolders)
{
    becomeRoot(QStringLiteral("/root"), QStringLiteral("loginwindow"));
    EXPECT_EQ(VTLocalPaths::currentConsoleUser(), std::nullopt);
    EXPECT_EQ(VTLocalPaths::userDirectory(), std::nullopt);
    EXPECT_EQ(VTLocalPaths::libraryDirectory(true), std::nullopt);
    EXPECT_EQ(VTLocalPaths::trashDirectory(), std::nullopt);
    EXPECT_EQ(VTLocalPaths::libraryDirectory(false), some(sandbox.localRoot() + "/Library"));

    becomeRoot(QStringLiteral("/root"), std::nullopt);
    EXPECT_EQ(VTLocalPaths::currentConsoleUser(), std::nullopt);
    EXPECT_EQ(VTLocalPaths::username(), std::nullopt);
}

TEST_F(VTLocalPathsTest, SystemDirectoryGuard)
{
    const QString root = sandbox.localRoot();
    struct Case
    {
        QString path;
        bool loose;
        bool exact;
    };
    const Case cases[] = {
        {"/", true, true},
        {"", false, false},
        {"/a", false, false},
        {"/usr/local/bin", true, false},
        {"/usr", true, false},
        {"/variant", true, false}, // a string prefix, not a path component
        {"/Volumes", true, true},
        {"/Volumes/Data", false, false},
        {"/Users/Shared", true, true},
        {"/Users/Shared/", false, false}, // cut by two characters to /Users/Share
        {"/System/Library/Frameworks", true, false},
        {annaHome, true, true},
        {annaHome + "/", false, false},
        {annaHome + "/Library", true, true},
        {annaHome + "/Library/Preferences", true, true},
        {annaHome + "/Library/Caches", true, true},
        {annaHome + "/Library/Application Support", true, true},
        {annaHome + "/Applications", true, true},
        {annaHome + "/Library/LaunchAgents", false, false},
        {root + "/Library", true, true},
        {root + "/Applications", true, true},
        {root + "/Library/Application Support", true, true},
        {root + "/System/Library", true, true},
        {root + "/Library/LaunchDaemons", false, false},
        // The Linux additions: whole folders exactly, system trees by prefix only.
        {"/home", true, true},
        {"/home/someone", false, false},
        {"/media", true, true},
        {"/mnt", true, true},
        {"/run/media", true, true},
        {"/etc/passwd", true, false},
        {"/bin", true, false},
        {"/proc/1", true, false},
        {"/tmp/file", false, false},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(VTLocalPaths::isPathSystemDirectory(c.path), c.loose) << c.path.toStdString();
        EXPECT_EQ(VTLocalPaths::isPathSystemDirectory(c.path, true), c.exact)
            << c.path.toStdString();
    }
}

TEST_F(VTLocalPathsTest, TimeMachineVolumesTemporaryFilesAndJoinedPaths)
{
    EXPECT_TRUE(VTLocalPaths::isPathOnTimeMachineVolume(
        QStringLiteral("/Volumes/Backup/Backups.backupdb/mac/Latest")));
    EXPECT_FALSE(VTLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Backups.backupdb")));
    EXPECT_FALSE(VTLocalPaths::isPathOnTimeMachineVolume(
        QStringLiteral("/Volumes/Backup/Backups.backupdb2/x")));

    // Temporary files are unique and not created.
    const QString a = VTLocalPaths::tempFile();
    EXPECT_NE(a, VTLocalPaths::tempFile());
    EXPECT_TRUE(a.startsWith(VTLocalPaths::tempDirectory() + "/"));
    EXPECT_FALSE(QFileInfo::exists(a));
    EXPECT_EQ(VTLocalPaths::uuid().size(), 36);

    EXPECT_EQ(VTLocalPaths::appendPathComponent("/home/anna", "/Library"), "/home/anna/Library");
    EXPECT_EQ(VTLocalPaths::appendPathComponent("/home/anna/", "Library/"), "/home/anna/Library");
    EXPECT_EQ(VTLocalPaths::appendPathComponent("/home/anna", ""), "/home/anna");
}

TEST_F(VTLocalPathsTest, StagingHappensInAFolderOfTheUsersAlone)
{
    const QString shared = sandbox.mkdir(QStringLiteral("tmp"));
    ::chmod(QFile::encodeName(shared).constData(), 01777);
    sandbox.setEnv("TMPDIR", shared);
    const QString runtime = sandbox.mkdir(QStringLiteral("runtime"));
    ::chmod(QFile::encodeName(runtime).constData(), 0700);
    sandbox.setEnv("XDG_RUNTIME_DIR", runtime);
    EXPECT_EQ(VTLocalPaths::tempDirectory(), runtime);

    // A runtime folder others may enter is not used; nor is the usual name in the shared
    // folder when someone else made it first.
    ::chmod(QFile::encodeName(runtime).constData(), 0755);
    const QString usual = shared + QStringLiteral("/kairo-planner-%1").arg(::geteuid());
    if (::geteuid() == 0) {
        QDir().mkpath(usual);
        ::chmod(QFile::encodeName(usual).constData(), 0777);
        ASSERT_EQ(::chown(QFile::encodeName(usual).constData(), 65534, 65534), 0);
    }
    const QString chosen = VTLocalPaths::tempDirectory();
    EXPECT_TRUE(chosen.startsWith(usual)) << chosen.toStdString();
    EXPECT_NE(chosen, ::geteuid() == 0 ? usual : QString());
    struct stat info
    {};
    ASSERT_EQ(::lstat(QFile::encodeName(chosen).constData(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_uid, ::geteuid());
    EXPECT_EQ(info.st_mode & 077, 0u);
    EXPECT_EQ(VTLocalPaths::tempDirectory(), chosen);
}
