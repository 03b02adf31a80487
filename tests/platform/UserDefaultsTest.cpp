// UserDefaults: the user's file, then the machine-wide file, then the registered defaults;
// typed getters with Foundation's conversions; atomic writes that keep other writers' keys.
#include "platform/UserDefaults.h"
#include "platform/PropertyList.h"

#include "PrintQt.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

class UserDefaultsTest : public ::testing::Test
{
protected:
    QString userFile() const
    {
        return m_sandbox.home() + "/Library/Preferences/com.example.App.plist";
    }
    QString machineFile() const
    {
        return m_sandbox.localRoot() + "/Library/Preferences/com.example.App.plist";
    }
    static void writeDict(const QString &path, const PlistDict &dict)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        ASSERT_TRUE(PropertyList::writeXml(PlistValue(dict), path));
    }
    static PlistDict fileContent(const QString &path)
    {
        return PropertyList::readDictionary(path).value_or(PlistDict());
    }

    Sandbox m_sandbox;
};

} // namespace

TEST_F(UserDefaultsTest, LookupOrderIsUserThenMachineThenRegistered)
{
    writeDict(userFile(), {{"shared", PlistValue("user")}, {"userOnly", PlistValue(1)}});
    writeDict(machineFile(), {{"shared", PlistValue("machine")},
                              {"machineOnly", PlistValue(2)},
                              {"registeredToo", PlistValue("machine")}});
    UserDefaults defaults(userFile(), machineFile());
    defaults.registerDefaults({{"shared", PlistValue("registered")},
                               {"registeredToo", PlistValue("registered")},
                               {"registeredOnly", PlistValue(3)}});

    EXPECT_EQ(defaults.objectForKey("shared").string(), "user");
    EXPECT_EQ(defaults.objectForKey("userOnly").integerValue(), 1);
    EXPECT_EQ(defaults.objectForKey("machineOnly").integerValue(), 2);
    EXPECT_EQ(defaults.objectForKey("registeredToo").string(), "machine");
    EXPECT_EQ(defaults.objectForKey("registeredOnly").integerValue(), 3);
    EXPECT_FALSE(defaults.objectForKey("nowhere").isValid());

    // Removing the user's value uncovers the machine's, then the registered one.
    ASSERT_TRUE(defaults.removeObjectForKey("shared"));
    EXPECT_EQ(defaults.objectForKey("shared").string(), "machine");
    writeDict(machineFile(), {});
    EXPECT_EQ(defaults.objectForKey("shared").string(), "registered");

    // Registering again replaces a registered value.
    defaults.registerDefaults({{"registeredOnly", PlistValue(4)}});
    EXPECT_EQ(defaults.objectForKey("registeredOnly").integerValue(), 4);
}

TEST_F(UserDefaultsTest, MissingOrBrokenFilesAreEmpty)
{
    UserDefaults defaults(userFile(), machineFile());
    defaults.registerDefaults({{"k", PlistValue("registered")}});
    EXPECT_EQ(defaults.objectForKey("k").string(), "registered");
    TestFiles::write(userFile(), "this is not a property list");
    TestFiles::write(machineFile(), PropertyList::toXml(PlistValue(PlistArray{PlistValue("k")})));
    EXPECT_EQ(defaults.objectForKey("k").string(), "registered");

    UserDefaults nowhere{QString(), QString()};
    EXPECT_FALSE(nowhere.objectForKey("k").isValid());
    EXPECT_FALSE(nowhere.setObject(PlistValue(1), "k"));
    EXPECT_FALSE(nowhere.setObjectForAnyUser(PlistValue(1), "k"));
}

