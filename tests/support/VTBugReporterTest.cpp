#include "support/VTBugReporter.h"
#include "platform/Bundle.h"
#include "platform/PrintQt.h"
#include "platform/ProcessSpawner.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "support/CrashSignalHandler.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/MockClock.h"
#include "testsupport/Poll.h"
#include "testsupport/RecordingSpawner.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QThread>

#include <dirent.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

using namespace std::chrono_literals;

namespace {

class RecordingDelegate : public VTBugReporterDelegate
{
public:
    struct Call
    {
        QString path;
        QThread *thread;
    };
    std::vector<Call> calls;

    void applicationDidCrashWithLog(const QString &path) override
    {
        calls.push_back({path, QThread::currentThread()});
    }
};

const QString kName = "Kairo Planner";
const QDateTime kLaunch(QDate(2011, 3, 4), QTime(12, 0));

} // namespace

class VTBugReporterTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    MockClock::Scoped clock{kLaunch};
    std::shared_ptr<RecordingSpawner> spawner = std::make_shared<RecordingSpawner>();
    QString plist;

    void SetUp() override
    {
        identity->home = sandbox.home();
        identity->homes.insert("anna", sandbox.home());
        ProcessSpawner::setCurrent(spawner);
        VTLog::createNewLog("Test");
        plist = sandbox.home() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    }

    void TearDown() override { ProcessSpawner::setCurrent(nullptr); }

    QString userLogs(const QString &folder = "DiagnosticReports") const
    {
        return sandbox.home() + "/Library/Logs/" + folder;
    }
    QString localLogs(const QString &folder) const
    {
        return sandbox.localRoot() + "/Library/Logs/" + folder;
    }
    // A crash log of this application, newer than the launch.
    QString newLog() const { return crashLog(userLogs(), kName + "_2011-03-04-123000_Mac.crash"); }

    static QString crashLog(const QString &folder, const QString &name,
                            const QDateTime &modified = kLaunch.addSecs(1800))
    {
        const QString path = folder + QLatin1Char('/') + name;
        TestFiles::write(path, "Exception Type:  SIGSEGV (signal 11)\n");
        setModified(path, modified);
        return path;
    }

    static void setModified(const QString &path, const QDateTime &modified)
    {
        QFile file(path);
        file.open(QIODevice::ReadWrite);
        file.setFileTime(modified, QFileDevice::FileModificationTime);
    }

    void writeMarks(const std::optional<QDateTime> &launch, const std::optional<QDateTime> &exit,
                    PlistDict values = {})
    {
        for (const auto &[key, date] : {std::pair("launch", launch), std::pair("exit", exit)}) {
            if (date) {
                values.insert(QLatin1String(key), *date);
            }
        }
        TestFiles::write(plist, PropertyList::toXml(PlistValue(values)));
    }

    PlistDict marks() const { return PropertyList::readDictionary(plist).value_or(PlistDict()); }

    void setGlobal(const PlistValue &value) const
    {
        TestFiles::write(
            sandbox.home() + "/Library/Preferences/com.vantreel.global.plist",
            PropertyList::toXml(PlistValue(PlistDict{{"disable-crash-reporter", value}})));
    }

    // This application's bundle, with a bug reporter in its resources when asked.
    QString makeMainBundle(bool withReporter = true, const QString &recordFile = "/dev/null")
    {
        const QString bundle = TestFiles::makeBundle(
            sandbox.path(), kName,
            {{"CFBundleName", kName}, {"CFBundleIdentifier", "com.vantreel.KairoPlanner"}});
        if (withReporter) {
            TestFiles::makeBundle(bundle + "/Contents/Resources", "Bug Reporter",
                                  {{"CFBundleIdentifier", "com.vantreel.BugReporter"}},
                                  "printf '%s\\n' \"$@\" > '" + recordFile + "'");
        }
        Bundle::setMainBundlePath(bundle);
        return bundle;
    }

    // The exit status of the crashing program, as waitpid reports it.
    static int runCrashingProgram(const QString &name, const char *how)
    {
        QByteArray program(CRASHING_PROGRAM);
        QByteArray appName = name.toLocal8Bit();
        QByteArray mode(how);
        char *argv[] = {program.data(), appName.data(), mode.data(), nullptr};
        pid_t pid = 0;
        if (posix_spawn(&pid, program.constData(), nullptr, nullptr, argv, environ) != 0) {
            return -1;
        }
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        return status;
    }
};

