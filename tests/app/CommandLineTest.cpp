#include "CommandLineFixture.h"

#include "platform/FileNames.h"
#include "platform/PlistText.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "testsupport/ClientApps.h"
#include "testsupport/TestFiles.h"

#include <QtCore>

#include <sys/stat.h>

namespace {

bool hasLine(const QString &text, const QString &message)
{
    return text.contains("] " + message + QLatin1Char('\n'));
}

bool logHas(const QStringList &lines, const QString &message)
{
    for (const QString &line : lines) {
        if (line.endsWith(" - " + message)) {
            return true;
        }
    }
    return false;
}

} // namespace

class CommandLineTest : public CommandLineFixture
{
protected:
    Result add(const QStringList &rest, bool asRoot = false)
    {
        return run(QStringList{"-add", "com.vantreel.Quill"} + rest, asRoot);
    }
};

// A listing of no tasks is an empty dictionary, and the scan makes both job folders; one of
// tasks names each by its file, without a newline at the end. A switch is case-sensitive:
// an unknown one starts the window, after the log is made.
TEST_F(CommandLineTest, ListingAndTheUnknownSwitch)
{
    Result r = run({"-tasks"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "{\n}");
    EXPECT_TRUE(QFileInfo(agents()).isDir() && QFileInfo(daemons()).isDir());
    EXPECT_TRUE(logHas(logLines(), "Getting list of scheduled tasks..."));

    ASSERT_EQ(add({"backup", "3"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "6", "45"}).exitCode, 0);
    r = run({"-tasks"});
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_FALSE(r.out.endsWith(QLatin1Char('\n')));
    EXPECT_TRUE(r.out.startsWith("{\n    \"" + job(1) + "\" =     {\n"));
    // Saved every N seconds, read back as a calendar task with an empty interval.
    EXPECT_TRUE(r.out.contains("intervalSeconds = 45;"));
    EXPECT_EQ(r.out.count("filename = "), 2);

    auto process = start({"-Tasks"});
    QThread::msleep(1500);
    EXPECT_EQ(process->state(), QProcess::Running);
    process->kill();
    process->waitForFinished();
    EXPECT_TRUE(
        QFileInfo::exists(sandbox.home() + "/Library/Logs/Vantreel/Kairo Planner.task.1.log"));
}

// An addition writes and loads its job; the tail decides interval, watched path and state.
TEST_F(CommandLineTest, AddingATaskWritesAndLoadsItsJob)
{
    const Result r = add({"backup", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(readJob(job(1)).value("ProgramArguments").stringList(),
              QStringList({"Quill", "-backup"}));
    EXPECT_EQ(launchctl->calls(), QStringList({"unload " + job(1), "load " + job(1),
                                               "unload " + job(1), "load " + job(1)}));
    EXPECT_TRUE(logHas(logLines(), "Task bundle ID: com.vantreel.Quill..."));
    EXPECT_TRUE(errors(0).isEmpty());

    ASSERT_EQ(add({"backup", "3", "-enable", "0"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "6", "300", "-enable", "1"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "7", "30,2,,,", "-enable", "no"}).exitCode, 0);
    ASSERT_EQ(add({"backup", "8", "/srv/inbox"}).exitCode, 0);
    // Without position 7 the task is enabled; "enable" is no switch.
    ASSERT_EQ(add({"backup", "3", "-enable"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "6", "300", "-enable"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "6", "45", "enable", "0"}).exitCode, 0);
    for (int n = 1; n <= 8; ++n) {
        EXPECT_EQ(readJob(job(n)).contains("Disabled"), n == 2 || n == 4) << n;
    }
    for (const auto &[n, seconds] : {std::pair(3, 300), std::pair(7, 300), std::pair(8, 45)}) {
        EXPECT_EQ(readJob(job(n)).value("StartInterval").integerValue(), seconds);
    }
    EXPECT_EQ(readJob(job(4)).value("StartCalendarInterval").array().size(), 2u);
    EXPECT_EQ(readJob(job(5)).value("WatchPaths").stringList(), QStringList{"/srv/inbox"});
}

// Each failure is said on the console and, with the prefix, to the client; the client reads
// "task ID", the console "task id". Wrong counts reach only the console.
TEST_F(CommandLineTest, FailuresReachTheConsoleAndTheClient)
{
    struct Case
    {
        QStringList arguments;
        QStringList console;
        QStringList client;
        QString logged;
    };
    const QString created = "Unable to create task";
    const Case cases[] = {
        {{"-add", "com.vantreel.Quill", "backup"},
         {"Invalid argument count"},
         {},
         "Unable to add task - invalid argument count"},
        {{"-edit", job(1), "com.vantreel.Quill", "backup"}, {"Invalid arguments"}, {}, {}},
        {{"-remove"}, {"Invalid arguments"}, {}, {}},
        {{"-add", "com.vantreel.Unknown", "backup", "3"},
         {"Unable to get path for application with bundle ID com.vantreel.Unknown", created},
         {"Unable to get path for application with bundle ID com.vantreel.Unknown", created},
         {}},
        {{"-add", "com.vantreel.Quill", "backup", "6"},
         {"You must specify an interval value for this interval type", created},
         {created},
         {}},
        {{"-add", "com.vantreel.Quill", "nothing", "3"},
         {"Unable to find task with task id nothing", created},
         {"Unable to find task with task ID nothing", created},
         {}},
    };
    int total = 0;
    for (const Case &c : cases) {
        const Result r = run(c.arguments);
        EXPECT_EQ(r.exitCode, 1);
        for (const QString &line : c.console) {
            EXPECT_TRUE(hasLine(r.err, line)) << r.err.toStdString();
        }
        EXPECT_TRUE(c.logged.isEmpty() || logHas(logLines(), c.logged));
        total += static_cast<int>(c.client.size());
        const QStringList told = errors(total);
        EXPECT_EQ(told.size(), total);
        for (int i = 0; i < c.client.size(); ++i) {
            EXPECT_EQ(told.value(total - c.client.size() + i), "Kairo Planner: " + c.client[i]);
        }
    }
    EXPECT_EQ(errors(0, 4).value(0), "{appName=Kairo Planner}");
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

// Editing rewrites the job in place, enabling and disabling change its state and removing
// unloads and deletes it, each finding it by its exact path only.
TEST_F(CommandLineTest, EditEnableDisableAndRemoveOneJob)
{
    ASSERT_EQ(add({"backup", "3"}).exitCode, 0);
    const Result r = run({"-edit", job(1), "com.vantreel.Quill", "clean", "6", "-enable", "0"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const PlistDict edited = readJob(job(1));
    EXPECT_EQ(edited.value("ProgramArguments").stringList(),
              QStringList({"Quill", "-clean", "-quiet"}));
    EXPECT_TRUE(edited.contains("StartInterval"));
    EXPECT_TRUE(edited.contains("Disabled"));
    EXPECT_FALSE(QFileInfo::exists(job(2)));
    EXPECT_TRUE(logHas(logLines(), "Filename: " + job(1) + "..."));
    for (const QString &other : {job(1) + "/", job(1).toUpper(), job(9)}) {
        const Result wrong = run({"-edit", other, "com.vantreel.Quill", "clean", "3"});
        EXPECT_EQ(wrong.exitCode, 1);
        EXPECT_TRUE(hasLine(wrong.err, "Unable to find file " + other)) << wrong.err.toStdString();
    }
    EXPECT_TRUE(errors(3).contains("Kairo Planner: Unable to find file " + job(9)));

    ASSERT_EQ(add({"backup", "3"}).exitCode, 0);
    ASSERT_EQ(run({"-disable", job(2)}).exitCode, 0);
    EXPECT_TRUE(readJob(job(2)).contains("Disabled"));
    ASSERT_EQ(run({"-enable", job(2)}).exitCode, 0);
    EXPECT_FALSE(readJob(job(2)).contains("Disabled"));
    EXPECT_TRUE(logHas(logLines(), "Preparing to enable " + job(2) + "..."));
    // Neither a file that is no job nor another program's job is task data.
    const int told = static_cast<int>(errors(3).size());
    TestFiles::write(agents() + "/broken.plist", "not a job");
    PropertyList::writeXml(
        PlistValue(PlistDict{{"Label", "org.example.other"}, {"Program", "/usr/bin/true"}}),
        job(7));
    for (const QString &file : {agents() + "/broken.plist", job(7)}) {
        const Result refused = run({"-enable", file});
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_TRUE(hasLine(refused.err, "Unable to load task data"));
    }
    EXPECT_EQ(errors(told + 2).mid(told),
              QStringList(2, "Kairo Planner: Unable to load task data"));
    // The listing survives them.
    EXPECT_EQ(run({"-tasks"}).exitCode, 0);
    // A vanished application is kept when nobody can be asked.
    const QString moved = quill + ".moved";
    ASSERT_TRUE(QDir().rename(quill, moved));
    const Result vanished = run({"-enable", job(1)});
    EXPECT_EQ(vanished.exitCode, 1);
    EXPECT_TRUE(vanished.err.contains("Unable to locate executable file"));
    EXPECT_TRUE(QFileInfo::exists(job(1)));
    ASSERT_TRUE(QDir().rename(moved, quill));

    launchctl->clear();
    EXPECT_EQ(run({"-remove", job(1)}).exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(job(1)));
    EXPECT_EQ(launchctl->calls(), QStringList{"unload " + job(1)});
    // Nothing there: silence, and launchctl is not run.
    launchctl->clear();
    EXPECT_EQ(run({"-remove", job(1)}).exitCode, 0);
    EXPECT_TRUE(launchctl->calls().isEmpty());
    // A folder is never deleted with its contents.
    const QString folder = sandbox.mkdir("home/anna/Documents");
    TestFiles::write(folder + "/keep.txt", "precious");
    const int before = static_cast<int>(errors(0).size());
    const Result refused = run({"-remove", folder});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains("Error removing file " + folder + ": "));
    EXPECT_TRUE(errors(before + 1)
                    .value(before)
                    .startsWith("Kairo Planner: Error moving file " + folder + ": "));
    EXPECT_EQ(TestFiles::read(folder + "/keep.txt"), QByteArray("precious"));
}

TEST_F(CommandLineTest, TheFirstScanOfANewVersionRewritesEveryJobOnceAndDisableAllTwice)
{
    ASSERT_EQ(add({"backup", "3"}).exitCode, 0);
    ASSERT_EQ(add({"clean", "2"}).exitCode, 0);
    const QString prefs = sandbox.home() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    launchctl->clear();
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_EQ(launchctl->calls().size(), 4);
    const QString version = PropertyList::readDictionary(prefs)->value("lastRunVersion").string();
    EXPECT_FALSE(version.isEmpty());

    launchctl->clear();
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_TRUE(launchctl->calls().isEmpty());

    // An older version on record: the next scan writes everything again.
    PlistDict older = *PropertyList::readDictionary(prefs);
    older.insert("lastRunVersion", "0.9");
    PropertyList::writeXml(PlistValue(older), prefs);
    ASSERT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_EQ(launchctl->calls().size(), 4);
    EXPECT_EQ(PropertyList::readDictionary(prefs)->value("lastRunVersion").string(), version);

    // Disabling all tasks goes over the agents twice.
    launchctl->clear();
    const Result r = run({"-disable"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    for (int n : {1, 2}) {
        EXPECT_TRUE(readJob(job(n)).contains("Disabled"));
        EXPECT_EQ(launchctl->calls().count("load " + job(n)), 2);
    }
}

TEST_F(CommandLineTest, AJobFolderThatIsAFileLosesNothing)
{
    TestFiles::write(agents(), "a file where the folder should be");
    const Result list = run({"-tasks"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_EQ(list.out, "{\n}");
    const Result added = add({"backup", "3"});
    EXPECT_EQ(added.exitCode, 1);
    EXPECT_TRUE(hasLine(added.err, "Unable to create task"));
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
    const Result r = add({"repair", "3"});
    ::chmod(QFile::encodeName(daemons()).constData(), 0755);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(hasLine(r.err, "Unable to authorize")) << r.err.toStdString();
    EXPECT_TRUE(hasLine(r.err, "Unable to create task"));
    EXPECT_TRUE(QDir(daemons()).entryList(QDir::Files).isEmpty());
}

// As root, a root task goes to the system's folder, root's own; nothing in the home becomes
// root's and no link planted there is followed.
TEST_F(CommandLineTest, AsRootRootTasksAreRootsAndTheHomeStaysTheUsers)
{
    if (!runningAsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    sandbox.setEnv("VT_CONSOLE_USER", "anna");
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.home());
    // A file of root's outside the home, and a link to it where the preferences go.
    const QString link = sandbox.home() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    QDir().mkpath(QFileInfo(link).path());
    handOver();
    const QString victim = TestFiles::write(sandbox.file("root/etc/victim.plist"), "root's own");
    ASSERT_TRUE(QFile::link(victim, link));
    ASSERT_EQ(::lchown(QFile::encodeName(link).constData(), 65534, 65534), 0);

    Result r = add({"repair", "3"}, true);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(job(1, true)).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_TRUE(QDir(agents()).entryList(QDir::Files).isEmpty());

    r = add({"backup", "3"}, true);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(job(1)));
    EXPECT_EQ(TestFiles::read(victim), "root's own");
    ASSERT_EQ(::stat(QFile::encodeName(victim).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    // Everything in the home, made by these runs or not, is still the user's.
    QProcess find;
    find.start("find", {sandbox.home(), "!", "-uid", "65534"});
    ASSERT_TRUE(finish(find));
    EXPECT_EQ(find.readAllStandardOutput(), QByteArray());
}

// A file that once aborted every command (a binary key holding U+0000) and a FIFO that
// nobody writes, in each place a command reads a property list: every command still ends,
// with its ordinary status.
TEST_F(CommandLineTest, NoPropertyListCrashesOrHangsACommand)
{
    const QString crash = QStringLiteral(KAIRO_TEST_DATA_DIR "/fuzz/crash-nul-key-utf16.plist");
    const QString prefs = sandbox.home() + "/Library/Preferences/";
    const QString places[] = {agents() + "/com.vantreel.ScheduledTask9.plist",
                              quill + "/Contents/VTTasks.plist", quill + "/Contents/Info.plist",
                              prefs + "com.vantreel.KairoPlanner.plist",
                              prefs + "com.vantreel.global.plist"};
    for (const bool fifo : {false, true}) {
        for (const QString &place : places) {
            SCOPED_TRACE((fifo ? "FIFO at " : "crash file at ") + place.toStdString());
            const QString saved = place + ".saved";
            QDir().mkpath(QFileInfo(place).absolutePath());
            QFile::rename(place, saved);
            if (fifo) {
                ASSERT_EQ(::mkfifo(QFile::encodeName(place).constData(), 0644), 0);
            } else {
                ASSERT_TRUE(QFile::copy(crash, place));
            }
            EXPECT_EQ(run({"-tasks"}).exitCode, 0);
            const Result added = add({"backup", "3"});
            EXPECT_TRUE(added.exitCode == 0 || added.exitCode == 1) << added.exitCode;
            QFile::remove(place);
            QFile::rename(saved, place);
        }
    }
}

TEST_F(CommandLineTest, WithoutADisplayTheWindowIsRefusedInOneLine)
{
    sandbox.setEnv("QT_QPA_PLATFORM", std::nullopt);
    sandbox.setEnv("WAYLAND_DISPLAY", std::nullopt);
    // No display at all, and one nobody answers on.
    for (const std::optional<QString> &display :
         {std::optional<QString>(), std::optional<QString>(":97")}) {
        sandbox.setEnv("DISPLAY", display);
        for (const QStringList &arguments : {QStringList{}, QStringList{"-Tasks"}}) {
            const Result r = run(arguments);
            EXPECT_EQ(r.exitCode, 1) << r.err.toStdString();
            EXPECT_EQ(r.err.count(QLatin1Char('\n')), 1) << r.err.toStdString();
            EXPECT_TRUE(hasLine(r.err, "No display to open the window on")) << r.err.toStdString();
        }
    }
    EXPECT_TRUE(
        QDir(sandbox.home() + "/Library/Logs/DiagnosticReports").entryList(QDir::Files).isEmpty());
}

// Preferences that cannot be written: the version is not recorded, which is said, and the
// jobs are not written again on every command; a file that cannot be read is not replaced.
TEST_F(CommandLineTest, UnwritablePreferencesStopTheUpgradeRewrite)
{
    ASSERT_EQ(add({"backup", "3"}).exitCode, 0);
    const QString folder = sandbox.home() + "/Library/Preferences";
    const QString prefs = folder + "/com.vantreel.KairoPlanner.plist";
    QDir().mkpath(folder);
    const QByteArray content =
        PropertyList::toXml(PlistValue(PlistDict{{"sortedColumn", "colTask"}}));
    for (const bool unreadableFile : {true, false}) {
        SCOPED_TRACE(unreadableFile ? "mode 000 file" : "read-only folder");
        TestFiles::write(prefs, content);
        run({"-remove", "/nonexistent"}); // hands the sandbox over (and notes the launch)
        const QByteArray before = TestFiles::read(prefs);
        const QByteArray target = QFile::encodeName(unreadableFile ? prefs : folder);
        ASSERT_EQ(::chmod(target.constData(), unreadableFile ? 0 : 0555), 0);
        launchctl->clear();
        for (int i = 0; i < 2; ++i) {
            const Result r = run({"-tasks"});
            EXPECT_EQ(r.exitCode, 0);
            EXPECT_TRUE(r.err.contains("Unable to record version")) << r.err.toStdString();
        }
        EXPECT_TRUE(launchctl->calls().isEmpty()) << launchctl->calls().join(", ").toStdString();
        ::chmod(target.constData(), unreadableFile ? 0644 : 0755);
        EXPECT_EQ(TestFiles::read(prefs), before);
    }
    EXPECT_TRUE(logHas(logLines(), "Unable to record version " + QStringLiteral(KAIRO_VERSION) +
                                       " in " + prefs + "; job files are not rewritten"));
}

// A scan that cannot make the system's job folder says so; one that runs removes what
// killed writers left beside the job files.
TEST_F(CommandLineTest, AScanSaysWhyItEndedAndCleansUpAfterKilledWriters)
{
    const QString stale = agents() + "/.com.vantreel.ScheduledTask1.plist.AbC123";
    TestFiles::write(stale, "");
    TestFiles::write(sandbox.localRoot() + "/Library", "a file where the folder should be");
    const QString message =
        "Unable to create folder " + daemons() + "; scheduled tasks were not read";
    const Result refused = run({"-tasks"});
    EXPECT_EQ(refused.exitCode, 0);
    EXPECT_EQ(refused.out, "{\n}");
    EXPECT_TRUE(hasLine(refused.err, message)) << refused.err.toStdString();
    EXPECT_TRUE(logHas(logLines(), message));

    QFile::remove(sandbox.localRoot() + "/Library");
    EXPECT_EQ(run({"-tasks"}).exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(stale));
}

// A newline in an argument cannot forge a line of the log. Twelve additions at once never
// share a number, and rotate the log without losing a message to the race.
TEST_F(CommandLineTest, LogLinesAreOneLineEachAndConcurrentAdditionsDoNotCollide)
{
    const QString forged = "2026-01-01 00:00:00 +0000 - forged";
    EXPECT_EQ(add({"backup\n" + forged, "3"}).exitCode, 1);
    const QStringList lines = logLines();
    for (const QString &line : lines) {
        EXPECT_FALSE(line.startsWith("2026-01-01")) << line.toStdString();
    }
    EXPECT_TRUE(logHas(lines, "Task ID: backup\\n" + forged + "..."));

    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 12; ++i) {
        processes.push_back(start({"-add", "com.vantreel.Quill", "backup", "2"}));
    }
    for (auto &p : processes) {
        ASSERT_TRUE(finish(*p));
        const QString err = QString::fromUtf8(p->readAllStandardError());
        EXPECT_EQ(p->exitCode(), 0) << err.toStdString();
        EXPECT_FALSE(err.contains("Unable to move file")) << err.toStdString();
        EXPECT_FALSE(err.contains("Unable to log")) << err.toStdString();
    }
    EXPECT_EQ(QDir(agents()).entryList(QDir::Files).size(), 12);
    for (int n = 1; n <= 12; ++n) {
        EXPECT_TRUE(readJob(job(n)).contains("Label")) << n;
    }
}

// Names that are not UTF-8 reach the system as the bytes they are, from the arguments, HOME,
// folder listings and job files: in a home so named, with a client in a folder so named,
// each command finds and changes the very file it names.
TEST_F(CommandLineTest, NamesThatAreNotUtf8AreKeptAsBytes)
{
    const QByteArray home = FileNames::encode(sandbox.path()) + "/caf\xe9";
    ASSERT_TRUE(PosixFile::makeFolders(FileNames::decode(home + "/Applications")));
    const QString staged = sandbox.mkdir("staging");
    ClientApps::make(staged, "Tessel", "com.vantreel.Tessel",
                     PlistValue(PlistArray{ClientApps::entry("thumbs", {"-thumbs"}, "Thumbs")}));
    const QByteArray tools = home + "/Applications/T\xf6ols";
    ASSERT_EQ(::rename(FileNames::encode(staged).constData(), tools.constData()), 0);
    const QByteArray jobs = home + "/Library/LaunchAgents";
    const QByteArray first = jobs + "/com.vantreel.ScheduledTask1.plist";
    const QByteArray latin1 = jobs + "/com.vantreel.ScheduledTask\xe9.plist";

    struct Step
    {
        QList<QByteArray> arguments;
        QByteArray present;
        QByteArray gone;
        QByteArray printed;
        QByteArray renamedTo; // after the step, present is renamed to this
    };
    const Step steps[] = {
        {{"-add", "com.vantreel.Tessel", "thumbs", "3"}, first, {}, {}, latin1},
        {{"-tasks"}, latin1, {}, latin1, {}},
        {{"-add", "com.vantreel.Quill", "backup", "3"}, first, {}, {}, {}},
        {{"-remove", latin1}, first, latin1, {}, {}},
    };
    for (const Step &step : steps) {
        const Result r = runBytes(step.arguments, home);
        const std::string what = step.arguments.join(' ').toStdString();
        EXPECT_EQ(r.exitCode, 0) << what << ": " << r.err.toStdString();
        EXPECT_EQ(::access(step.present.constData(), F_OK), 0) << what;
        if (!step.gone.isEmpty()) {
            EXPECT_NE(::access(step.gone.constData(), F_OK), 0) << what;
        }
        if (!step.printed.isEmpty()) {
            EXPECT_TRUE(r.out.contains(PlistText::quoted(FileNames::decode(step.printed)))) << what;
        }
        if (!step.renamedTo.isEmpty()) {
            ASSERT_EQ(::rename(step.present.constData(), step.renamedTo.constData()), 0) << what;
        }
    }
    // No second home under another name.
    for (const QString &entry : FileNames::entryList(sandbox.path())) {
        EXPECT_TRUE(!entry.startsWith("caf") || FileNames::encode(entry) == "caf\xe9")
            << entry.toStdString();
    }
}

// A job the launchctl tool refuses (say, one systemd could not run) is still saved, as the
// tool's outcome does not decide the save, and the refusal is on the console and in the
// log, for a root job as for a user's.
TEST_F(CommandLineTest, ALoadTheToolRefusesReachesTheLog)
{
    TestFiles::writeScript(launchctl->path(), "[ \"$1\" != load ] || exit 3");
    sandbox.setEnv("VT_CONSOLE_USER", "anna");
    sandbox.setEnv("VT_CONSOLE_HOME", sandbox.home());
    // Root's log is the machine's.
    const QString rootLog =
        sandbox.mkdir("root/Library/Logs/Vantreel") + "/Kairo Planner.task.1.log";
    for (const bool root : {false, true}) {
        if (root && !runningAsRoot()) {
            continue;
        }
        const Result r = add({root ? "repair" : "backup", "3"}, root);
        EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
        const QString message = "launchctl refused to load " + job(1, root) + " (status 3)";
        EXPECT_TRUE(hasLine(r.err, message)) << r.err.toStdString();
        EXPECT_TRUE(logHas(root ? TestFiles::lines(rootLog) : logLines(), message)) << root;
    }
}

// A damaged preferences file is kept aside and a new one written: the version is recorded
// at once and not reported as unrecordable on every command.
TEST_F(CommandLineTest, DamagedPreferencesAreKeptAsideAndWrittenAnew)
{
    const QString prefs = sandbox.home() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    TestFiles::write(prefs, "not a property list");
    for (int i = 0; i < 2; ++i) {
        const Result r = run({"-tasks"});
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_FALSE(r.err.contains("Unable to record version")) << r.err.toStdString();
        EXPECT_EQ(hasLine(r.err, "Damaged preferences file " + prefs + " was kept as " + prefs +
                                     ".damaged; a new one is written"),
                  i == 0)
            << r.err.toStdString();
    }
    EXPECT_EQ(TestFiles::read(prefs + ".damaged"), "not a property list");
    EXPECT_EQ(PropertyList::readDictionary(prefs).value_or(PlistDict()).value("lastRunVersion"),
              PlistValue(QStringLiteral(KAIRO_VERSION)));
}