TEST_F(UserDefaultsTest, TypedGetters)
{
    writeDict(userFile(), {{"real", PlistValue(3.75)},
                           {"YES", PlistValue("YES")},
                           {"list", PlistValue(PlistArray{PlistValue(1)})}});
    // Key, boolForKey, integerForKey, stringForKey; the conversions themselves are
    // PlistValue's.
    const std::tuple<const char *, bool, qint64, std::optional<QString>> cases[] = {
        {"real", true, 3, "3.75"},
        {"YES", true, 0, "YES"},
        {"list", false, 0, std::nullopt},
        {"missing", false, 0, std::nullopt},
    };
    UserDefaults d(userFile(), machineFile());
    for (const auto &[key, boolean, integer, string] : cases) {
        EXPECT_EQ(d.boolForKey(QLatin1String(key)), boolean) << key;
        EXPECT_EQ(d.integerForKey(QLatin1String(key)), integer) << key;
        EXPECT_EQ(d.stringForKey(QLatin1String(key)), string) << key;
    }
}

// Writes go to the user's file atomically and keep what another process wrote there
// meanwhile; our reads see its values. The machine-wide file is written only for any user.
TEST_F(UserDefaultsTest, WritesKeepOtherWritersKeys)
{
    UserDefaults d(userFile(), machineFile());
    ASSERT_TRUE(d.setObject(PlistValue("mine"), "a"));
    ASSERT_TRUE(d.setObject(PlistValue(true), "flag"));
    ASSERT_TRUE(d.setObject(PlistValue("changed"), "a"));
    EXPECT_EQ(d.objectForKey("a").string(), "changed");
    EXPECT_TRUE(fileContent(userFile()).value("flag").isBoolean());
    EXPECT_TRUE(TestFiles::read(userFile()).startsWith("<?xml"));
    EXPECT_FALSE(QFileInfo::exists(machineFile()));
    EXPECT_EQ(QDir(QFileInfo(userFile()).absolutePath())
                  .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{"com.example.App.plist"});
    ASSERT_TRUE(d.removeObjectForKey("flag"));
    EXPECT_FALSE(d.objectForKey("flag").isValid());
    EXPECT_TRUE(d.removeObjectForKey("never there"));

    PlistDict other = fileContent(userFile());
    other.insert("b", PlistValue("theirs"));
    writeDict(userFile(), other);
    EXPECT_EQ(d.objectForKey("b").string(), "theirs");
    ASSERT_TRUE(d.setObject(PlistValue("mine too"), "c"));
    EXPECT_EQ(fileContent(userFile()).keys(), (QStringList{"a", "b", "c"}));
    EXPECT_EQ(fileContent(userFile()).value("b").string(), "theirs");

    ASSERT_TRUE(d.setObjectForAnyUser(PlistValue("everyone"), "k"));
    ASSERT_TRUE(d.setObjectForAnyUser(PlistValue(5), "n"));
    EXPECT_EQ(fileContent(machineFile()).keys(), (QStringList{"k", "n"}));
    EXPECT_EQ(d.objectForKey("k").string(), "everyone");
    EXPECT_FALSE(fileContent(userFile()).contains("k"));
}

// A change by another process is seen even when the new file has the same size and the
// same modification time as the old one (a fast writer, a coarse clock).
TEST_F(UserDefaultsTest, SeesAnotherWriterEvenWithTheSameSizeAndTime)
{
    UserDefaults d(userFile(), machineFile());
    writeDict(userFile(), {{"k", PlistValue("AAAA")}});
    struct stat before
    {};
    ASSERT_EQ(::stat(QFile::encodeName(userFile()).constData(), &before), 0);
    EXPECT_EQ(d.objectForKey("k").string(), "AAAA");

    writeDict(userFile(), {{"k", PlistValue("BBBB")}});
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(userFile()).constData(), times, 0), 0);
    EXPECT_EQ(d.objectForKey("k").string(), "BBBB");

    writeDict(userFile(), {{"k", PlistValue(2)}});
    d.synchronize();
    EXPECT_EQ(d.integerForKey("k"), 2);
    QFile::remove(userFile());
    EXPECT_EQ(d.integerForKey("k"), 0);
}