// A fatal signal leaves a crash log named by the application, the moment and the host,
// with the signal, the fault address and a backtrace, and still ends the process; the next
// start hands that log to the reporter.
TEST_F(VTBugReporterTest, AFatalSignalLeavesACrashLogThatTheNextStartHandsToTheReporter)
{
    // A root test run writes into the console user's home, which is the sandbox's.
    sandbox.setEnv("VT_CONSOLE_USER", "anna");
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.home());
    ProcessSpawner::setCurrent(nullptr);
    const QString folder = userLogs();
    // How it dies, the signal that ends it, a line of its crash log.
    const std::tuple<const char *, int, const char *> cases[] = {
        {"fault", SIGSEGV, "Exception Type:  SIGSEGV (signal 11)\nFault Address:   0x10\n"},
        {"abort", SIGABRT, "Exception Type:  SIGABRT (signal 6)\n"},
        {"raise", SIGSEGV, "Process:         Kairo Planner\n"}};
    for (const auto &[how, signal, expected] : cases) {
        QDir(folder).removeRecursively();
        const int status = runCrashingProgram(kName, how);
        ASSERT_TRUE(WIFSIGNALED(status)) << how << " status " << status;
        EXPECT_EQ(WTERMSIG(status), signal) << how;
        const QStringList logs = QDir(folder).entryList(QDir::Files);
        ASSERT_EQ(logs.size(), 1) << logs.join(' ').toStdString();
        const auto name =
            QRegularExpression(R"(^Kairo Planner_(\d{4}-\d\d-\d\d-\d{6})_(.+)\.crash$)")
                .match(logs[0]);
        ASSERT_TRUE(name.hasMatch()) << logs[0].toStdString();
        // The moment is local time, to the second (its arithmetic is tested below).
        const qint64 age = QDateTime::fromString(name.captured(1), "yyyy-MM-dd-HHmmss")
                               .secsTo(QDateTime::currentDateTime());
        EXPECT_TRUE(age >= 0 && age < 60) << name.captured(1).toStdString();
        char host[256] = {};
        gethostname(host, sizeof host - 1);
        EXPECT_EQ(name.captured(2), QString::fromLocal8Bit(host).section(QLatin1Char('.'), 0, 0));
        const QString text = QString::fromUtf8(TestFiles::read(folder + '/' + logs[0]));
        EXPECT_TRUE(text.contains(QLatin1String(expected))) << text.toStdString();
        const QStringList backtrace =
            text.section("\nBacktrace:\n", 1).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        EXPECT_GE(backtrace.size(), 3) << text.toStdString();
        EXPECT_TRUE(text.contains("kairoCrashHere")) << text.toStdString();
    }

    // The next start: launched before the crash, no orderly exit since.
    const QString path = folder + '/' + QDir(folder).entryList(QDir::Files).value(0);
    const QString opened = sandbox.file("opened.txt");
    makeMainBundle(true, opened);
    writeMarks(QDateTime::currentDateTime().addSecs(-60), std::nullopt);
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(path));
    EXPECT_TRUE(Poll::until([&] { return TestFiles::read(opened).endsWith('\n'); }, 10s));
    EXPECT_EQ(TestFiles::read(opened), (path + "\n").toUtf8());
    EXPECT_EQ(TestFiles::logMessages(), QStringList({"Application crashed on last launch"}));
}

TEST_F(VTBugReporterTest, CrashLogDatesAreCountedOutWithoutTheCLibrary)
{
    const int offsets[] = {0, 3600, -18000, 19800, 50400, -43200};
    // Around the epoch, 2000-02-29, 2100-03-01, 1900-01-01, 2038 and the year 9999.
    std::vector<qint64> moments = {0,           -1,         951782400,  951868799,   4107542400,
                                   -2208988800, 2147483647, 2147483648, 253402300799};
    for (qint64 s = -2208988800; s < 7258118400; s += 7777777) {
        moments.push_back(s);
    }
    for (const qint64 moment : moments) {
        for (const int offset : offsets) {
            const QDateTime expected =
                QDateTime::fromSecsSinceEpoch(moment, Qt::OffsetFromUTC, offset);
            const CrashSignalHandler::CivilTime t = CrashSignalHandler::civilTime(moment, offset);
            ASSERT_EQ(QDate(t.year, t.month, t.day), expected.date()) << moment << " " << offset;
            ASSERT_EQ(QTime(t.hour, t.minute, t.second), expected.time())
                << moment << " " << offset;
        }
    }
}

