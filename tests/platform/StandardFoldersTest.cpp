// StandardFolders, Environment and PosixIdentity: the folder table for the user, local and
// system domains, the moved local root, and who the user and the console user are.
#include "platform/StandardFolders.h"
#include "platform/Environment.h"
#include "platform/PosixIdentity.h"

#include "PrintQt.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

using SF = StandardFolders;

QStringList paths(int directory, int domains)
{
    return SF::searchPaths(directory, domains);
}

class StandardFoldersTest : public ::testing::Test
{
protected:
    QString home() const { return m_sandbox.home(); }
    QString root() const { return m_sandbox.localRoot(); }
    Sandbox m_sandbox;
};

} // namespace

// Each folder in the user's home, under the local root and in the system domain (which
// has only the library); the local domain has no documents and no desktop.
TEST_F(StandardFoldersTest, EveryFolderOfEachDomain)
{
    const std::tuple<int, const char *, bool> folders[] = {
        {SF::ApplicationDirectory, "/Applications", true},
        {SF::AdminApplicationDirectory, "/Applications/Utilities", true},
        {SF::LibraryDirectory, "/Library", true},
        {SF::DocumentationDirectory, "/Library/Documentation", true},
        {SF::DocumentDirectory, "/Documents", false},
        {SF::DesktopDirectory, "/Desktop", false},
        {SF::CachesDirectory, "/Library/Caches", true},
        {SF::ApplicationSupportDirectory, "/Library/Application Support", true},
    };
    for (const auto &[directory, folder, local] : folders) {
        EXPECT_EQ(paths(directory, SF::UserDomain), QStringList{home() + QLatin1String(folder)});
        EXPECT_EQ(paths(directory, SF::LocalDomain),
                  local ? QStringList{root() + QLatin1String(folder)} : QStringList{});
        EXPECT_EQ(paths(directory, SF::SystemDomain), directory == SF::LibraryDirectory
                                                          ? QStringList{root() + "/System/Library"}
                                                          : QStringList{})
            << directory;
    }
}

TEST_F(StandardFoldersTest, SeveralDomainsInOrderAndUnknownDirectories)
{
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain | SF::LocalDomain | SF::SystemDomain),
              (QStringList{home() + "/Library", root() + "/Library", root() + "/System/Library"}));
    EXPECT_EQ(paths(SF::ApplicationDirectory, SF::UserDomain | SF::LocalDomain | SF::SystemDomain),
              (QStringList{home() + "/Applications", root() + "/Applications"}));
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain | SF::LocalDomain),
              QStringList{home() + "/Documents"});
    EXPECT_EQ(paths(99, SF::UserDomain | SF::LocalDomain | SF::SystemDomain), QStringList{});
    EXPECT_EQ(paths(SF::LibraryDirectory, 0), QStringList{});
}

TEST_F(StandardFoldersTest, XdgDocumentsAndDesktopFolders)
{
    TestFiles::write(
        home() + "/.config/user-dirs.dirs",
        "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\nXDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n");
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain), QStringList{home() + "/Dokumente"});
    EXPECT_EQ(paths(SF::DesktopDirectory, SF::UserDomain), QStringList{home() + "/Schreibtisch"});
}

TEST_F(StandardFoldersTest, HomeWithTrailingSlashOrRoot)
{
    m_sandbox.setEnv("HOME", home() + "/");
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain), QStringList{home() + "/Library"});
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain), QStringList{home() + "/Documents"});
    m_sandbox.setEnv("HOME", QStringLiteral("/"));
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain), QStringList{"/Library"});
    EXPECT_EQ(paths(SF::ApplicationDirectory, SF::UserDomain), QStringList{"/Applications"});
}

TEST_F(StandardFoldersTest, NoHomeMeansNoUserFolders)
{
    FakeIdentity::Scoped identity;
    identity->home = std::nullopt;
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain), QStringList{});
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain | SF::LocalDomain),
              QStringList{root() + "/Library"});
    identity->home = QStringLiteral("/elsewhere/bob");
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain), QStringList{"/elsewhere/bob/Library"});
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain),
              QStringList{"/elsewhere/bob/Documents"});
}

