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
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QThread>

#include <gtest/gtest.h>

#include <thread>

namespace {

PlistDict info(const QString &identifier)
{
    return PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue(identifier)}};
}

std::optional<QString> lookup(const char *identifier)
{
    return Workspace::absolutePathForAppBundleWithIdentifier(QString::fromLatin1(identifier));
}

class WorkspaceTest : public ::testing::Test
{
protected:
    QString userApps() const { return m_sandbox.mkdir(QStringLiteral("home/anna/Applications")); }
    QString localApps() const { return m_sandbox.mkdir(QStringLiteral("root/Applications")); }
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

// The body of an executable that waits until the release file exists, then writes its
// arguments, each followed by a NUL byte, to the output file.
QString recordingScript(const QString &release, const QString &output)
{
    return QStringLiteral(
               "i=0\n"
               "while [ ! -e '%1' ] && [ $i -lt 400 ]; do sleep 0.05; i=$((i+1)); done\n"
               "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > '%2.part' && mv '%2.part' '%2'\n")
        .arg(release, output);
}

} // namespace

TEST_F(WorkspaceTest, UserApplicationsComeBeforeLocalOnes)
{
    TestFiles::makeBundle(localApps(), QStringLiteral("Quill"),
                          info(QStringLiteral("com.vantreel.Quill")));
    const QString onlyLocal = TestFiles::makeBundle(localApps(), QStringLiteral("Tessel"),
                                                    info(QStringLiteral("com.vantreel.Tessel")));
    const QString user = TestFiles::makeBundle(userApps(), QStringLiteral("Quill"),
                                               info(QStringLiteral("com.vantreel.Quill")));
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(user));
    EXPECT_EQ(lookup("com.vantreel.Tessel"), std::optional<QString>(onlyLocal));
    EXPECT_FALSE(lookup("com.vantreel.Missing"));
    EXPECT_FALSE(lookup(""));
    EXPECT_FALSE(lookup("com.vantreel.quill")) << "identifiers are compared exactly";
}

TEST_F(WorkspaceTest, SearchPathVariableReplacesTheApplicationsFolders)
{
    TestFiles::makeBundle(userApps(), QStringLiteral("Quill"),
                          info(QStringLiteral("com.vantreel.Quill")));
    const QString first = m_sandbox.mkdir(QStringLiteral("search/first"));
    const QString second = m_sandbox.mkdir(QStringLiteral("search/second"));
    const QString inSecond = TestFiles::makeBundle(second, QStringLiteral("Quill"),
                                                   info(QStringLiteral("com.vantreel.Quill")));
    const QString onlySecond = TestFiles::makeBundle(second, QStringLiteral("Other"),
                                                     info(QStringLiteral("com.example.Other")));
    m_sandbox.setEnv("VT_APP_SEARCH_PATH", first + QStringLiteral(":") + m_sandbox.path() +
                                               QStringLiteral("/search/missing::") + second);
    Workspace::invalidateCaches();
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(inSecond));
    EXPECT_EQ(lookup("com.example.Other"), std::optional<QString>(onlySecond));

    // First folder of the list wins.
    const QString inFirst = TestFiles::makeBundle(first, QStringLiteral("Quill Copy"),
                                                  info(QStringLiteral("com.vantreel.Quill")));
    Workspace::invalidateCaches();
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(inFirst));
}

TEST_F(WorkspaceTest, DescendsIntoPlainFoldersButNeverIntoPackages)
{
    const QString deep = TestFiles::makeBundle(
        m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Vantreel/Tools")),
        QStringLiteral("Deep"), info(QStringLiteral("com.example.Deep")));
    const QString outer = TestFiles::makeBundle(userApps(), QStringLiteral("Outer"),
                                                info(QStringLiteral("com.example.Outer")));
    TestFiles::makeBundle(outer + QStringLiteral("/Contents/Resources"), QStringLiteral("Inner"),
                          info(QStringLiteral("com.example.Inner")));
    TestFiles::makeBundle(outer + QStringLiteral("/Contents/Helpers"), QStringLiteral("Helper"),
                          info(QStringLiteral("com.example.Helper")));
    const QString framework =
        m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Kit.framework/Versions"));
    TestFiles::makeBundle(framework, QStringLiteral("InFramework"),
                          info(QStringLiteral("com.example.InFramework")));
    const QString plugin = m_sandbox.mkdir(QStringLiteral("root/Applications/Thing.PLUGIN"));
    TestFiles::makeBundle(plugin, QStringLiteral("InPlugin"),
                          info(QStringLiteral("com.example.InPlugin")));

    EXPECT_EQ(lookup("com.example.Deep"), std::optional<QString>(deep));
    EXPECT_EQ(lookup("com.example.Outer"), std::optional<QString>(outer));
    EXPECT_FALSE(lookup("com.example.Inner"));
    EXPECT_FALSE(lookup("com.example.Helper"));
    EXPECT_FALSE(lookup("com.example.InFramework"));
    EXPECT_FALSE(lookup("com.example.InPlugin"));
}