// The first run checks nothing and records its launch; start and stop write their marks
// and keep the other keys; an orderly exit at or after the launch means no crash.
TEST_F(VTBugReporterTest, TheMarksOfLaunchAndExitDecide)
{
    makeMainBundle();
    writeMarks(std::nullopt, std::nullopt, {{"SUCheckAtStartup", true}});
    const QString log =
        crashLog(userLogs(), "Kairo Planner_2011-03-04-130000_Mac.crash", kLaunch.addSecs(3600));
    VTBugReporter::startBugReporter(kName, plist);
    EXPECT_EQ(spawner->calls(true), QStringList());
    EXPECT_EQ(TestFiles::logMessages(), QStringList());
    // Written by a root process it would belong to root: it goes back to the home's user.
    EXPECT_EQ(spawner->calls(false), QStringList({"/bin/chown -h anna " + plist}));

    clock->advance(std::chrono::hours(1));
    VTBugReporter::stopBugReporter(plist);
    const PlistDict values = marks();
    EXPECT_EQ(values.value("SUCheckAtStartup"), PlistValue(true));
    EXPECT_EQ(values.value("launch").date().toMSecsSinceEpoch(), kLaunch.toMSecsSinceEpoch());
    EXPECT_EQ(values.value("exit").date().toMSecsSinceEpoch(),
              kLaunch.addSecs(3600).toMSecsSinceEpoch());
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::nullopt);

    for (const int exitAfter : {0, 1}) {
        writeMarks(kLaunch, kLaunch.addSecs(exitAfter));
        EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::nullopt);
    }
    EXPECT_EQ(spawner->calls(true), QStringList());
    writeMarks(kLaunch, kLaunch.addSecs(-1));
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(log));
    EXPECT_EQ(spawner->calls(true).size(), 1);
}

// The folders are searched in order, user's before the machine's; in each only the last
// match in listing order counts, by a name that starts with the application's name and
// "_" in any case, and only if it is newer than the launch.
TEST_F(VTBugReporterTest, WhichCrashLogIsFound)
{
    makeMainBundle();
    writeMarks(kLaunch, std::nullopt);
    const QDateTime later = kLaunch.addSecs(600);
    crashLog(userLogs("CrashReporter"), "Kairo Planner_old.crash", kLaunch.addSecs(-3600));
    crashLog(localLogs("CrashReporter"), "Other App_new.crash", later);
    const QString folder = userLogs();
    for (const char *name : {"Kairo Planner.crash", "Kairo Planner-2011.crash",
                             "Kairo Planner Helper_2011.crash", "Kairo PlannerX_2011.crash"}) {
        crashLog(folder, QLatin1String(name), later);
    }
    QDir().mkpath(folder + "/Kairo Planner_folder");
    setModified(folder + "/Kairo Planner_folder", later);
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::nullopt);

    // Each newer match found in a folder searched earlier than the last one's.
    for (const auto &[where, name] :
         {std::pair(localLogs("DiagnosticReports"), "Kairo Planner_new.crash"),
          std::pair(localLogs("CrashReporter"), "Kairo Planner_new.crash"),
          std::pair(folder, "kAIRO pLANNER_2011.crash")}) {
        const QString found = crashLog(where, QLatin1String(name), later);
        EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(found));
    }

    for (const char *name :
         {"Kairo Planner_2011-03-04-120500_Mac.crash", "Kairo Planner_2011-03-04-120100_Mac.crash",
          "Kairo Planner_2011-03-04-120900_Mac.crash"}) {
        crashLog(folder, QLatin1String(name), later);
    }
    // The folder's own order, as the file system lists it.
    QString last;
    DIR *dir = opendir(QFile::encodeName(folder).constData());
    ASSERT_NE(dir, nullptr);
    while (const dirent *entry = readdir(dir)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (name.startsWith(kName + '_', Qt::CaseInsensitive) && !name.endsWith("folder")) {
            last = name;
        }
    }
    closedir(dir);
    // However new the others are, an old last one means no crash in this folder.
    setModified(folder + '/' + last, kLaunch.addSecs(-60));
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist).value_or(QString()).section('/', 0, -2),
              localLogs("CrashReporter"));
    setModified(folder + '/' + last, kLaunch.addSecs(60));
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist),
              std::optional<QString>(folder + '/' + last));
}

