#include "CommandLineFixture.h"

#include "app/CommandLine.h"
#include "platform/PropertyList.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <sys/stat.h>

namespace {

bool hasLine(const QString &text, const QString &message)
{
    return text.contains(QStringLiteral("] ") + message + QLatin1Char('\n'));
}

bool logHas(const QStringList &lines, const QString &message)
{
    for (const QString &line : lines) {
        if (line.endsWith(QStringLiteral(" - ") + message)) {
            return true;
        }
    }
    return false;
}

} // namespace

TEST(CommandLineTailTest, ThePositionsFiveSixAndSeven)
{
    struct Case
    {
        QStringList tail;
        std::optional<QString> interval;
        bool enabled;
    };
    const Case cases[] = {
        {{}, std::nullopt, true},
        {{"-enable"}, std::nullopt, true},
        {{"-enable", "1"}, std::nullopt, true},
        {{"-enable", "0"}, std::nullopt, false},
        {{"-enable", "yes"}, std::nullopt, false},
        {{"30,2,,,"}, QStringLiteral("30,2,,,"), true},
        {{"300", "-enable", "1"}, QStringLiteral("300"), true},
        {{"300", "-enable", "0"}, QStringLiteral("300"), false},
        {{"300", "-enable"}, QStringLiteral("300"), true}, // no position 7
        {{"300", "enable", "0"}, QStringLiteral("300"), true},
    };
    for (const Case &c : cases) {
        const QStringList arguments = QStringList{"kairo", "-add", "com.x", "task", "6"} + c.tail;
        const CommandLine::Tail tail = CommandLine::parseTail(arguments);
        EXPECT_EQ(tail.intervalValue, c.interval) << c.tail.join(' ').toStdString();
        EXPECT_EQ(tail.enabled, c.enabled) << c.tail.join(' ').toStdString();
    }
    // For -edit, position 5 is the schedule type and, at once, the interval value.
    EXPECT_EQ(CommandLine::parseTail({"k", "-edit", "/f", "com.x", "task", "7"}).intervalValue,
              QStringLiteral("7"));
}

class CommandLineTest : public CommandLineFixture
{};

TEST_F(CommandLineTest, ListingWithNoTasksPrintsAnEmptyDictionary)
{
    const Result r = run({"-tasks"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, QStringLiteral("{\n}"));
    // Both job folders are created by the scan.
    EXPECT_TRUE(QFileInfo(agents()).isDir());
    EXPECT_TRUE(QFileInfo(daemons()).isDir());
    EXPECT_TRUE(logHas(logLines(), QStringLiteral("Getting list of scheduled tasks...")));
}

TEST_F(CommandLineTest, AnUnknownSwitchStartsTheWindowedApplication)
{
    // Switches are case-sensitive; the log is made before the switch is examined.
    auto process = start({"-Tasks"});
    QThread::msleep(1500);
    EXPECT_EQ(process->state(), QProcess::Running);
    process->kill();
    process->waitForFinished();
    EXPECT_TRUE(
        QFileInfo::exists(sandbox.home() + "/Library/Logs/Vantreel/Kairo Planner.task.1.log"));
}

TEST_F(CommandLineTest, AddingATaskWritesAndLoadsItsJob)
{
    const Result r = run({"-add", "com.vantreel.Quill", "backup", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const PlistDict written = readJob(job(1));
    EXPECT_EQ(written.value(QStringLiteral("ProgramArguments")).stringList(),
              QStringList({"Quill", "-backup"}));
    EXPECT_FALSE(written.contains(QStringLiteral("Disabled")));
    EXPECT_EQ(written.value(QStringLiteral("EnvironmentVariables"))
                  .dict()
                  .value(QStringLiteral("VTCommandID"))
                  .string(),
              QStringLiteral("backup"));
    EXPECT_EQ(launchctl->calls(), QStringList({"unload " + job(1), "load " + job(1),
                                               "unload " + job(1), "load " + job(1)}));
    const QStringList log = logLines();
    for (const char *line : {"Preparing to add task...", "Task bundle ID: com.vantreel.Quill...",
                             "Task ID: backup...", "Interval type: 3..."}) {
        EXPECT_TRUE(logHas(log, QLatin1String(line))) << line;
    }
    EXPECT_TRUE(client->errors(0).isEmpty());
}

TEST_F(CommandLineTest, TheTailDecidesIntervalAndState)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3", "-enable", "0"}).exitCode, 0);
    EXPECT_TRUE(readJob(job(1)).contains(QStringLiteral("Disabled")));
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3", "-enable"}).exitCode, 0);
    EXPECT_FALSE(readJob(job(2)).contains(QStringLiteral("Disabled")));
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "clean", "6", "300", "-enable", "1"}).exitCode, 0);
    EXPECT_EQ(readJob(job(3)).value(QStringLiteral("StartInterval")).integerValue(), 300);
    EXPECT_FALSE(readJob(job(3)).contains(QStringLiteral("Disabled")));
    ASSERT_EQ(
        run({"-add", "com.vantreel.Quill", "clean", "7", "30,2,,,", "-enable", "no"}).exitCode, 0);
    EXPECT_TRUE(readJob(job(4)).contains(QStringLiteral("Disabled")));
    EXPECT_EQ(readJob(job(4)).value(QStringLiteral("StartCalendarInterval")).array().size(), 2u);
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "8", "/srv/inbox"}).exitCode, 0);
    EXPECT_EQ(readJob(job(5)).value(QStringLiteral("WatchPaths")).stringList(),
              QStringList{"/srv/inbox"});
}

