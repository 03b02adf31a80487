#include "support/VTLog.h"
#include "platform/Bundle.h"
#include "platform/PropertyList.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>

class VTLogTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    QString folder;

    void SetUp() override
    {
        identity->home = sandbox.home();
        identity->homes.insert("anna", sandbox.home());
        folder = sandbox.home() + "/Library/Logs/Vantreel";
    }

    QString generation(int i) const { return folder + QStringLiteral("/Test.%1.log").arg(i); }

    QStringList current()
    {
        VTLog::finishWriting();
        return TestFiles::lines(generation(1));
    }

    void setGlobal(const PlistValue &value)
    {
        const QString prefs = sandbox.home() + "/Library/Preferences";
        QDir().mkpath(prefs);
        PlistDict global;
        global.insert("disable-logging", value);
        PropertyList::writeXml(PlistValue(global), prefs + "/com.vantreel.global.plist");
    }
};

// A new log shifts the five generations and starts with the machine's header; the first
// name given sticks.
TEST_F(VTLogTest, NewLogShiftsTheGenerationsAndStartsWithTheMachineHeader)
{
    QDir().mkpath(folder);
    for (int i = 1; i <= 5; ++i) {
        TestFiles::write(generation(i), QByteArray("old ") + QByteArray::number(i));
    }
    const QString bundle =
        TestFiles::makeBundle(sandbox.path(), "Kairo Planner", {{"CFBundleVersion", "42"}});
    Bundle::setMainBundlePath(bundle);

    VTLog::createNewLog("Test");
    VTLog::appendLog("Task bundle ID: %@...", "com.vantreel.Quill");
    const QStringList lines = current();

    ASSERT_EQ(lines.size(), 6) << lines.join('\n').toStdString();
    EXPECT_TRUE(QRegularExpression(R"(^Log started: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4}$)")
                    .match(lines[0])
                    .hasMatch());
    EXPECT_EQ(lines[1], "Version: 42");
    EXPECT_EQ(lines[2], "Path: " + bundle + "/Contents/MacOS/Kairo Planner");
    EXPECT_TRUE(QRegularExpression(R"(^System: Linux \S+, \d+ CPU\(s\), \d+\.\d\d GB RAM$)")
                    .match(lines[3])
                    .hasMatch())
        << lines[3].toStdString();
    EXPECT_EQ(lines[4], "Running in 64-bit mode");
    EXPECT_TRUE(
        QRegularExpression(
            R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - Task bundle ID: com\.vantreel\.Quill\.\.\.$)")
            .match(lines[5])
            .hasMatch())
        << lines[5].toStdString();
    for (int i = 2; i <= 5; ++i) {
        EXPECT_EQ(TestFiles::read(generation(i)), QByteArray("old ") + QByteArray::number(i - 1));
    }
    EXPECT_FALSE(QFileInfo::exists(folder + "/Test.6.log"));
    VTLog::createNewLog("Other");
    VTLog::appendLog("after");
    EXPECT_TRUE(current().last().endsWith(" - after"));
    EXPECT_FALSE(QFileInfo::exists(folder + "/Other.1.log"));
}

TEST_F(VTLogTest, GlobalSwitchTurnsLoggingOff)
{
    for (const PlistValue &off : {PlistValue("1"), PlistValue(true)}) {
        VTLog::resetForTesting();
        QFile::remove(generation(1));
        setGlobal(off);
        TestFiles::CaptureStderr console;
        VTLog::createNewLog("Test");
        VTLog::appendLog("secret");
        VTLog::finishWriting();
        EXPECT_TRUE(console.finish().contains("Logging is disabled"));
        EXPECT_TRUE(VTLog::sharedController().loggingDisabled());
        EXPECT_FALSE(QFileInfo::exists(generation(1)));
    }
    for (const PlistValue &on : {PlistValue("yes"), PlistValue(0), PlistValue(false)}) {
        VTLog::resetForTesting();
        setGlobal(on);
        VTLog::createNewLog("Test");
        VTLog::appendLog("visible");
        EXPECT_TRUE(current().last().endsWith(" - visible"));
    }
}

// Without a log file a message goes to the console. Messages are trimmed, an empty one
// still makes a line, and a short one on an idle queue is written before the call returns;
// appendLogAndPrint reads its text as a format twice.
TEST_F(VTLogTest, MessagesAreTrimmedAndPrinted)
{
    TestFiles::CaptureStderr console;
    VTLog::sharedController().setAppName("Test");
    VTLog::appendLog("nowhere to go");
    VTLog::finishWriting();
    const QString printed = console.finish();
    EXPECT_TRUE(printed.contains("Unable to log the following information: nowhere to go"));
    EXPECT_TRUE(printed.contains("Unable to open log for output"));

    VTLog::resetForTesting();
    VTLog::createNewLog("Test");
    VTLog::appendLog("  \n padded \t\n");
    VTLog::appendLog(" \n ");
    VTLog::appendLog(QString(99, QLatin1Char('x')));
    EXPECT_TRUE(
        TestFiles::lines(generation(1)).last().endsWith(" - " + QString(99, QLatin1Char('x'))));
    TestFiles::CaptureStderr printing;
    VTLog::appendLogAndPrint("  Saved %@  ", "50%% of it");
    EXPECT_TRUE(printing.finish().contains("] Saved 50%% of it\n"));
    const QStringList lines = current();
    EXPECT_TRUE(lines[lines.size() - 4].endsWith(" - padded"));
    EXPECT_TRUE(lines[lines.size() - 3].endsWith(" - "));
    EXPECT_TRUE(lines.last().endsWith(" - Saved 50% of it"));
    EXPECT_EQ(VTLog::sharedController().bytesInQueue(), 0u);
}

TEST_F(VTLogTest, PassingHalfAMegabyteRotatesAndNotesTheTruncation)
{
    VTLog::createNewLog("Test");
    const QString filler(1000, QLatin1Char('f'));
    for (int i = 0; i < 520; ++i) {
        VTLog::appendLog("%d %@", i, filler);
    }
    const QStringList fresh = current();
    const QStringList previous = TestFiles::lines(generation(2));

    ASSERT_FALSE(previous.isEmpty());
    EXPECT_TRUE(previous.first().startsWith("Log started: "));
    EXPECT_GT(QFileInfo(generation(2)).size(), 499999);
    EXPECT_LT(QFileInfo(generation(2)).size(), 499999 + 1300);
    ASSERT_GT(fresh.size(), 5);
    EXPECT_TRUE(fresh[0].startsWith("Log started: "));
    // The note comes first, before messages that were already waiting.
    const int firstMessage = fresh.indexOf(QRegularExpression(".* - .*"));
    EXPECT_TRUE(fresh[firstMessage].endsWith(" - Log truncated at 500KB"));
    // Nothing is lost across the rotation.
    EXPECT_TRUE(fresh.last().contains(" - 519 f"));
    // Three header lines in each file, and the note in the new one.
    EXPECT_EQ(previous.size() - 3 + fresh.size() - 4, 520);
}
