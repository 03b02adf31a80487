// Bundle: application bundles, their Info.plist keys, executables and resources, what a
// package is.
#include "platform/Bundle.h"

#include "PrintQt.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {

class BundleTest : public ::testing::Test
{
protected:
    QString apps() const { return m_sandbox.mkdir("apps"); }
    Sandbox m_sandbox;
};

} // namespace

// A bundle is a folder; without a readable Info.plist it has no keys, and an identifier
// that is no string is none. Info.plist may be XML or binary.
TEST_F(BundleTest, InfoDictionaryAndResources)
{
    TestFiles::write(apps() + "/File.app", "not a folder");
    for (const QString &path : {QString(), apps() + "/Missing.app", apps() + "/File.app"}) {
        EXPECT_FALSE(Bundle::atPath(path)) << path.toStdString();
    }
    const QString bare = m_sandbox.mkdir("apps/Bare.app");
    ASSERT_TRUE(Bundle::atPath(bare));
    EXPECT_TRUE(Bundle::atPath(bare)->infoDictionary().isEmpty());
    const QString odd = TestFiles::makeBundle(apps(), "Odd", {{"CFBundleIdentifier", 42}});
    EXPECT_FALSE(Bundle::atPath(odd)->bundleIdentifier());
    TestFiles::write(odd + "/Contents/Info.plist", "garbage");
    ASSERT_TRUE(Bundle::atPath(odd));
    EXPECT_TRUE(Bundle::atPath(odd)->infoDictionary().isEmpty());

    const QString path = TestFiles::makeBundle(
        apps(), "Quill",
        {{"CFBundleIdentifier", "com.vantreel.Quill"}, {"CFBundleVersion", "1.2.3"}});
    const auto bundle = Bundle::atPath(path);
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->bundleIdentifier(), std::optional<QString>("com.vantreel.Quill"));
    EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleVersion").string(), "1.2.3");
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey("Missing").isValid());

    const QString binary = m_sandbox.mkdir("apps/Binary.app/Contents");
    QFile::copy(KAIRO_TEST_DATA_DIR "/platform/binary-job.plist", binary + "/Info.plist");
    EXPECT_EQ(Bundle::atPath(apps() + "/Binary.app")->objectForInfoDictionaryKey("Label").string(),
              "com.vantreel.ScheduledTask7");

    const QString resources = path + "/Contents/Resources";
    EXPECT_EQ(bundle->resourcePath(), resources);
    TestFiles::write(resources + "/icon.png", "png");
    TestFiles::write(resources + "/README", "text");
    EXPECT_EQ(bundle->pathForResource("icon", "png"),
              std::optional<QString>(resources + "/icon.png"));
    EXPECT_EQ(bundle->pathForResource("README", QString()),
              std::optional<QString>(resources + "/README"));
    EXPECT_FALSE(bundle->pathForResource("icon", "icns"));
    EXPECT_FALSE(bundle->pathForResource("missing", QString()));
}

// CFBundleExecutable names the executable; empty or missing, the bundle's name does. A
// trailing slash on the bundle path changes nothing.
TEST_F(BundleTest, ExecutablePath)
{
    const std::tuple<const char *, PlistDict, const char *> cases[] = {
        {"Named", PlistDict{{"CFBundleExecutable", PlistValue("RealTool")}}, "RealTool"},
        {"My App", PlistDict{}, "My App"},
        {"My.Tool", PlistDict{}, "My.Tool"},
        {"Empty", PlistDict{{"CFBundleExecutable", PlistValue("")}}, "Empty"},
    };
    for (const auto &[name, info, executable] : cases) {
        const QString path = TestFiles::makeBundle(apps(), QLatin1String(name), info);
        const QString expected =
            path + QStringLiteral("/Contents/MacOS/") + QLatin1String(executable);
        EXPECT_EQ(Bundle::atPath(path)->executablePath(), expected);
        const auto slashed = Bundle::atPath(path + "//");
        ASSERT_TRUE(slashed);
        EXPECT_EQ(slashed->bundlePath(), path);
        EXPECT_EQ(slashed->executablePath(), expected);
    }
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
    TestFiles::write(m_sandbox.file("files/Tool.app"), "x");
    EXPECT_FALSE(Bundle::isPackage(m_sandbox.path() + "/files/Tool.app"));
    EXPECT_FALSE(Bundle::isPackage(m_sandbox.path() + "/files/Missing.app"));
    EXPECT_FALSE(Bundle::isPackage(QString()));
}
