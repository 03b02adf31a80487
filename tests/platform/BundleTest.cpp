// Bundle: application bundles, their Info.plist keys, executables and resources, what a
// package is, and the main bundle override.
#include "platform/Bundle.h"
#include "platform/PropertyList.h"

#include "PrintQt.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

class BundleTest : public ::testing::Test
{
protected:
    void TearDown() override { Bundle::setMainBundlePath(std::nullopt); }
    QString apps() const { return m_sandbox.mkdir(QStringLiteral("apps")); }
    Sandbox m_sandbox;
};

} // namespace

TEST_F(BundleTest, AtPathNeedsAFolder)
{
    EXPECT_FALSE(Bundle::atPath(QString()));
    EXPECT_FALSE(Bundle::atPath(apps() + QStringLiteral("/Missing.app")));
    TestFiles::write(apps() + QStringLiteral("/File.app"), "not a folder");
    EXPECT_FALSE(Bundle::atPath(apps() + QStringLiteral("/File.app")));

    // A folder without Info.plist is a bundle with no keys.
    const QString bare = m_sandbox.mkdir(QStringLiteral("apps/Bare.app"));
    const auto bundle = Bundle::atPath(bare);
    ASSERT_TRUE(bundle);
    EXPECT_TRUE(bundle->infoDictionary().isEmpty());
    EXPECT_FALSE(bundle->bundleIdentifier());
    EXPECT_EQ(bundle->bundlePath(), bare);

    // An identifier that is no string is none; a broken Info.plist has no keys.
    const QString path =
        TestFiles::makeBundle(apps(), QStringLiteral("Odd"),
                              PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue(42)}});
    EXPECT_FALSE(Bundle::atPath(path)->bundleIdentifier());
    TestFiles::write(path + QStringLiteral("/Contents/Info.plist"), "garbage");
    const auto broken = Bundle::atPath(path);
    ASSERT_TRUE(broken);
    EXPECT_TRUE(broken->infoDictionary().isEmpty());
}

TEST_F(BundleTest, InfoDictionaryKeys)
{
    const QString path = TestFiles::makeBundle(
        apps(), QStringLiteral("Quill"),
        PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue("com.vantreel.Quill")},
                  {QStringLiteral("CFBundleName"), PlistValue("Quill")},
                  {QStringLiteral("CFBundleVersion"), PlistValue("1.2.3")},
                  {QStringLiteral("CFBundleShortVersionString"), PlistValue("1.2")},
                  {QStringLiteral("VTTasks"), PlistValue(PlistArray{PlistValue("x")})}});
    const auto bundle = Bundle::atPath(path);
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->bundleIdentifier(),
              std::optional<QString>(QStringLiteral("com.vantreel.Quill")));
    EXPECT_EQ(bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).string(),
              QStringLiteral("1.2.3"));
    EXPECT_EQ(
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString")).string(),
        QStringLiteral("1.2"));
    EXPECT_TRUE(bundle->objectForInfoDictionaryKey(QStringLiteral("VTTasks")).isArray());
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(QStringLiteral("Missing")).isValid());
    EXPECT_EQ(bundle->infoDictionary().keys(),
              (QStringList{"CFBundleIdentifier", "CFBundleName", "CFBundleVersion",
                           "CFBundleShortVersionString", "VTTasks"}));

    // A binary Info.plist is read as well.
    const QString binary = m_sandbox.mkdir(QStringLiteral("apps/Binary.app/Contents"));
    QFile::copy(QStringLiteral(KAIRO_TEST_DATA_DIR "/platform/binary-job.plist"),
                binary + QStringLiteral("/Info.plist"));
    const auto fromBinary = Bundle::atPath(m_sandbox.path() + QStringLiteral("/apps/Binary.app"));
    ASSERT_TRUE(fromBinary);
    EXPECT_EQ(fromBinary->objectForInfoDictionaryKey(QStringLiteral("Label")).string(),
              QStringLiteral("com.vantreel.ScheduledTask7"));
}

// CFBundleExecutable names the executable; empty or missing, the bundle's name does. A
// trailing slash on the bundle path changes nothing.
TEST_F(BundleTest, ExecutablePath)
{
    const std::tuple<const char *, PlistDict, const char *> cases[] = {
        {"Named", PlistDict{{QStringLiteral("CFBundleExecutable"), PlistValue("RealTool")}},
         "RealTool"},
        {"My App", PlistDict{}, "My App"},
        {"My.Tool", PlistDict{}, "My.Tool"},
        {"Empty", PlistDict{{QStringLiteral("CFBundleExecutable"), PlistValue("")}}, "Empty"},
    };
    for (const auto &[name, info, executable] : cases) {
        const QString path = TestFiles::makeBundle(apps(), QLatin1String(name), info);
        const QString expected =
            path + QStringLiteral("/Contents/MacOS/") + QLatin1String(executable);
        EXPECT_EQ(Bundle::atPath(path)->executablePath(), expected);
        const auto slashed = Bundle::atPath(path + QStringLiteral("//"));
        ASSERT_TRUE(slashed);
        EXPECT_EQ(slashed->bundlePath(), path);
        EXPECT_EQ(slashed->executablePath(), expected);
    }
}

