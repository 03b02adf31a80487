// Workspace: finding applications by bundle identifier, their icons, and starting them.
#include "platform/Workspace.h"
#include "platform/LookupSnapshot.h"
#include "platform/PlistFileCache.h"
#include "platform/PropertyList.h"
#include "platform/WorkspaceIcons.h"

#include "PrintQt.h"
#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QThread>

#include <gtest/gtest.h>

#include <thread>

namespace {

PlistDict info(const QString &identifier)
{
    return PlistDict{{"CFBundleIdentifier", PlistValue(identifier)}};
}

std::optional<QString> lookup(const char *identifier)
{
    return Workspace::absolutePathForAppBundleWithIdentifier(QString::fromLatin1(identifier));
}

class WorkspaceTest : public ::testing::Test
{
protected:
    QString userApps() const { return m_sandbox.mkdir("home/anna/Applications"); }
    QString localApps() const { return m_sandbox.mkdir("root/Applications"); }
    Sandbox m_sandbox;
};

bool waitForFile(const QString &path)
{
    return Poll::until([&] { return QFileInfo::exists(path); }, std::chrono::seconds(10));
}

QStringList nulSeparated(const QByteArray &bytes)
{
    QStringList out;
    for (const QByteArray &part : bytes.split('\0')) {
        out.append(QString::fromUtf8(part));
    }
    if (!out.isEmpty() && out.last().isEmpty()) {
        out.removeLast();
    }
    return out;
}

} // namespace

// User applications come before local ones; plain folders are walked at any depth and
// through links, packages never, and looping links end; identifiers are compared exactly.
TEST_F(WorkspaceTest, WhereApplicationsAreFound)
{
    TestFiles::makeBundle(localApps(), "Quill", info("com.vantreel.Quill"));
    const QString local = TestFiles::makeBundle(localApps(), "Tessel", info("com.vantreel.Tessel"));
    const QString user = TestFiles::makeBundle(userApps(), "Quill", info("com.vantreel.Quill"));
    const QString sub = m_sandbox.mkdir("home/anna/Applications/a/b");
    const QString deep = TestFiles::makeBundle(sub, "Deep", info("com.example.Deep"));
    TestFiles::makeBundle(user + "/Contents/Resources", "Inner", info("com.example.Inner"));
    TestFiles::makeBundle(m_sandbox.mkdir("home/anna/Applications/Kit.framework/Versions"),
                          "InFramework", info("com.example.InFramework"));
    TestFiles::makeBundle(m_sandbox.mkdir("root/Applications/Thing.PLUGIN"), "InPlugin",
                          info("com.example.InPlugin"));
    ASSERT_TRUE(QFile::link(userApps(), userApps() + "/loop"));
    ASSERT_TRUE(QFile::link(userApps() + "/a", sub + "/up"));
    ASSERT_TRUE(QFile::link("self", userApps() + "/self"));
    const QString elsewhere = m_sandbox.mkdir("elsewhere");
    TestFiles::makeBundle(elsewhere, "Linked", info("com.example.Linked"));
    ASSERT_TRUE(QFile::link(elsewhere, sub + "/elsewhere"));

    const std::pair<const char *, std::optional<QString>> cases[] = {
        {"com.vantreel.Quill", user},
        {"com.vantreel.Tessel", local},
        {"com.example.Deep", deep},
        {"com.vantreel.Missing", std::nullopt},
        {"", std::nullopt},
        {"com.vantreel.quill", std::nullopt},
        {"com.example.Inner", std::nullopt},
        {"com.example.InFramework", std::nullopt},
        {"com.example.InPlugin", std::nullopt},
    };
    for (const auto &[identifier, expected] : cases) {
        EXPECT_EQ(lookup(identifier), expected) << identifier;
    }
    EXPECT_TRUE(lookup("com.example.Linked"));
}

static bool writeVersion(const QString &file, const char *version)
{
    return PropertyList::writeXml(
        PlistValue(PlistDict{{"version", PlistValue(QString::fromLatin1(version))}}), file);
}

