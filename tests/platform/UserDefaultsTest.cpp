// UserDefaults: the user's file, then the machine-wide file, then the registered defaults;
// typed getters with Foundation's conversions; atomic writes that keep other writers' keys.
#include "platform/UserDefaults.h"
#include "platform/Bundle.h"
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
        return m_sandbox.home() + QStringLiteral("/Library/Preferences/com.example.App.plist");
    }
    QString machineFile() const
    {
        return m_sandbox.localRoot() + QStringLiteral("/Library/Preferences/com.example.App.plist");
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

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

TEST_F(UserDefaultsTest, LookupOrderIsUserThenMachineThenRegistered)
{
    writeDict(userFile(), {{QStringLiteral("shared"), PlistValue("user")},
                           {QStringLiteral("userOnly"), PlistValue(1)}});
    writeDict(machineFile(), {{QStringLiteral("shared"), PlistValue("machine")},
                              {QStringLiteral("machineOnly"), PlistValue(2)},
                              {QStringLiteral("registeredToo"), PlistValue("machine")}});
    UserDefaults defaults(userFile(), machineFile());
    defaults.registerDefaults({{QStringLiteral("shared"), PlistValue("registered")},
                               {QStringLiteral("registeredToo"), PlistValue("registered")},
                               {QStringLiteral("registeredOnly"), PlistValue(3)}});

    EXPECT_EQ(defaults.objectForKey(QStringLiteral("shared")).string(), QStringLiteral("user"));
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("userOnly")).integerValue(), 1);
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("machineOnly")).integerValue(), 2);
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("registeredToo")).string(),
              QStringLiteral("machine"));
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("registeredOnly")).integerValue(), 3);
    EXPECT_FALSE(defaults.objectForKey(QStringLiteral("nowhere")).isValid());

    // Removing the user's value uncovers the machine's, then the registered one.
    ASSERT_TRUE(defaults.removeObjectForKey(QStringLiteral("shared")));
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("shared")).string(), QStringLiteral("machine"));
    writeDict(machineFile(), {});
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("shared")).string(),
              QStringLiteral("registered"));

    // Registering again replaces a registered value.
    defaults.registerDefaults({{QStringLiteral("registeredOnly"), PlistValue(4)}});
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("registeredOnly")).integerValue(), 4);
}

TEST_F(UserDefaultsTest, MissingOrBrokenFilesAreEmpty)
{
    UserDefaults defaults(userFile(), machineFile());
    defaults.registerDefaults({{QStringLiteral("k"), PlistValue("registered")}});
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("k")).string(), QStringLiteral("registered"));
    TestFiles::write(userFile(), "this is not a property list");
    TestFiles::write(machineFile(), PropertyList::toXml(PlistValue(PlistArray{PlistValue("k")})));
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("k")).string(), QStringLiteral("registered"));
    // A damaged file is kept aside, not lost, when a key is set.
    EXPECT_TRUE(defaults.setObject(PlistValue(1), QStringLiteral("k")));
    EXPECT_EQ(TestFiles::read(userFile() + ".damaged"), QByteArray("this is not a property list"));
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("k")).integerValue(), 1);

    UserDefaults nowhere{QString(), QString()};
    EXPECT_FALSE(nowhere.objectForKey(QStringLiteral("k")).isValid());
    EXPECT_FALSE(nowhere.setObject(PlistValue(1), QStringLiteral("k")));
    EXPECT_FALSE(nowhere.setObjectForAnyUser(PlistValue(1), QStringLiteral("k")));
}

TEST_F(UserDefaultsTest, TypedGetters)
{
    struct Case
    {
        const char *key;
        PlistValue value;
        bool boolean;
        qint64 integer;
        std::optional<QString> string;
    };
    const Case cases[] = {
        {"two", PlistValue(2), true, 2, QStringLiteral("2")},
        {"zero", PlistValue(0), false, 0, QStringLiteral("0")},
        {"real", PlistValue(3.75), true, 3, QStringLiteral("3.75")},
        {"zeroReal", PlistValue(0.0), false, 0, QStringLiteral("0")},
        {"true", PlistValue(true), true, 1, QStringLiteral("1")},
        {"false", PlistValue(false), false, 0, QStringLiteral("0")},
        {"YES", PlistValue("YES"), true, 0, QStringLiteral("YES")},
        {"no", PlistValue("no"), false, 0, QStringLiteral("no")},
        {"text", PlistValue(" 42abc"), true, 42, QStringLiteral(" 42abc")},
        {"list", PlistValue(PlistArray{PlistValue(1)}), false, 0, std::nullopt},
        {"dict", PlistValue(PlistDict{{QStringLiteral("a"), PlistValue(1)}}), false, 0,
         std::nullopt},
        {"missing", PlistValue(), false, 0, std::nullopt},
    };
    PlistDict content;
    for (const Case &c : cases) {
        if (c.value.isValid()) {
            content.insert(QLatin1String(c.key), c.value);
        }
    }
    writeDict(userFile(), content);
    UserDefaults d(userFile(), machineFile());
    for (const Case &c : cases) {
        EXPECT_EQ(d.boolForKey(QLatin1String(c.key)), c.boolean) << c.key;
        EXPECT_EQ(d.integerForKey(QLatin1String(c.key)), c.integer) << c.key;
        EXPECT_EQ(d.stringForKey(QLatin1String(c.key)), c.string) << c.key;
    }
}