TEST_F(CommandLineTest, WrongCountsAreRefused)
{
    Result r = run({"-add", "com.vantreel.Quill", "backup"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Invalid argument count"))) << r.err.toStdString();
    EXPECT_TRUE(logHas(logLines(), QStringLiteral("Unable to add task - invalid argument count")));
    for (const QStringList &arguments :
         {QStringList{"-edit", job(1), "com.vantreel.Quill", "backup"}, QStringList{"-remove"}}) {
        r = run(arguments);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(hasLine(r.err, QStringLiteral("Invalid arguments"))) << r.err.toStdString();
    }
    EXPECT_TRUE(client->errors(0).isEmpty());
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

TEST_F(CommandLineTest, FailuresReachTheClientWithThePrefix)
{
    const Result r = run({"-add", "com.vantreel.Unknown", "backup", "3"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(
        r.err,
        QStringLiteral("Unable to get path for application with bundle ID com.vantreel.Unknown")));
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to create task")));
    EXPECT_EQ(client->errors(2),
              QStringList({"Kairo Planner: Unable to get path for application with bundle ID "
                           "com.vantreel.Unknown",
                           "Kairo Planner: Unable to create task"}));
    EXPECT_EQ(client->appNames().value(0), QStringLiteral("Kairo Planner"));

    const Result missing = run({"-add", "com.vantreel.Quill", "nothing", "3"});
    EXPECT_EQ(missing.exitCode, 1);
    // The client reads "task ID", the console "task id".
    EXPECT_TRUE(hasLine(missing.err, QStringLiteral("Unable to find task with task id nothing")));
    EXPECT_TRUE(client->errors(4).contains(
        QStringLiteral("Kairo Planner: Unable to find task with task ID nothing")));
}

TEST_F(CommandLineTest, EditingRewritesTheJobInPlace)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    const Result r = run({"-edit", job(1), "com.vantreel.Quill", "clean", "6", "-enable", "0"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const PlistDict edited = readJob(job(1));
    EXPECT_EQ(edited.value(QStringLiteral("ProgramArguments")).stringList(),
              QStringList({"Quill", "-clean", "-quiet"}));
    EXPECT_TRUE(edited.contains(QStringLiteral("StartInterval")));
    EXPECT_TRUE(edited.contains(QStringLiteral("Disabled")));
    EXPECT_FALSE(QFileInfo::exists(job(2)));
    EXPECT_TRUE(logHas(logLines(), "Filename: " + job(1) + "..."));
}

TEST_F(CommandLineTest, EditingFindsOnlyTheExactPath)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    for (const QString &other : {job(1) + "/", job(1).toUpper(), job(9)}) {
        const Result r = run({"-edit", other, "com.vantreel.Quill", "clean", "3"});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(hasLine(r.err, "Unable to find file " + other)) << r.err.toStdString();
    }
    EXPECT_TRUE(client->errors(3).contains("Kairo Planner: Unable to find file " + job(9)));
}

TEST_F(CommandLineTest, RemovingUnloadsAndDeletes)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    launchctl->clear();
    EXPECT_EQ(run({"-remove", job(1)}).exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(job(1)));
    EXPECT_EQ(launchctl->calls(), QStringList{"unload " + job(1)});

    // Nothing there: silence, and launchctl is not run.
    launchctl->clear();
    const Result gone = run({"-remove", job(1)});
    EXPECT_EQ(gone.exitCode, 0);
    EXPECT_TRUE(launchctl->calls().isEmpty());

    // A folder is never deleted with its contents.
    const QString folder = sandbox.mkdir(QStringLiteral("home/anna/Documents"));
    TestFiles::write(folder + "/keep.txt", "precious");
    const Result refused = run({"-remove", folder});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains("Error removing file " + folder + ": "));
    EXPECT_TRUE(
        client->errors(1).value(0).startsWith("Kairo Planner: Error moving file " + folder + ": "));
    EXPECT_EQ(TestFiles::read(folder + "/keep.txt"), QByteArray("precious"));
}

TEST_F(CommandLineTest, EnablingAndDisablingOneTask)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    ASSERT_EQ(run({"-disable", job(1)}).exitCode, 0);
    EXPECT_TRUE(readJob(job(1)).contains(QStringLiteral("Disabled")));
    ASSERT_EQ(run({"-enable", job(1)}).exitCode, 0);
    EXPECT_FALSE(readJob(job(1)).contains(QStringLiteral("Disabled")));
    EXPECT_TRUE(logHas(logLines(), "Preparing to enable " + job(1) + "..."));

    TestFiles::write(agents() + "/broken.plist", "not a job");
    const Result r = run({"-enable", agents() + "/broken.plist"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to load task data")));
    EXPECT_EQ(client->errors(1), QStringList{"Kairo Planner: Unable to load task data"});
}

TEST_F(CommandLineTest, AForeignJobFileIsUnreadableDataNotACrash)
{
    PlistDict foreign;
    foreign.insert(QStringLiteral("Label"), QStringLiteral("org.example.other"));
    foreign.insert(QStringLiteral("Program"), QStringLiteral("/usr/bin/true"));
    QDir().mkpath(agents());
    PropertyList::writeXml(PlistValue(foreign), agents() + "/com.vantreel.ScheduledTask7.plist");
    const Result r = run({"-disable", agents() + "/com.vantreel.ScheduledTask7.plist"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to load task data")));
    // The listing survives it too.
    EXPECT_EQ(run({"-tasks"}).exitCode, 0);
}

TEST_F(CommandLineTest, DisablingAllTasksGoesOverTheAgentsTwice)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "clean", "2"}).exitCode, 0);
    ASSERT_EQ(run({"-tasks"}).exitCode, 0); // the first scan of a version rewrites every job
    launchctl->clear();
    const Result r = run({"-disable"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    for (int n : {1, 2}) {
        EXPECT_TRUE(readJob(job(n)).contains(QStringLiteral("Disabled")));
        EXPECT_EQ(launchctl->calls().count("load " + job(n)), 2);
    }
    EXPECT_TRUE(logHas(logLines(), QStringLiteral("Preparing to disable all tasks...")));
}

TEST_F(CommandLineTest, TheFirstScanOfANewVersionRewritesEveryJobOnce)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "clean", "2"}).exitCode, 0);
    const QString prefs = sandbox.home() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    launchctl->clear();
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_EQ(launchctl->calls().size(), 4);
    const QString version =
        PropertyList::readDictionary(prefs)->value(QStringLiteral("lastRunVersion")).string();
    EXPECT_FALSE(version.isEmpty());

    launchctl->clear();
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_TRUE(launchctl->calls().isEmpty());

    // An older version on record: the next scan writes everything again.
    PlistDict older = *PropertyList::readDictionary(prefs);
    older.insert(QStringLiteral("lastRunVersion"), QStringLiteral("0.9"));
    PropertyList::writeXml(PlistValue(older), prefs);
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_EQ(launchctl->calls().size(), 4);
    EXPECT_EQ(PropertyList::readDictionary(prefs)->value(QStringLiteral("lastRunVersion")).string(),
              version);
}