TEST_F(WorkspaceTest, MovedOrDeletedBundlesAreNotReturnedStale)
{
    const QString original = TestFiles::makeBundle(userApps(), QStringLiteral("Quill"),
                                                   info(QStringLiteral("com.vantreel.Quill")));
    ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(original));

    const QString moved = m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Moved")) +
                          QStringLiteral("/Quill.app");
    ASSERT_TRUE(QDir().rename(original, moved));
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(moved));

    // Its identifier changes: it is no longer found under the old one.
    TestFiles::makeBundle(m_sandbox.path() + QStringLiteral("/home/anna/Applications/Moved"),
                          QStringLiteral("Quill"), info(QStringLiteral("com.vantreel.QuillPro")));
    EXPECT_FALSE(lookup("com.vantreel.Quill"));
    EXPECT_EQ(lookup("com.vantreel.QuillPro"), std::optional<QString>(moved));

    ASSERT_TRUE(QDir(moved).removeRecursively());
    EXPECT_FALSE(lookup("com.vantreel.QuillPro"));
}

static bool writeVersion(const QString &file, const char *version)
{
    return PropertyList::writeXml(PlistValue(PlistDict{{QStringLiteral("version"),
                                                        PlistValue(QString::fromLatin1(version))}}),
                                  file);
}

// A scan sees one picture: what it found first stays found until the snapshot ends,
// misses included, on its own thread only.
TEST_F(WorkspaceTest, ASnapshotKeepsItsAnswersUntilItEnds)
{
    const QString original = TestFiles::makeBundle(userApps(), QStringLiteral("Quill"),
                                                   info(QStringLiteral("com.vantreel.Quill")));
    const QString catalogue = original + QStringLiteral("/Contents/VTTasks.plist");
    ASSERT_TRUE(writeVersion(catalogue, "1"));
    const QString moved = m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Moved")) +
                          QStringLiteral("/Quill.app");
    {
        const LookupSnapshot snapshot;
        ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(original));
        EXPECT_FALSE(lookup("com.vantreel.Tessel"));
        ASSERT_TRUE(PlistFileCache::readDictionary(catalogue));

        TestFiles::makeBundle(userApps(), QStringLiteral("Tessel"),
                              info(QStringLiteral("com.vantreel.Tessel")));
        ASSERT_TRUE(writeVersion(catalogue, "2"));
        {
            const LookupSnapshot nested;
            EXPECT_FALSE(lookup("com.vantreel.Tessel"));
            EXPECT_EQ(PlistFileCache::readDictionary(catalogue)->value(QStringLiteral("version")),
                      PlistValue(QStringLiteral("1")));
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
    EXPECT_EQ(PlistFileCache::readDictionary(moved + QStringLiteral("/Contents/VTTasks.plist"))
                  ->value(QStringLiteral("version")),
              PlistValue(QStringLiteral("2")));
}

TEST_F(WorkspaceTest, BundleInstalledAfterALookupIsFound)
{
    TestFiles::makeBundle(userApps(), QStringLiteral("Other"),
                          info(QStringLiteral("com.example.Other")));
    ASSERT_FALSE(lookup("com.vantreel.Late"));
    const QString late = TestFiles::makeBundle(localApps(), QStringLiteral("Late"),
                                               info(QStringLiteral("com.vantreel.Late")));
    EXPECT_EQ(lookup("com.vantreel.Late"), std::optional<QString>(late));

    // Missed twice, then installed inside a folder that already existed.
    const QString folder = m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Suite"));
    ASSERT_FALSE(lookup("com.vantreel.Later"));
    ASSERT_FALSE(lookup("com.vantreel.Later"));
    const QString later = TestFiles::makeBundle(folder, QStringLiteral("Later"),
                                                info(QStringLiteral("com.vantreel.Later")));
    EXPECT_EQ(lookup("com.vantreel.Later"), std::optional<QString>(later));

    // A bundle folder that gets its Info.plist only after a lookup.
    const QString bare =
        m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Bare.app/Contents"));
    ASSERT_FALSE(lookup("com.vantreel.Bare"));
    PropertyList::writeXml(PlistValue(info(QStringLiteral("com.vantreel.Bare"))),
                           bare + QStringLiteral("/Info.plist"));
    EXPECT_EQ(lookup("com.vantreel.Bare"),
              std::optional<QString>(m_sandbox.path() +
                                     QStringLiteral("/home/anna/Applications/Bare.app")));

    // And a bundle installed earlier in the search order than the one found before.
    const QString before = TestFiles::makeBundle(userApps(), QStringLiteral("Late"),
                                                 info(QStringLiteral("com.vantreel.Late")));
    EXPECT_EQ(lookup("com.vantreel.Late"), std::optional<QString>(before));
}

// The same, with the folders left alone long enough that the index built by a lookup is
// kept: the next lookup must notice what changed since.
TEST_F(WorkspaceTest, ChangesAfterASettledIndexAreSeen)
{
    const QString suite = m_sandbox.mkdir(QStringLiteral("home/anna/Applications/Suite"));
    const QString quill = TestFiles::makeBundle(suite, QStringLiteral("Quill"),
                                                info(QStringLiteral("com.vantreel.Quill")));
    localApps();
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(quill));
    ASSERT_FALSE(lookup("com.vantreel.Tessel"));
    ASSERT_FALSE(lookup("com.vantreel.Tessel"));

    // Installed in a folder that was already walked.
    const QString tessel = TestFiles::makeBundle(suite, QStringLiteral("Tessel"),
                                                 info(QStringLiteral("com.vantreel.Tessel")));
    EXPECT_EQ(lookup("com.vantreel.Tessel"), std::optional<QString>(tessel));

    // Its Info.plist rewritten in place with another identifier.
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Tessel"), std::optional<QString>(tessel));
    PropertyList::writeXml(PlistValue(info(QStringLiteral("com.vantreel.Mosaic"))),
                           tessel + QStringLiteral("/Contents/Info.plist"));
    EXPECT_FALSE(lookup("com.vantreel.Tessel"));
    EXPECT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(tessel));

    // Moved to the local folder, and an earlier copy of Quill installed in the user's.
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(tessel));
    const QString movedTessel = localApps() + QStringLiteral("/Tessel.app");
    ASSERT_TRUE(QDir().rename(tessel, movedTessel));
    EXPECT_EQ(lookup("com.vantreel.Mosaic"), std::optional<QString>(movedTessel));
    QThread::msleep(300);
    ASSERT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(quill));
    const QString firstQuill = TestFiles::makeBundle(userApps(), QStringLiteral("Quill"),
                                                     info(QStringLiteral("com.vantreel.Quill")));
    EXPECT_EQ(lookup("com.vantreel.Quill"), std::optional<QString>(firstQuill));

    // Deleted.
    QThread::msleep(300);
    ASSERT_TRUE(QDir(movedTessel).removeRecursively());
    EXPECT_FALSE(lookup("com.vantreel.Mosaic"));
}