TEST_F(UserDefaultsTest, SetObjectWritesTheUserFileAtomically)
{
    UserDefaults d(userFile(), machineFile());
    ASSERT_FALSE(QFileInfo::exists(userFile()));
    ASSERT_TRUE(d.setObject(PlistValue("value"), QStringLiteral("key")));
    ASSERT_TRUE(d.setObject(PlistValue(true), QStringLiteral("flag")));
    ASSERT_TRUE(d.setObject(PlistValue("changed"), QStringLiteral("key")));
    EXPECT_EQ(d.objectForKey(QStringLiteral("key")).string(), QStringLiteral("changed"));

    const PlistDict written = fileContent(userFile());
    EXPECT_EQ(written.keys(), (QStringList{QStringLiteral("key"), QStringLiteral("flag")}));
    EXPECT_TRUE(written.value(QStringLiteral("flag")).isBoolean());
    EXPECT_TRUE(TestFiles::read(userFile()).startsWith("<?xml"));
    EXPECT_FALSE(QFileInfo::exists(machineFile()));
    EXPECT_EQ(entries(QFileInfo(userFile()).absolutePath()),
              QStringList{QStringLiteral("com.example.App.plist")});

    ASSERT_TRUE(d.removeObjectForKey(QStringLiteral("key")));
    EXPECT_FALSE(d.objectForKey(QStringLiteral("key")).isValid());
    EXPECT_EQ(fileContent(userFile()).keys(), QStringList{QStringLiteral("flag")});
    EXPECT_TRUE(d.removeObjectForKey(QStringLiteral("never there")));
}

// Another process writes the same file between our writes: its keys stay, and our reads
// see its values.
TEST_F(UserDefaultsTest, KeepsKeysAnotherProcessWrote)
{
    UserDefaults d(userFile(), machineFile());
    ASSERT_TRUE(d.setObject(PlistValue("mine"), QStringLiteral("a")));
    EXPECT_EQ(d.objectForKey(QStringLiteral("a")).string(), QStringLiteral("mine"));

    PlistDict other = fileContent(userFile());
    other.insert(QStringLiteral("b"), PlistValue("theirs"));
    writeDict(userFile(), other);
    EXPECT_EQ(d.objectForKey(QStringLiteral("b")).string(), QStringLiteral("theirs"));

    ASSERT_TRUE(d.setObject(PlistValue("mine too"), QStringLiteral("c")));
    const PlistDict content = fileContent(userFile());
    EXPECT_EQ(content.keys(),
              (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    EXPECT_EQ(content.value(QStringLiteral("b")).string(), QStringLiteral("theirs"));

    // Two instances (two processes) writing in turn keep each other's keys.
    UserDefaults second(userFile(), machineFile());
    ASSERT_TRUE(second.setObject(PlistValue(1), QStringLiteral("d")));
    ASSERT_TRUE(d.setObject(PlistValue(2), QStringLiteral("e")));
    EXPECT_EQ(fileContent(userFile()).keys(),
              (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                           QStringLiteral("d"), QStringLiteral("e")}));
    EXPECT_EQ(d.objectForKey(QStringLiteral("d")).integerValue(), 1);
    EXPECT_EQ(second.objectForKey(QStringLiteral("e")).integerValue(), 2);
}

// A change by another process is seen even when the new file has the same size and the
// same modification time as the old one (a fast writer, a coarse clock).
TEST_F(UserDefaultsTest, SeesAnotherWriterEvenWithTheSameSizeAndTime)
{
    UserDefaults d(userFile(), machineFile());
    writeDict(userFile(), {{QStringLiteral("k"), PlistValue("AAAA")}});
    struct stat before
    {};
    ASSERT_EQ(::stat(QFile::encodeName(userFile()).constData(), &before), 0);
    EXPECT_EQ(d.objectForKey(QStringLiteral("k")).string(), QStringLiteral("AAAA"));

    writeDict(userFile(), {{QStringLiteral("k"), PlistValue("BBBB")}});
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(userFile()).constData(), times, 0), 0);
    struct stat after
    {};
    ASSERT_EQ(::stat(QFile::encodeName(userFile()).constData(), &after), 0);
    ASSERT_EQ(after.st_size, before.st_size);
    EXPECT_EQ(d.objectForKey(QStringLiteral("k")).string(), QStringLiteral("BBBB"));

    writeDict(userFile(), {{QStringLiteral("k"), PlistValue(2)}});
    d.synchronize();
    EXPECT_EQ(d.integerForKey(QStringLiteral("k")), 2);
    QFile::remove(userFile());
    EXPECT_EQ(d.integerForKey(QStringLiteral("k")), 0);
}