TEST_F(CommandLineTest, ListingShowsEveryTaskByItsFile)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "clean", "6", "45"}).exitCode, 0);
    const Result r = run({"-tasks"});
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_FALSE(r.out.endsWith(QLatin1Char('\n')));
    EXPECT_TRUE(r.out.startsWith("{\n    \"" + job(1) + "\" =     {\n"));
    EXPECT_TRUE(r.out.contains(QStringLiteral("frequencyDescription = \"Once a day\";")));
    // Saved every N seconds, read back as a calendar task with an empty interval.
    EXPECT_TRUE(r.out.contains(QStringLiteral("intervalSeconds = 45;")));
    EXPECT_TRUE(r.out.contains(QStringLiteral("taskDescription = \"Clean caches\";")));
    EXPECT_EQ(r.out.count(QStringLiteral("filename = ")), 2);
}

TEST_F(CommandLineTest, TwelveAdditionsAtOnceNeverShareANumber)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 12; ++i) {
        processes.push_back(start({"-add", "com.vantreel.Quill", "backup", "2"}));
    }
    for (auto &p : processes) {
        ASSERT_TRUE(finish(*p));
        EXPECT_EQ(p->exitCode(), 0) << p->readAllStandardError().toStdString();
    }
    const QStringList files = QDir(agents()).entryList(QDir::Files);
    EXPECT_EQ(files.size(), 12);
    for (int n = 1; n <= 12; ++n) {
        EXPECT_TRUE(readJob(job(n)).contains(QStringLiteral("Label"))) << n;
    }
}

