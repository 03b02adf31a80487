#include "BridgeTesting.h"

#include "JobFile.h"
#include "ManagerScope.h"
#include "UnitWriter.h"

#include "platform/PropertyList.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QFile>

#include <gtest/gtest.h>

#include <QDir>

namespace {

class JobFileTest : public ::testing::Test
{
protected:
    Sandbox sandbox;

    std::optional<JobFile> parse(const PlistDict &dict, QString *message)
    {
        const QString path = sandbox.file(QStringLiteral("job.plist"));
        PropertyList::writeXml(PlistValue(dict), path);
        return JobFile::read(path, message);
    }

    PlistDict minimal()
    {
        return PlistDict{{"Label", "com.vantreel.ScheduledTask1"}, {"Program", "/bin/true"}};
    }
};

} // namespace

TEST_F(JobFileTest, MissingUnreadableAndInvalidFilesGetLaunchctlsMessages)
{
    QString message;
    EXPECT_FALSE(JobFile::read(QStringLiteral("/nonexistent/job.plist"), &message));
    EXPECT_EQ(
        message,
        QStringLiteral(
            "launchctl: Couldn't stat(\"/nonexistent/job.plist\"): No such file or directory"));

    const QString garbage = sandbox.file(QStringLiteral("garbage.plist"));
    TestFiles::write(garbage, "<plist><dict><key>Label</key>");
    const QString array = sandbox.file(QStringLiteral("array.plist"));
    PropertyList::writeXml(PlistValue(QStringList{"Label"}), array);
    for (const QString &path : {garbage, array, sandbox.mkdir(QStringLiteral("folder.plist"))}) {
        EXPECT_FALSE(JobFile::read(path, &message));
        EXPECT_EQ(message, QStringLiteral("launchctl: no plist was returned for: ") + path);
    }
}

TEST_F(JobFileTest, ALabelAndAProgramAreRequired)
{
    QString message;
    const QString path = sandbox.path() + QStringLiteral("/job.plist");
    for (const PlistValue &label :
         {PlistValue(), PlistValue(""), PlistValue(5), PlistValue(QString(QChar(0)) + "x")}) {
        PlistDict dict = minimal();
        dict.remove(QStringLiteral("Label"));
        if (label.isValid()) {
            dict.insert(QStringLiteral("Label"), label);
        }
        EXPECT_FALSE(parse(dict, &message)) << label.description().toStdString();
        EXPECT_EQ(message, QStringLiteral("launchctl: missing the Label key: ") + path);
    }

    PlistDict dict = minimal();
    dict.remove(QStringLiteral("Program"));
    EXPECT_FALSE(parse(dict, &message));
    EXPECT_EQ(message,
              QStringLiteral("launchctl: missing the Program and ProgramArguments keys: ") + path);
    dict.insert(QStringLiteral("ProgramArguments"), PlistArray{});
    EXPECT_FALSE(parse(dict, &message));

    // systemd would read these as ExecStart= prefixes or refuse them.
    for (const char *program : {"-rm", "@x", "+x", "!x", ":x", "bin/tool", ""}) {
        dict = minimal();
        dict.insert(QStringLiteral("Program"), program);
        EXPECT_FALSE(parse(dict, &message)) << program;
        EXPECT_EQ(message, QStringLiteral("launchctl: invalid Program \"%1\": %2")
                               .arg(QString::fromLatin1(program), path));
    }
}

