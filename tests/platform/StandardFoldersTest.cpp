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

// The user's folders follow HOME (a trailing slash or "/" included), else the identity's
// home, and the XDG names of documents and desktop; without a home there are none.
TEST_F(StandardFoldersTest, TheUsersFolders)
{
    TestFiles::write(
        home() + "/.config/user-dirs.dirs",
        "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\nXDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n");
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain), QStringList{home() + "/Dokumente"});
    EXPECT_EQ(paths(SF::DesktopDirectory, SF::UserDomain), QStringList{home() + "/Schreibtisch"});
    const QString sandboxHome = home();
    m_sandbox.setEnv("HOME", sandboxHome + "/");
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain), QStringList{sandboxHome + "/Library"});
    m_sandbox.setEnv("HOME", "/");
    EXPECT_EQ(paths(SF::ApplicationDirectory, SF::UserDomain), QStringList{"/Applications"});

    FakeIdentity::Scoped identity;
    identity->home = std::nullopt;
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain | SF::LocalDomain),
              QStringList{root() + "/Library"});
    identity->home = "/elsewhere/bob";
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::UserDomain),
              QStringList{"/elsewhere/bob/Documents"});
}

// An unset, empty or "/" local root is none; slashes at its end do not count.
TEST_F(StandardFoldersTest, LocalRootVariable)
{
    for (const std::optional<QString> &unset :
         {std::optional<QString>(), std::optional<QString>(""), std::optional<QString>("/"),
          std::optional<QString>("///")}) {
        m_sandbox.setEnv("VT_LOCAL_ROOT", unset);
        EXPECT_EQ(Environment::localRoot(), QString());
    }
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::LocalDomain | SF::SystemDomain),
              (QStringList{"/Library", "/System/Library"}));
    EXPECT_EQ(paths(SF::DocumentDirectory, SF::LocalDomain | SF::SystemDomain), QStringList{});
    const QString sandboxRoot = root();
    m_sandbox.setEnv("VT_LOCAL_ROOT", sandboxRoot + "///");
    EXPECT_EQ(Environment::localRoot(), sandboxRoot);
    // Several domains answer in the order user, local, system.
    EXPECT_EQ(paths(SF::LibraryDirectory, SF::UserDomain | SF::LocalDomain | SF::SystemDomain),
              (QStringList{home() + "/Library", sandboxRoot + "/Library",
                           sandboxRoot + "/System/Library"}));
    EXPECT_EQ(Environment::localPath("/Library/LaunchDaemons"),
              sandboxRoot + "/Library/LaunchDaemons");
}

// An environment variable set empty is not an unset one; an empty console user means
// nobody is logged in; the console user's home may be given, others come from the
// password database.
TEST(PosixIdentityTest, VariablesAndTheConsoleUser)
{
    Sandbox sandbox;
    PosixIdentity identity;
    sandbox.setEnv("VT_TEST_VARIABLE", std::nullopt);
    EXPECT_FALSE(Environment::value("VT_TEST_VARIABLE"));
    sandbox.setEnv("VT_TEST_VARIABLE", QString::fromUtf8("caf\xc3\xa9"));
    EXPECT_EQ(Environment::value("VT_TEST_VARIABLE"),
              std::optional<QString>(QString::fromUtf8("caf\xc3\xa9")));
    sandbox.setEnv("VT_CONSOLE_USER", QString());
    EXPECT_EQ(identity.consoleUser(), std::nullopt);
    EXPECT_EQ(Environment::value("VT_CONSOLE_USER"), std::optional<QString>(""));

    sandbox.setEnv("VT_CONSOLE_USER", "nosuchuser-kairo");
    EXPECT_EQ(identity.consoleUser(), std::optional<QString>("nosuchuser-kairo"));
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.path() + "/homes/bob");
    EXPECT_EQ(identity.homeDirectoryForUser("nosuchuser-kairo"),
              std::optional<QString>(sandbox.path() + "/homes/bob"));
    EXPECT_EQ(identity.homeDirectoryForUser("root"), std::optional<QString>("/root"));
    EXPECT_EQ(identity.homeDirectoryForUser("another-nosuchuser"), std::nullopt);
    EXPECT_EQ(identity.homeDirectoryForUser(QString()), std::nullopt);
    sandbox.setEnv("VT_CONSOLE_HOME", std::nullopt);
    EXPECT_EQ(identity.homeDirectoryForUser("nosuchuser-kairo"), std::nullopt);
    sandbox.setEnv("VT_CONSOLE_USER", "root");
    sandbox.setEnv("VT_CONSOLE_HOME", QString());
    EXPECT_EQ(identity.homeDirectoryForUser("root"), std::optional<QString>("/root"));
}

TEST(PosixIdentityTest, OwnIdentityAndHome)
{
    Sandbox sandbox;
    PosixIdentity identity;
    EXPECT_EQ(identity.userIdForName(identity.userName()), std::optional<uid_t>(getuid()));
    EXPECT_EQ(identity.userIdForName("nosuchuser-kairo"), std::nullopt);
    EXPECT_EQ(identity.homeDirectory(), std::optional<QString>(sandbox.home()));
    // HOME empty or unset: the password database.
    sandbox.setEnv("HOME", QString());
    const auto fromDatabase = identity.homeDirectory();
    ASSERT_TRUE(fromDatabase);
    EXPECT_FALSE(fromDatabase->isEmpty());
    sandbox.setEnv("HOME", std::nullopt);
    EXPECT_EQ(identity.homeDirectory(), fromDatabase);
}