TEST_F(BundleTest, Resources)
{
    const QString path = TestFiles::makeBundle(apps(), QStringLiteral("Res"), PlistDict{});
    const auto bundle = Bundle::atPath(path);
    EXPECT_EQ(bundle->resourcePath(), path + QStringLiteral("/Contents/Resources"));
    TestFiles::write(path + QStringLiteral("/Contents/Resources/icon.png"), "png");
    TestFiles::write(path + QStringLiteral("/Contents/Resources/README"), "text");
    EXPECT_EQ(bundle->pathForResource(QStringLiteral("icon"), QStringLiteral("png")),
              std::optional<QString>(path + QStringLiteral("/Contents/Resources/icon.png")));
    EXPECT_EQ(bundle->pathForResource(QStringLiteral("README"), QString()),
              std::optional<QString>(path + QStringLiteral("/Contents/Resources/README")));
    EXPECT_FALSE(bundle->pathForResource(QStringLiteral("icon"), QStringLiteral("icns")));
    EXPECT_FALSE(bundle->pathForResource(QStringLiteral("missing"), QString()));
}

TEST_F(BundleTest, PackagesByExtension)
{
    for (const char *ext : {"app", "bundle", "framework", "plugin", "kext", "APP", "App", "Bundle",
                            "FRAMEWORK", "PlugIn", "KEXT"}) {
        const QString folder = m_sandbox.mkdir(QStringLiteral("pkg/Thing.") + QLatin1String(ext));
        EXPECT_TRUE(Bundle::isPackage(folder)) << ext;
        EXPECT_TRUE(Bundle::isPackage(folder + QLatin1Char('/'))) << ext;
    }
    for (const char *name : {"plain", "Thing.txt", "app", "Thing.apps", "Thing.app.backup",
                             "Thing.application", "Thingapp"}) {
        const QString folder = m_sandbox.mkdir(QStringLiteral("plain/") + QLatin1String(name));
        EXPECT_FALSE(Bundle::isPackage(folder)) << name;
    }
    // Files and missing paths are never packages, whatever their extension.
    TestFiles::write(m_sandbox.file(QStringLiteral("files/Tool.app")), "x");
    EXPECT_FALSE(Bundle::isPackage(m_sandbox.path() + QStringLiteral("/files/Tool.app")));
    EXPECT_FALSE(Bundle::isPackage(m_sandbox.path() + QStringLiteral("/files/Missing.app")));
    EXPECT_FALSE(Bundle::isPackage(QString()));
}

TEST_F(BundleTest, MainBundleOverride)
{
    // The test program does not run inside a bundle.
    Bundle::setMainBundlePath(std::nullopt);
    EXPECT_FALSE(Bundle::mainBundle());

    const QString path = TestFiles::makeBundle(
        apps(), QStringLiteral("Kairo Planner"),
        PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue("com.vantreel.KairoPlanner")},
                  {QStringLiteral("CFBundleVersion"), PlistValue("1.0.0")}});
    Bundle::setMainBundlePath(path);
    const auto main = Bundle::mainBundle();
    ASSERT_TRUE(main);
    EXPECT_EQ(main->bundlePath(), path);
    EXPECT_EQ(main->bundleIdentifier(),
              std::optional<QString>(QStringLiteral("com.vantreel.KairoPlanner")));
    EXPECT_EQ(main->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).string(),
              QStringLiteral("1.0.0"));

    // The override is read afresh: a changed Info.plist shows.
    PropertyList::writeXml(
        PlistValue(PlistDict{{QStringLiteral("CFBundleVersion"), PlistValue("2.0")}}),
        path + QStringLiteral("/Contents/Info.plist"));
    EXPECT_EQ(Bundle::mainBundle()
                  ->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"))
                  .string(),
              QStringLiteral("2.0"));

    Bundle::setMainBundlePath(m_sandbox.path() + QStringLiteral("/nowhere.app"));
    EXPECT_FALSE(Bundle::mainBundle());
    Bundle::setMainBundlePath(std::nullopt);
    EXPECT_FALSE(Bundle::mainBundle());
}