TEST_F(CommandLineTest, AJobFolderThatIsAFileLosesNothing)
{
    TestFiles::write(agents(), "a file where the folder should be");
    const Result list = run({"-tasks"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_EQ(list.out, QStringLiteral("{\n}"));
    const Result add = run({"-add", "com.vantreel.Quill", "backup", "3"});
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_TRUE(hasLine(add.err, QStringLiteral("Unable to create task")));
    EXPECT_EQ(TestFiles::read(agents()), QByteArray("a file where the folder should be"));
}

TEST_F(CommandLineTest, ARootTaskInAFolderTheUserCannotWriteIsRefused)
{
    QDir().mkpath(daemons());
    run({"-tasks"}); // hands the sandbox over
    // The system's job folder belongs to root (or, without root, is read-only).
    if (runningAsRoot()) {
        keepOwners = true;
        ASSERT_EQ(::chown(QFile::encodeName(daemons()).constData(), 0, 0), 0);
        ASSERT_EQ(::chmod(QFile::encodeName(daemons()).constData(), 0755), 0);
    } else {
        ASSERT_EQ(::chmod(QFile::encodeName(daemons()).constData(), 0555), 0);
    }
    const Result r = run({"-add", "com.vantreel.Quill", "repair", "3"});
    ::chmod(QFile::encodeName(daemons()).constData(), 0755);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to authorize"))) << r.err.toStdString();
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to authenticate")));
    EXPECT_TRUE(hasLine(r.err, QStringLiteral("Unable to create task")));
    EXPECT_TRUE(QDir(daemons()).entryList(QDir::Files).isEmpty());
}

TEST_F(CommandLineTest, AsRootARootTaskGoesToTheSystemFolder)
{
    if (!runningAsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("anna"));
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.home());
    const Result r = run({"-add", "com.vantreel.Quill", "repair", "3"}, true);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(job(1, true)).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_TRUE(QDir(agents()).entryList(QDir::Files).isEmpty());
}

TEST_F(CommandLineTest, AsRootNothingInTheHomeBecomesRootsAndNoPlantedLinkIsFollowed)
{
    if (!runningAsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    sandbox.setEnv("VT_CONSOLE_USER", QStringLiteral("anna"));
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.home());
    QDir().mkpath(sandbox.home() + QStringLiteral("/Library/Preferences"));
    handOver();
    // A file of root's outside the home, and a link to it where the preferences go.
    const QString victim = sandbox.file(QStringLiteral("root/etc/victim.plist"));
    TestFiles::write(victim, "root's own");
    ASSERT_TRUE(
        QFile::link(victim, sandbox.home() + QStringLiteral("/Library/Preferences/"
                                                            "com.vantreel.KairoPlanner.plist")));
    ASSERT_EQ(::lchown(QFile::encodeName(sandbox.home() +
                                         QStringLiteral("/Library/Preferences/"
                                                        "com.vantreel.KairoPlanner.plist"))
                           .constData(),
                       65534, 65534),
              0);

    const Result r = run({"-add", "com.vantreel.Quill", "backup", "3"}, true);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(TestFiles::read(victim), "root's own");
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(victim).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    // Everything in the home, made by this run or not, is still the user's.
    QStringList roots;
    QDirIterator it(sandbox.home(),
                    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString entry = it.next();
        if (::lstat(QFile::encodeName(entry).constData(), &info) == 0 && info.st_uid != 65534) {
            roots.append(entry);
        }
    }
    EXPECT_TRUE(roots.isEmpty()) << roots.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(QFileInfo::exists(job(1)));
}

TEST_F(CommandLineTest, AVanishedApplicationIsKeptWhenNobodyCanBeAsked)
{
    ASSERT_EQ(run({"-add", "com.vantreel.Quill", "backup", "3"}).exitCode, 0);
    QDir(quill).removeRecursively();
    const Result r = run({"-enable", job(1)});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains(QStringLiteral("Unable to locate executable file")));
    EXPECT_TRUE(QFileInfo::exists(job(1)));
}