// The reporter in the application's resources, else the installed one, else none; without
// a path the user defaults hold the marks and the bundle names the application.
TEST_F(VTBugReporterTest, TheReporterThatIsOpened)
{
    makeMainBundle(false);
    writeMarks(kLaunch, std::nullopt);
    const QString log =
        crashLog(userLogs("CrashReporter"), "Kairo Planner_2011-03-04-123000_Mac.crash");
    const QString applications = sandbox.mkdir("Applications");
    sandbox.setEnv("VT_APP_SEARCH_PATH", applications);
    // None installed: the crash is still the answer.
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(log));
    EXPECT_EQ(spawner->calls(true), QStringList());
    Workspace::invalidateCaches();
    const QString installed =
        TestFiles::makeBundle(applications + "/Utilities", "Vantreel Reporter",
                              {{"CFBundleIdentifier", "com.vantreel.BugReporter"}});
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(log));
    EXPECT_EQ(spawner->calls(true),
              QStringList({installed + "/Contents/MacOS/Vantreel Reporter " + log}));

    const QString bundle = makeMainBundle();
    EXPECT_EQ(VTBugReporter::checkForCrashes(), std::optional<QString>(log));
    EXPECT_EQ(spawner->calls(true).value(1),
              bundle + "/Contents/Resources/Bug Reporter.app/Contents/MacOS/Bug Reporter " + log);
    clock->advance(std::chrono::hours(1));
    VTBugReporter::stopBugReporter();
    EXPECT_EQ(VTBugReporter::checkForCrashes(), std::nullopt);
    clock->advance(std::chrono::minutes(1));
    VTBugReporter::startBugReporter();
    EXPECT_EQ(marks().value("launch").date().toMSecsSinceEpoch(),
              kLaunch.addSecs(3660).toMSecsSinceEpoch());
    // No chown for the user's own defaults.
    EXPECT_EQ(spawner->calls(false), QStringList());
}

// The delegate is told on the main thread, later, and only of a crash; the global switch
// logs the crash and opens nothing, and still tells the delegate.
TEST_F(VTBugReporterTest, TheDelegateAndTheSwitch)
{
    makeMainBundle();
    RecordingDelegate delegate;
    writeMarks(kLaunch, kLaunch.addSecs(10));
    VTBugReporter::startBugReporter(kName, plist, &delegate);
    QCoreApplication::processEvents();
    EXPECT_TRUE(delegate.calls.empty());

    const QString log = newLog();
    writeMarks(kLaunch, std::nullopt);
    VTBugReporter::startBugReporter(kName, plist, &delegate);
    EXPECT_TRUE(delegate.calls.empty());
    QCoreApplication::processEvents();
    ASSERT_EQ(delegate.calls.size(), 1u);
    EXPECT_EQ(delegate.calls[0].path, log);
    EXPECT_EQ(delegate.calls[0].thread, QCoreApplication::instance()->thread());
    EXPECT_EQ(spawner->calls(true).size(), 1);

    for (const PlistValue &on : {PlistValue("1"), PlistValue(true)}) {
        VTLog::createNewLog("Test");
        writeMarks(kLaunch, std::nullopt);
        setGlobal(on);
        RecordingDelegate told;
        TestFiles::CaptureStderr console;
        VTBugReporter::startBugReporter(kName, plist, &told);
        const QString printed = console.finish();
        QCoreApplication::processEvents();
        EXPECT_TRUE(printed.endsWith("] Crash reporter disabled\n")) << printed.toStdString();
        EXPECT_EQ(TestFiles::logMessages(),
                  QStringList({"Application crashed on last launch", "Crash reporter disabled"}));
        EXPECT_EQ(spawner->calls(true).size(), 1);
        ASSERT_EQ(told.calls.size(), 1u);
        EXPECT_EQ(told.calls[0].path, log);
    }
    // Any other value leaves the reporter on.
    writeMarks(kLaunch, std::nullopt);
    setGlobal(PlistValue("yes"));
    EXPECT_EQ(VTBugReporter::checkForCrashes(kName, plist), std::optional<QString>(log));
    EXPECT_EQ(spawner->calls(true).size(), 2);
}