TEST_F(StandardFoldersTest, LocalRootVariable)
{
    m_sandbox.setEnv("VT_LOCAL_ROOT", std::nullopt);
    EXPECT_EQ(Environment::localRoot(), QString());
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::LocalDomain | SF::SystemDomain),
              (QStringList{"/Library", "/System/Library"}));
    m_sandbox.setEnv("VT_LOCAL_ROOT", QStringLiteral("/"));
    EXPECT_EQ(Environment::localRoot(), QString());
    EXPECT_EQ(paths(SF::ApplicationDirectory, SF::LocalDomain), QStringList{"/Applications"});
    m_sandbox.setEnv("VT_LOCAL_ROOT", QStringLiteral("///"));
    EXPECT_EQ(Environment::localRoot(), QString());
    m_sandbox.setEnv("VT_LOCAL_ROOT", QString());
    EXPECT_EQ(Environment::localRoot(), QString());
    m_sandbox.setEnv("VT_LOCAL_ROOT", root() + "///");
    EXPECT_EQ(Environment::localRoot(), root());
    EXPECT_EQ(Environment::localPath(QStringLiteral("/Library/LaunchDaemons")),
              root() + "/Library/LaunchDaemons");
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::LocalDomain), QStringList{root() + "/Library"});
}

TEST(EnvironmentTest, ValueDistinguishesUnsetFromEmpty)
{
    Sandbox sandbox;
    sandbox.setEnv("VT_TEST_VARIABLE", std::nullopt);
    EXPECT_FALSE(Environment::value("VT_TEST_VARIABLE"));
    sandbox.setEnv("VT_TEST_VARIABLE", QString());
    ASSERT_TRUE(Environment::value("VT_TEST_VARIABLE"));
    EXPECT_TRUE(Environment::value("VT_TEST_VARIABLE")->isEmpty());
    sandbox.setEnv("VT_TEST_VARIABLE", QString::fromUtf8("caf\xc3\xa9"));
    EXPECT_EQ(Environment::value("VT_TEST_VARIABLE"),
              std::optional<QString>(QString::fromUtf8("caf\xc3\xa9")));
}

TEST(PosixIdentityTest, ConsoleUserVariable)
{
    Sandbox sandbox;
    PosixIdentity identity;
    sandbox.setEnv("VT_CONSOLE_USER", QString());
    EXPECT_EQ(identity.consoleUser(), std::nullopt) << "set and empty: nobody is logged in";
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("bob"));
    EXPECT_EQ(identity.consoleUser(), std::optional<QString>(QStringLiteral("bob")));
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("loginwindow"));
    EXPECT_EQ(identity.consoleUser(), std::optional<QString>(QStringLiteral("loginwindow")));
}

TEST(PosixIdentityTest, ConsoleHomeIsUsedForTheConsoleUser)
{
    Sandbox sandbox;
    PosixIdentity identity;
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("nosuchuser-kairo"));
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.path() + QStringLiteral("/homes/bob"));
    EXPECT_EQ(identity.homeDirectoryForUser(QStringLiteral("nosuchuser-kairo")),
              std::optional<QString>(sandbox.path() + QStringLiteral("/homes/bob")));
    // Other users come from the password database.
    EXPECT_EQ(identity.homeDirectoryForUser(QStringLiteral("root")),
              std::optional<QString>(QStringLiteral("/root")));
    EXPECT_EQ(identity.homeDirectoryForUser(QStringLiteral("another-nosuchuser")), std::nullopt);
    EXPECT_EQ(identity.homeDirectoryForUser(QString()), std::nullopt);
    // Without VT_CONSOLE_HOME the console user's home is looked up too.
    sandbox.setEnv("VT_CONSOLE_HOME", std::nullopt);
    EXPECT_EQ(identity.homeDirectoryForUser(QStringLiteral("nosuchuser-kairo")), std::nullopt);
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("root"));
    sandbox.setEnv("VT_CONSOLE_HOME", QString());
    EXPECT_EQ(identity.homeDirectoryForUser(QStringLiteral("root")),
              std::optional<QString>(QStringLiteral("/root")));
}

TEST(PosixIdentityTest, OwnIdentityAndHome)
{
    Sandbox sandbox;
    PosixIdentity identity;
    EXPECT_EQ(identity.realUserId(), getuid());
    EXPECT_EQ(identity.isRoot(), getuid() == 0);
    EXPECT_FALSE(identity.userName().isEmpty());
    EXPECT_EQ(identity.userIdForName(identity.userName()), std::optional<uid_t>(getuid()));
    EXPECT_EQ(identity.userIdForName(QStringLiteral("root")), std::optional<uid_t>(0));
    EXPECT_EQ(identity.userIdForName(QStringLiteral("nosuchuser-kairo")), std::nullopt);
    EXPECT_EQ(identity.homeDirectory(), std::optional<QString>(sandbox.home()));
    // HOME empty or unset: the password database.
    sandbox.setEnv("HOME", QString());
    const auto fromDatabase = identity.homeDirectory();
    ASSERT_TRUE(fromDatabase);
    EXPECT_FALSE(fromDatabase->isEmpty());
    sandbox.setEnv("HOME", std::nullopt);
    EXPECT_EQ(identity.homeDirectory(), fromDatabase);
}
