#include "BridgeTesting.h"

#include "JobFile.h"
#include "ManagerScope.h"
#include "UnitWriter.h"

#include "platform/PropertyList.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

namespace {

class JobFileTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    const QString path = sandbox.path() + "/job.plist";

    std::optional<JobFile> parse(const PlistDict &dict, QString *message)
    {
        PropertyList::writeXml(PlistValue(dict), path);
        return JobFile::read(path, message);
    }

    // The smallest valid job with one key replaced, or removed for an invalid value.
    static PlistDict with(const QString &key, const PlistValue &value,
                          PlistDict dict = {{"Label", "com.vantreel.ScheduledTask1"},
                                            {"Program", "/bin/true"}})
    {
        dict.remove(key);
        if (value.isValid()) {
            dict.insert(key, value);
        }
        return dict;
    }
};

} // namespace

TEST_F(JobFileTest, FilesThatAreNoJobGetLaunchctlsMessages)
{
    // Missing files and files that are no dictionary are the program's own test.
    QString message;

    // A label and a program are required; systemd would read these programs as ExecStart=
    // prefixes or refuse them.
    const QString noLabel = "launchctl: missing the Label key: " + path;
    const QString noProgram = "launchctl: missing the Program and ProgramArguments keys: " + path;
    std::vector<std::pair<PlistDict, QString>> cases{
        {with("Label", PlistValue()), noLabel},
        {with("Label", ""), noLabel},
        {with("Label", 5), noLabel},
        {with("Label", QString(QChar(0)) + "x"), noLabel},
        {with("Program", PlistValue()), noProgram},
        {with("ProgramArguments", PlistArray{}, with("Program", PlistValue())), noProgram}};
    for (const char *program : {"-rm", "@x", "+x", "!x", ":x", "bin/tool", ""}) {
        cases.emplace_back(with("Program", program),
                           QString("launchctl: invalid Program \"%1\": %2").arg(program, path));
    }
    for (const auto &[dict, expected] : cases) {
        EXPECT_FALSE(parse(dict, &message)) << expected.toStdString();
        EXPECT_EQ(message, expected);
    }
}

TEST_F(JobFileTest, ProgramAndArgumentsFollowLaunchd)
{
    const PlistDict argumentsOnly =
        with("ProgramArguments", QStringList{"tar", "-c", "x"}, with("Program", PlistValue()));
    const std::tuple<PlistDict, QString, QStringList, int> cases[] = {
        // Program alone runs with itself as argv[0].
        {with("Program", "/bin/true"), "/bin/true", {"/bin/true"}, 0},
        // ProgramArguments alone: its first element is the program, looked up by name.
        {argumentsOnly, "tar", {"tar", "-c", "x"}, 0},
        // Both: Program runs, ProgramArguments is argv; C strings end at a NUL.
        {with("ProgramArguments",
              PlistArray{PlistValue("gtar"), PlistValue(5),
                         PlistValue(QString("a") + QChar(0) + "b")},
              with("Program", "/usr/bin//./tar")),
         "/usr/bin/tar",
         {"gtar", "a"},
         1}};
    for (const auto &[dict, program, arguments, warnings] : cases) {
        QString message;
        const std::optional<JobFile> job = parse(dict, &message);
        ASSERT_TRUE(job) << message.toStdString();
        EXPECT_EQ(job->program(), program);
        EXPECT_EQ(job->arguments(), arguments);
        EXPECT_EQ(job->warnings().size(), warnings);
    }
}

TEST_F(JobFileTest, KeysOfTheWrongTypeAreIgnoredWithAWarning)
{
    PlistDict dict = with("RunAtLoad", "YES");
    for (const auto &[key, value] :
         {std::pair<QString, PlistValue>{"Disabled", 1},
          {"Nice", "15"},
          {"StartInterval", 0},
          {"WatchPaths", "/tmp"},
          {"StartCalendarInterval", PlistArray{PlistValue(5), PlistValue(PlistDict{{"Hour", 7}})}},
          {"EnvironmentVariables", PlistDict{{"A", "1"}, {"B", 2}}}}) {
        dict.insert(key, value);
    }
    QString message;
    const std::optional<JobFile> job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_FALSE(job->runAtLoad() || job->disabled() || job->nice() || job->startInterval());
    EXPECT_TRUE(job->watchPaths().isEmpty());
    EXPECT_EQ(job->calendarIntervals(), (std::vector<PlistDict>{PlistDict{{"Hour", 7}}}));
    EXPECT_EQ(job->environment(), (std::vector<std::pair<QString, QString>>{{"A", "1"}}));
    EXPECT_EQ(job->warnings().size(), 7) << job->warnings().join("; ").toStdString();
}

