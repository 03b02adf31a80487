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
        identity->homes.insert("anna", annaHome);
    }
};

// An ordinary user gets the folders of his home; root those of the console user's, its own
// home stripped of the platform's prefix (sixteen characters go, one short of the
// "/private/var/root" prefix, so the "t" stays); nobody at the console leaves root without
// user folders. The local domain is never redirected. The trash is the freedesktop one.
TEST_F(VTLocalPathsTest, FoldersOfTheUserAndOfTheMachine)
{
    const QString root = sandbox.localRoot();
    const std::pair<std::optional<QString>, std::optional<QString>> folders[] = {
        {VTLocalPaths::libraryDirectory(true), annaHome + "/Library"},
        {VTLocalPaths::libraryDirectory(false), root + "/Library"},
        {VTLocalPaths::prefsDirectory(true), annaHome + "/Library/Preferences"},
        {VTLocalPaths::adminApplicationDirectory(true), annaHome + "/Applications/Utilities"},
        {VTLocalPaths::cacheDirectory(true), annaHome + "/Library/Caches"},
        {VTLocalPaths::systemLibraryDirectory(), root + "/System/Library"},
        {VTLocalPaths::localDocumentationDirectory(), root + "/Library/Documentation"},
        {VTLocalPaths::userDirectory(), annaHome},
        {VTLocalPaths::movieDirectory(), annaHome + "/Movies"},
        {VTLocalPaths::username(), "anna"},
        {VTLocalPaths::trashDirectory(), annaHome + "/.local/share/Trash/files"},
        // Joined paths lose doubled and trailing slashes; an empty component adds nothing.
        {VTLocalPaths::appendPathComponent("/home/anna/", "Library/"), "/home/anna/Library"},
        {VTLocalPaths::appendPathComponent("/home/anna", ""), "/home/anna"},
        // The local domain has no Documents folder, and there is no domain 4.
        {VTLocalPaths::documentDirectory(false), std::nullopt},
        {VTLocalPaths::pathForDirectory(5, 4), std::nullopt},
        {VTLocalPaths::pathForDirectory(99, 1), std::nullopt},
    };
    for (const auto &[actual, expected] : folders) {
        EXPECT_EQ(actual, expected);
    }
    // The trash follows XDG_DATA_HOME; root's own says nothing about the console user's.
    sandbox.setEnv("XDG_DATA_HOME", sandbox.path() + "/data");
    EXPECT_EQ(VTLocalPaths::trashDirectory(), some(sandbox.path() + "/data/Trash/files"));

    const std::tuple<QString, std::optional<QString>, std::optional<QString>> roots[] = {
        {"/root", "anna", annaHome + "/Library"},
        {"/var/root", "anna", annaHome + "/Library"},
        {sandbox.path() + "/roothome", "anna", annaHome + "/Library"},
        {"/private/var/root", "anna", annaHome + "/t/Library"},
        {"/root", "loginwindow", std::nullopt},
        {"/root", std::nullopt, std::nullopt},
    };
    for (const auto &[home, console, library] : roots) {
        // Root, with its own home where the platform puts it.
        identity->uid = 0;
        identity->name = "root";
        identity->home = home;
        identity->console = console;
        SCOPED_TRACE(home.toStdString() + " " + console.value_or("none").toStdString());
        EXPECT_EQ(VTLocalPaths::libraryDirectory(true), library);
        const bool someone = library.has_value();
        EXPECT_EQ(VTLocalPaths::prefsDirectory(true),
                  someone ? some(*library + "/Preferences") : std::nullopt);
        EXPECT_EQ(VTLocalPaths::userDirectory(), someone ? some(annaHome) : std::nullopt);
        EXPECT_EQ(VTLocalPaths::username(), someone ? console : std::nullopt);
        EXPECT_EQ(VTLocalPaths::currentConsoleUser(), someone ? console : std::nullopt);
        EXPECT_EQ(VTLocalPaths::trashDirectory(),
                  someone ? some(annaHome + "/.local/share/Trash/files") : std::nullopt);
        EXPECT_EQ(VTLocalPaths::libraryDirectory(false), some(root + "/Library"));
    }
}

TEST_F(VTLocalPathsTest, SystemDirectoryGuard)
{
    // Backups live on a volume of their own.
    EXPECT_TRUE(
        VTLocalPaths::isPathOnTimeMachineVolume("/Volumes/Backup/Backups.backupdb/mac/Latest"));
    EXPECT_FALSE(VTLocalPaths::isPathOnTimeMachineVolume("/Backups.backupdb"));
    EXPECT_FALSE(VTLocalPaths::isPathOnTimeMachineVolume("/Volumes/Backup/Backups.backupdb2/x"));
    const QString root = sandbox.localRoot();
    // Path, isPathSystemDirectory loosely and exactly.
    const std::tuple<QString, bool, bool> cases[] = {
        {"/", true, true},
        {"", false, false},
        {"/usr/local/bin", true, false},
        {"/variant", true, false}, // a string prefix, not a path component
        {"/Volumes", true, true},
        {"/Users/Shared", true, true},
        {"/Users/Shared/", false, false}, // cut by two characters to /Users/Share
        {"/System/Library/Frameworks", true, false},
        {annaHome, true, true},
        {annaHome + "/", false, false},
        {annaHome + "/Library", true, true},
        {annaHome + "/Library/Preferences", true, true},
        {annaHome + "/Library/LaunchAgents", false, false},
        {root + "/Library", true, true},
        {root + "/System/Library", true, true},
        {root + "/Library/LaunchDaemons", false, false},
        // The Linux additions: whole folders exactly, system trees by prefix only.
        {"/home", true, true},
        {"/home/someone", false, false},
        {"/media", true, true},
        {"/etc/passwd", true, false},
        {"/tmp/file", false, false},
    };
    for (const auto &[path, loose, exact] : cases) {
        EXPECT_EQ(VTLocalPaths::isPathSystemDirectory(path), loose) << path.toStdString();
        EXPECT_EQ(VTLocalPaths::isPathSystemDirectory(path, true), exact) << path.toStdString();
    }
}

TEST_F(VTLocalPathsTest, StagingHappensInAFolderOfTheUsersAlone)
{
    const QString shared = sandbox.mkdir("tmp");
    ::chmod(QFile::encodeName(shared).constData(), 01777);
    sandbox.setEnv("TMPDIR", shared);
    const QString runtime = sandbox.mkdir("runtime");
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
    // Temporary files are unique names in that folder, not made.
    const QString file = VTLocalPaths::tempFile();
    EXPECT_NE(file, VTLocalPaths::tempFile());
    EXPECT_TRUE(file.startsWith(chosen + "/")) << file.toStdString();
    EXPECT_FALSE(QFileInfo::exists(file));
}