TEST_F(WorkspaceTest, LoopingSymbolicLinksTerminate)
{
    const QString apps = userApps();
    const QString sub = m_sandbox.mkdir(QStringLiteral("home/anna/Applications/a/b"));
    ASSERT_TRUE(QFile::link(apps, apps + QStringLiteral("/loop")));
    ASSERT_TRUE(QFile::link(apps + QStringLiteral("/a"), sub + QStringLiteral("/up")));
    ASSERT_TRUE(QFile::link(QStringLiteral("self"), apps + QStringLiteral("/self")));
    const QString elsewhere = m_sandbox.mkdir(QStringLiteral("elsewhere"));
    TestFiles::makeBundle(elsewhere, QStringLiteral("Linked"),
                          info(QStringLiteral("com.example.Linked")));
    ASSERT_TRUE(QFile::link(elsewhere, sub + QStringLiteral("/elsewhere")));
    TestFiles::makeBundle(sub, QStringLiteral("Found"), info(QStringLiteral("com.example.Found")));

    EXPECT_FALSE(lookup("com.example.Missing"));
    EXPECT_TRUE(lookup("com.example.Found"));
    EXPECT_TRUE(lookup("com.example.Linked"));
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
        const QString path = TestFiles::makeBundle(
            userApps(), QLatin1String(name),
            PlistDict{{QStringLiteral("CFBundleIconFile"), PlistValue(QLatin1String(file))}});
        QImage image(size, QImage::Format_ARGB32);
        image.fill(color);
        ASSERT_TRUE(image.save(path + QStringLiteral("/Contents/Resources/") +
                               QString::fromLatin1(file).section(QLatin1Char('.'), 0, 0) +
                               QStringLiteral(".png")));
        for (const int side : {16, 48, 128}) {
            const QImage icon = WorkspaceIcons::iconForFile(path, QSize(side, side));
            EXPECT_EQ(icon.size(), QSize(side, side));
            EXPECT_EQ(QColor(icon.pixel(side / 2, side / 2)), color) << name << side;
        }
    }

    const QString plainBundle = TestFiles::makeBundle(userApps(), QStringLiteral("Plain"),
                                                      info(QStringLiteral("com.example.Plain")));
    const QString missingIcon = TestFiles::makeBundle(
        userApps(), QStringLiteral("NoFile"),
        PlistDict{{QStringLiteral("CFBundleIconFile"), PlistValue("absent")}});
    const QString brokenIcon = TestFiles::makeBundle(
        userApps(), QStringLiteral("Broken"),
        PlistDict{{QStringLiteral("CFBundleIconFile"), PlistValue("broken.png")}});
    TestFiles::write(brokenIcon + QStringLiteral("/Contents/Resources/broken.png"), "not an image");
    const QString file = m_sandbox.file(QStringLiteral("document.txt"));
    TestFiles::write(file, "text");
    const QImage generic = WorkspaceIcons::iconForFile(plainBundle, QSize(48, 48));
    ASSERT_EQ(generic.size(), QSize(48, 48));
    for (const QString &path :
         {missingIcon, brokenIcon, file, m_sandbox.path() + QStringLiteral("/missing")}) {
        EXPECT_EQ(
            WorkspaceIcons::iconForFile(path, QSize(48, 48)).convertToFormat(QImage::Format_ARGB32),
            generic.convertToFormat(QImage::Format_ARGB32))
            << path.toStdString();
    }
    EXPECT_EQ(WorkspaceIcons::iconForFile(file, QSize(32, 32)).size(), QSize(32, 32));
}