// A scan sees one picture: what it found first stays found until the snapshot ends,
// misses included, on its own thread only.
TEST_F(WorkspaceTest, ASnapshotKeepsItsAnswersUntilItEnds)
{
    const QString original = TestFiles::makeBundle(userApps(), "Quill", info("com.vantreel.Quill"));
    const QString catalogue = original + "/Contents/VTTasks.plist";
    ASSERT_TRUE(writeVersion(catalogue, "1"));
    const QString moved = m_sandbox.mkdir("home/anna/Applications/Moved") + "/Quill.app";
    {
        const LookupSnapshot snapshot;
        ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(original));
        EXPECT_FALSE(lookup("com.vantreel.Tessel"));
        ASSERT_TRUE(PlistFileCache::readDictionary(catalogue));

        TestFiles::makeBundle(userApps(), "Tessel", info("com.vantreel.Tessel"));
        ASSERT_TRUE(writeVersion(catalogue, "2"));
        {
            const LookupSnapshot nested;
            EXPECT_FALSE(lookup("com.vantreel.Tessel"));
            EXPECT_EQ(PlistFileCache::readDictionary(catalogue)->value("version"), PlistValue("1"));
        }
        ASSERT_TRUE(QDir().rename(original, moved));
        EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(original))
            << "the end of a nested snapshot ends nothing";

        std::optional<QString> elsewhere;
        std::thread other([&] { elsewhere = lookup("com.vantreel.Quill"); });
        other.join();
        EXPECT_EQ(elsewhere, std::optional<QString>(moved));
    }
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(moved));
    EXPECT_TRUE(lookup("com.vantreel.Tessel"));
    EXPECT_EQ(PlistFileCache::readDictionary(moved + "/Contents/VTTasks.plist")->value("version"),
              PlistValue("2"));
}

// With the folders left alone long enough that the index built by a lookup is kept, the
// next lookup must still notice what changed since.
TEST_F(WorkspaceTest, ChangesAfterASettledIndexAreSeen)
{
    const QString suite = m_sandbox.mkdir("home/anna/Applications/Suite");
    const QString quill = TestFiles::makeBundle(suite, "Quill", info("com.vantreel.Quill"));
    localApps();
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(quill));
    ASSERT_FALSE(lookup("com.vantreel.Tessel"));
    ASSERT_FALSE(lookup("com.vantreel.Tessel"));

    // Installed in a folder that was already walked.
    const QString tessel = TestFiles::makeBundle(suite, "Tessel", info("com.vantreel.Tessel"));
    EXPECT_EQ(lookup("com.vantreel.Tessel"), std::optional<QString>(tessel));

    // Its Info.plist rewritten in place with another identifier.
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Tessel"), std::optional<QString>(tessel));
    PropertyList::writeXml(PlistValue(info("com.vantreel.Mosaic")),
                           tessel + "/Contents/Info.plist");
    EXPECT_FALSE(lookup("com.vantreel.Tessel"));
    EXPECT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(tessel));

    // Moved to the local folder, and an earlier copy of Quill installed in the user's.
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(tessel));
    const QString movedTessel = localApps() + "/Tessel.app";
    ASSERT_TRUE(QDir().rename(tessel, movedTessel));
    EXPECT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(movedTessel));
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(quill));
    const QString firstQuill =
        TestFiles::makeBundle(userApps(), "Quill", info("com.vantreel.Quill"));
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(firstQuill));

    // Deleted.
    QThread::msleep(300);
    ASSERT_TRUE(QDir(movedTessel).removeRecursively());
    EXPECT_FALSE(lookup("com.vantreel.Mosaic"));
}