TEST_F(UserDefaultsTest, SetObjectForAnyUserWritesTheMachineFile)
{
    UserDefaults d(userFile(), machineFile());
    ASSERT_TRUE(d.setObjectForAnyUser(PlistValue("everyone"), QStringLiteral("k")));
    EXPECT_TRUE(QFileInfo::exists(machineFile()));
    EXPECT_FALSE(QFileInfo::exists(userFile()));
    EXPECT_EQ(fileContent(machineFile()).value(QStringLiteral("k")).string(),
              QStringLiteral("everyone"));
    EXPECT_EQ(d.objectForKey(QStringLiteral("k")).string(), QStringLiteral("everyone"));

    ASSERT_TRUE(d.setObject(PlistValue("just me"), QStringLiteral("k")));
    EXPECT_EQ(d.objectForKey(QStringLiteral("k")).string(), QStringLiteral("just me"));
    EXPECT_EQ(fileContent(machineFile()).value(QStringLiteral("k")).string(),
              QStringLiteral("everyone"));

    // A second machine-wide key keeps the first.
    ASSERT_TRUE(d.setObjectForAnyUser(PlistValue(5), QStringLiteral("n")));
    EXPECT_EQ(fileContent(machineFile()).keys(),
              (QStringList{QStringLiteral("k"), QStringLiteral("n")}));
}

TEST_F(UserDefaultsTest, StandardDefaultsFollowHomeAndLocalRoot)
{
    Bundle::setMainBundlePath(std::nullopt);
    UserDefaults &standard = UserDefaults::standardUserDefaults();
    EXPECT_EQ(standard.userFile(),
              m_sandbox.home() +
                  QStringLiteral("/Library/Preferences/com.vantreel.KairoPlanner.plist"));
    EXPECT_EQ(standard.machineFile(),
              m_sandbox.localRoot() +
                  QStringLiteral("/Library/Preferences/com.vantreel.KairoPlanner.plist"));
    EXPECT_EQ(&UserDefaults::standardUserDefaults(), &standard);

    ASSERT_TRUE(standard.setObject(PlistValue("1"), QStringLiteral("SUCheckAtStartup")));
    EXPECT_TRUE(QFileInfo::exists(standard.userFile()));
    ASSERT_TRUE(
        standard.setObjectForAnyUser(PlistValue(true), QStringLiteral("requireAdminPassword")));
    EXPECT_TRUE(QFileInfo::exists(standard.machineFile()));

    // Another home and another local root: after a reset the shared instance follows them.
    const QString otherHome = m_sandbox.mkdir(QStringLiteral("other/home"));
    const QString otherRoot = m_sandbox.mkdir(QStringLiteral("other/root/"));
    m_sandbox.setEnv("HOME", otherHome);
    m_sandbox.setEnv("VT_LOCAL_ROOT", otherRoot + QStringLiteral("//"));
    UserDefaults::resetStandardUserDefaults();
    UserDefaults &moved = UserDefaults::standardUserDefaults();
    EXPECT_EQ(moved.userFile(),
              otherHome + QStringLiteral("/Library/Preferences/com.vantreel.KairoPlanner.plist"));
    EXPECT_EQ(moved.machineFile(),
              QDir::cleanPath(otherRoot) +
                  QStringLiteral("/Library/Preferences/com.vantreel.KairoPlanner.plist"));
    EXPECT_FALSE(moved.objectForKey(QStringLiteral("SUCheckAtStartup")).isValid());

    // The file is named after the main bundle's identifier.
    Bundle::setMainBundlePath(TestFiles::makeBundle(
        m_sandbox.mkdir(QStringLiteral("apps")), QStringLiteral("Other"),
        PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue("com.example.Other")}}));
    UserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(UserDefaults::standardUserDefaults().userFile(),
              otherHome + QStringLiteral("/Library/Preferences/com.example.Other.plist"));
    Bundle::setMainBundlePath(std::nullopt);
    UserDefaults::resetStandardUserDefaults();
}