TEST_F(JobFileTest, ProgramAndArgumentsFollowLaunchd)
{
    QString message;
    // Program alone runs with itself as argv[0].
    std::optional<JobFile> job = parse(minimal(), &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_EQ(job->program(), QStringLiteral("/bin/true"));
    EXPECT_EQ(job->arguments(), QStringList{"/bin/true"});

    // ProgramArguments alone: its first element is the program, looked up by name.
    PlistDict dict = minimal();
    dict.remove(QStringLiteral("Program"));
    dict.insert(QStringLiteral("ProgramArguments"), QStringList{"tar", "-c", "x"});
    job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_EQ(job->program(), QStringLiteral("tar"));
    EXPECT_EQ(job->arguments(), (QStringList{"tar", "-c", "x"}));

    // Both: Program runs, ProgramArguments is argv; C strings end at a NUL.
    dict.insert(QStringLiteral("Program"), "/usr/bin//./tar");
    dict.insert(
        QStringLiteral("ProgramArguments"),
        PlistArray{PlistValue("gtar"), PlistValue(5), PlistValue(QString("a") + QChar(0) + "b")});
    job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_EQ(job->program(), QStringLiteral("/usr/bin/tar"));
    EXPECT_EQ(job->arguments(), (QStringList{"gtar", "a"}));
    EXPECT_EQ(job->warnings().size(), 1);
}

TEST_F(JobFileTest, KeysOfTheWrongTypeAreIgnoredWithAWarning)
{
    PlistDict dict = minimal();
    dict.insert(QStringLiteral("RunAtLoad"), "YES");
    dict.insert(QStringLiteral("Disabled"), 1);
    dict.insert(QStringLiteral("Nice"), "15");
    dict.insert(QStringLiteral("StartInterval"), 0);
    dict.insert(QStringLiteral("WatchPaths"), "/tmp");
    dict.insert(QStringLiteral("StartCalendarInterval"),
                PlistArray{PlistValue(5), PlistValue(PlistDict{{"Hour", 7}})});
    dict.insert(QStringLiteral("EnvironmentVariables"), PlistDict{{"A", "1"}, {"B", 2}});
    QString message;
    const std::optional<JobFile> job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_FALSE(job->runAtLoad());
    EXPECT_FALSE(job->nice());
    EXPECT_TRUE(job->watchPaths().isEmpty());
    ASSERT_EQ(job->calendarIntervals().size(), 1u);
    EXPECT_EQ(job->calendarIntervals().front(), (PlistDict{{"Hour", 7}}));
    ASSERT_EQ(job->environment().size(), 1u);
    EXPECT_EQ(job->environment().front(), std::make_pair(QStringLiteral("A"), QStringLiteral("1")));
    EXPECT_EQ(job->warnings().size(), 7) << job->warnings().join("; ").toStdString();
}

TEST_F(JobFileTest, ValuesAreReadAsLaunchdReadsThem)
{
    PlistDict dict = minimal();
    dict.insert(QStringLiteral("Nice"), 40);
    dict.insert(QStringLiteral("LowPriorityIO"), true);
    dict.insert(QStringLiteral("StartOnMount"), true);
    dict.insert(QStringLiteral("StartInterval"), 30);
    // A lone dictionary is a calendar interval too.
    dict.insert(QStringLiteral("StartCalendarInterval"), PlistDict{{"Minute", 5}});
    dict.insert(QStringLiteral("Disabled"), true);
    QString message;
    std::optional<JobFile> job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    // The kernel's range.
    EXPECT_EQ(job->nice(), 19);
    EXPECT_TRUE(job->lowPriorityIO() && job->startOnMount() && job->disabled());
    EXPECT_EQ(job->calendarIntervals().size(), 1u);
    EXPECT_TRUE(job->warnings().isEmpty());

    dict.insert(QStringLiteral("Nice"), -99);
    job = parse(dict, &message);
    EXPECT_EQ(job->nice(), -20);

    // The longest interval systemd's timers can hold, and one second more, which no timer
    // could run: that job is refused.
    dict.insert(QStringLiteral("StartInterval"), Q_INT64_C(18446744073708));
    job = parse(dict, &message);
    ASSERT_TRUE(job) << message.toStdString();
    EXPECT_EQ(job->startInterval(), Q_INT64_C(18446744073708));
    dict.insert(QStringLiteral("StartInterval"), Q_INT64_C(18446744073709));
    EXPECT_FALSE(parse(dict, &message));
    EXPECT_TRUE(message.startsWith(QStringLiteral("launchctl: StartInterval 18446744073709 is "
                                                  "longer than systemd can wait")))
        << message.toStdString();
}

// The fuzz target's seed corpus, the inputs that once crashed among them, is read and
// translated by the ordinary suite too.
TEST_F(JobFileTest, EveryFileOfTheFuzzCorpusIsReadOrRefused)
{
    const QDir corpus(QStringLiteral(KAIRO_TEST_DATA_DIR "/fuzz"));
    const QStringList files = corpus.entryList(QDir::Files);
    ASSERT_GE(files.size(), 4);
    for (const QString &name : files) {
        QString message;
        const std::optional<JobFile> job = JobFile::read(corpus.filePath(name), &message);
        EXPECT_EQ(job.has_value(), !name.startsWith(QLatin1String("crash-")))
            << name.toStdString() << ": " << message.toStdString();
        if (job) {
            EXPECT_TRUE(UnitWriter::forJob(*job, ManagerScope::user(), &message,
                                           BridgeTesting::bridgeBinary()))
                << name.toStdString() << ": " << message.toStdString();
        }
    }
}

TEST_F(JobFileTest, DaemonsAreTheJobsInTheSystemFolderOnly)
{
    const QString daemons = sandbox.localRoot() + QStringLiteral("/Library/LaunchDaemons");
    const QString inHome = sandbox.home() + QStringLiteral("/Library/LaunchDaemons");
    for (const QString &folder : {daemons, inHome}) {
        TestFiles::write(folder + QStringLiteral("/x.plist"), "job");
    }
    QFile::link(daemons + QStringLiteral("/x.plist"), daemons + QStringLiteral("/link.plist"));
    EXPECT_TRUE(ManagerScope::forJobFile(daemons + QStringLiteral("/x.plist")).isSystem());
    // A folder that merely has the name is no system folder, nor is a link in the real one.
    EXPECT_FALSE(ManagerScope::forJobFile(inHome + QStringLiteral("/x.plist")).isSystem());
    EXPECT_FALSE(ManagerScope::forJobFile(daemons + QStringLiteral("/link.plist")).isSystem());
    EXPECT_FALSE(
        ManagerScope::forJobFile(QStringLiteral("/Library/LaunchDaemons/x.plist")).isSystem());

    EXPECT_EQ(ManagerScope::system().unitFolder(),
              sandbox.localRoot() + QStringLiteral("/etc/systemd/system"));
    EXPECT_EQ(ManagerScope::user().unitFolder(),
              sandbox.home() + QStringLiteral("/.config/systemd/user"));
    sandbox.setEnv("XDG_CONFIG_HOME", sandbox.path() + QStringLiteral("/config/"));
    EXPECT_EQ(ManagerScope::user().unitFolder(),
              sandbox.path() + QStringLiteral("/config/systemd/user"));
    // A relative XDG_CONFIG_HOME is to be ignored.
    sandbox.setEnv("XDG_CONFIG_HOME", QStringLiteral("config"));
    EXPECT_EQ(ManagerScope::user().unitFolder(),
              sandbox.home() + QStringLiteral("/.config/systemd/user"));
}