TEST_F(WorkspaceTest, LaunchStartsTheExecutableWithoutWaiting)
{
    const QString release = m_sandbox.file(QStringLiteral("release"));
    const QString output = m_sandbox.file(QStringLiteral("arguments"));
    const QString path = TestFiles::makeBundle(userApps(), QStringLiteral("Recorder"),
                                               info(QStringLiteral("com.example.Recorder")),
                                               recordingScript(release, output));
    const QStringList arguments{
        QStringLiteral("-task"),          QStringLiteral("two words"),
        QStringLiteral("line\nbreak"),    QStringLiteral("$HOME 'quoted' \"double\""),
        QString::fromUtf8("caf\xc3\xa9"), QString()};
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(Workspace::launchApplication(path, arguments));
    EXPECT_LT(timer.elapsed(), 5000) << "launching must not wait for the program";
    EXPECT_FALSE(QFileInfo::exists(output))
        << "the program is still waiting, so the call did not wait for it";
    TestFiles::write(release, "go");
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), arguments);
}

TEST_F(WorkspaceTest, OpenFileAndLaunchByIdentifier)
{
    const QString release = m_sandbox.file(QStringLiteral("release"));
    TestFiles::write(release, "go");
    const QString output = m_sandbox.file(QStringLiteral("opened"));
    const QString path = TestFiles::makeBundle(
        userApps(), QStringLiteral("Opener"),
        PlistDict{{QStringLiteral("CFBundleIdentifier"), PlistValue("com.example.Opener")},
                  {QStringLiteral("CFBundleExecutable"), PlistValue("Opener")}},
        recordingScript(release, output));
    const QString document = m_sandbox.file(QStringLiteral("a document.txt"));
    TestFiles::write(document, "x");
    ASSERT_TRUE(Workspace::openFile(document, path));
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), QStringList{document});

    QFile::remove(output);
    ASSERT_TRUE(Workspace::launchAppWithBundleIdentifier(QStringLiteral("com.example.Opener")));
    ASSERT_TRUE(waitForFile(output));
    EXPECT_EQ(nulSeparated(TestFiles::read(output)), QStringList{});

    EXPECT_FALSE(Workspace::launchAppWithBundleIdentifier(QStringLiteral("com.example.Nobody")));

    // Without an executable nothing starts.
    const QString broken = TestFiles::makeBundle(
        userApps(), QStringLiteral("Broken"),
        PlistDict{{QStringLiteral("CFBundleExecutable"), PlistValue("Missing")}});
    const QString notExecutable =
        TestFiles::makeBundle(userApps(), QStringLiteral("NotExec"), PlistDict{});
    QFile::setPermissions(notExecutable + QStringLiteral("/Contents/MacOS/NotExec"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    for (const QString &bundle :
         {broken, notExecutable, m_sandbox.path() + QStringLiteral("/missing.app")}) {
        EXPECT_FALSE(Workspace::launchApplication(bundle)) << bundle.toStdString();
        EXPECT_FALSE(Workspace::openFile(document, bundle)) << bundle.toStdString();
    }
}