TEST_F(JobFileTest, ValuesAreReadAsLaunchdReadsThem)
{
    PlistDict dict = with("Nice", 40);
    for (const char *key : {"LowPriorityIO", "StartOnMount", "Disabled"}) {
        dict.insert(key, true);
    }
    // A lone dictionary is a calendar interval too.
    dict.insert("StartCalendarInterval", PlistDict{{"Minute", 5}});
    QString message;
    std::optional<JobFile> job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    // The kernel's range.
    EXPECT_EQ(job->nice(), 19);
    EXPECT_TRUE(job->lowPriorityIO() && job->startOnMount() && job->disabled());
    EXPECT_EQ(job->calendarIntervals().size(), 1u);
    EXPECT_TRUE(job->warnings().isEmpty());
    EXPECT_EQ(parse(with("Nice", -99, dict), &message)->nice(), -20);

    // The longest interval systemd's timers can hold, and one second more, which no timer
    // could run: that job is refused.
    job = parse(with("StartInterval", Q_INT64_C(18446744073708), dict), &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_EQ(job->startInterval(), Q_INT64_C(18446744073708));
    EXPECT_FALSE(parse(with("StartInterval", Q_INT64_C(18446744073709), dict), &message));
    EXPECT_TRUE(message.startsWith(
        "launchctl: StartInterval 18446744073709 is longer than systemd can wait"))
        << message.toStdString();
}

// The fuzz target's seed corpus, the inputs that once crashed among them, is read and
// translated by the ordinary suite too.
TEST_F(JobFileTest, EveryFileOfTheFuzzCorpusIsReadOrRefused)
{
    const QDir corpus(KAIRO_TEST_DATA_DIR "/fuzz");
    const QStringList files = corpus.entryList(QDir::Files);
    ASSERT_GE(files.size(), 4);
    for (const QString &name : files) {
        QString message;
        const std::optional<JobFile> job = JobFile::read(corpus.filePath(name), &message);
        EXPECT_EQ(job.has_value(), !name.startsWith("crash-")) << name.toStdString();
        if (job) {
            EXPECT_TRUE(UnitWriter::forJob(*job, ManagerScope::user(), &message,
                                           BridgeTesting::bridgeBinary()))
                << name.toStdString() << ": " << message.toStdString();
        }
    }
}

TEST_F(JobFileTest, DaemonsAreTheJobsInTheSystemFolderOnly)
{
    const QString daemons = sandbox.localRoot() + "/Library/LaunchDaemons";
    const QString inHome = sandbox.home() + "/Library/LaunchDaemons";
    for (const QString &folder : {daemons, inHome}) {
        TestFiles::write(folder + "/x.plist", "job");
    }
    QFile::link(daemons + "/x.plist", daemons + "/link.plist");
    EXPECT_TRUE(ManagerScope::forJobFile(daemons + "/x.plist").isSystem());
    // A folder that merely has the name is no system folder, nor is a link in the real one.
    for (const QString &file : {inHome + "/x.plist", daemons + "/link.plist",
                                QString("/Library/LaunchDaemons/x.plist")}) {
        EXPECT_FALSE(ManagerScope::forJobFile(file).isSystem()) << file.toStdString();
    }

    EXPECT_EQ(ManagerScope::system().unitFolder(), sandbox.localRoot() + "/etc/systemd/system");
    EXPECT_EQ(ManagerScope::user().unitFolder(), sandbox.home() + "/.config/systemd/user");
    sandbox.setEnv("XDG_CONFIG_HOME", sandbox.path() + "/config/");
    EXPECT_EQ(ManagerScope::user().unitFolder(), sandbox.path() + "/config/systemd/user");
    // A relative XDG_CONFIG_HOME is to be ignored.
    sandbox.setEnv("XDG_CONFIG_HOME", "config");
    EXPECT_EQ(ManagerScope::user().unitFolder(), sandbox.home() + "/.config/systemd/user");
}