// A bundle's PNG icon (named with or without the extension, square or not) is scaled to
// the size asked for; anything else gets the generic icon.
TEST_F(WorkspaceTest, IconsOfBundlesAndTheGenericIcon)
{
    const std::tuple<const char *, const char *, QSize, QColor> icons[] = {
        {"Red", "AppIcon", QSize(64, 64), QColor(255, 0, 0)},
        {"Wide", "wide.png", QSize(64, 32), QColor(0, 0, 255)},
    };
    for (const auto &[name, file, size, color] : icons) {
        const QString path =
            TestFiles::makeBundle(userApps(), QLatin1String(name),
                                  PlistDict{{"CFBundleIconFile", PlistValue(QLatin1String(file))}});
        QImage image(size, QImage::Format_ARGB32);
        image.fill(color);
        ASSERT_TRUE(image.save(path + "/Contents/Resources/" +
                               QString::fromLatin1(file).section(QLatin1Char('.'), 0, 0) + ".png"));
        for (const int side : {16, 48, 128}) {
            const QImage icon = WorkspaceIcons::iconForFile(path, QSize(side, side));
            EXPECT_EQ(icon.size(), QSize(side, side));
            EXPECT_EQ(QColor(icon.pixel(side / 2, side / 2)), color) << name << side;
        }
    }

    const QString plainBundle =
        TestFiles::makeBundle(userApps(), "Plain", info("com.example.Plain"));
    const QString missingIcon = TestFiles::makeBundle(
        userApps(), "NoFile", PlistDict{{"CFBundleIconFile", PlistValue("absent")}});
    const QString brokenIcon = TestFiles::makeBundle(
        userApps(), "Broken", PlistDict{{"CFBundleIconFile", PlistValue("broken.png")}});
    TestFiles::write(brokenIcon + "/Contents/Resources/broken.png", "not an image");
    const QString file = m_sandbox.file("document.txt");
    TestFiles::write(file, "text");
    const QImage generic = WorkspaceIcons::iconForFile(plainBundle, QSize(48, 48));
    ASSERT_EQ(generic.size(), QSize(48, 48));
    for (const QString &path : {missingIcon, brokenIcon, file, m_sandbox.path() + "/missing"}) {
        EXPECT_EQ(
            WorkspaceIcons::iconForFile(path, QSize(48, 48)).convertToFormat(QImage::Format_ARGB32),
            generic.convertToFormat(QImage::Format_ARGB32))
            << path.toStdString();
    }
    EXPECT_EQ(WorkspaceIcons::iconForFile(file, QSize(32, 32)).size(), QSize(32, 32));
}

// Launching does not wait for the program, which gets its arguments unchanged; a file is
// opened with an application, which may also be found by its identifier; without an
// executable nothing starts.
TEST_F(WorkspaceTest, LaunchAndOpen)
{
    const QString release = m_sandbox.file("release");
    const QString output = m_sandbox.file("arguments");
    // It waits for the release file, then writes each argument and a NUL byte to the output.
    const QString path = TestFiles::makeBundle(
        userApps(), "Recorder", info("com.example.Recorder"),
        QStringLiteral(
            "i=0\n"
            "while [ ! -e '%1' ] && [ $i -lt 400 ]; do sleep 0.05; i=$((i+1)); done\n"
            "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > '%2.part' && mv '%2.part' '%2'\n")
            .arg(release, output));
    const QStringList arguments{"two words", "line\nbreak", "$HOME 'quoted'", QString()};
    ASSERT_TRUE(Workspace::launchApplication(path, arguments));
    EXPECT_FALSE(QFileInfo::exists(output)) << "the program is still waiting";
    TestFiles::write(release, "go");
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), arguments);

    const QString document = m_sandbox.file("a document.txt");
    TestFiles::write(document, "x");
    QFile::remove(output);
    ASSERT_TRUE(Workspace::openFile(document, path));
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), QStringList{document});
    QFile::remove(output);
    ASSERT_TRUE(Workspace::launchAppWithBundleIdentifier("com.example.Recorder"));
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), QStringList{});
    EXPECT_FALSE(Workspace::launchAppWithBundleIdentifier("com.example.Nobody"));

    const QString broken =
        TestFiles::makeBundle(userApps(), "Broken", {{"CFBundleExecutable", "Missing"}});
    const QString notExecutable = TestFiles::makeBundle(userApps(), "NotExec", PlistDict{});
    QFile::setPermissions(notExecutable + "/Contents/MacOS/NotExec",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    for (const QString &bundle : {broken, notExecutable, m_sandbox.path() + "/missing.app"}) {
        EXPECT_FALSE(Workspace::launchApplication(bundle)) << bundle.toStdString();
        EXPECT_FALSE(Workspace::openFile(document, bundle)) << bundle.toStdString();
    }
}
