#include "TasksFixture.h"

#include "tasks/VTScheduledTask.h"
#include "testsupport/PlistXml.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

class JobFileWriterTest : public TasksFixture
{
protected:
    VTScheduledTask::Ptr
    task(qint64 type, const QString &name = QStringLiteral("com.vantreel.ScheduledTask1.plist"))
    {
        auto t = std::make_shared<VTScheduledTask>();
        t->setFilename(agents() + "/" + name);
        t->setTaskBundleID(QStringLiteral("com.vantreel.Quill"));
        t->setTaskArguments(QStringList{"-backup"});
        t->setTaskID(QStringLiteral("backup"));
        t->setScheduleType(type);
        return t;
    }

    // The calendar elements as the independent reader sees them: "Key=value" per key.
    QStringList calendarOf(const QString &file) const
    {
        QStringList out;
        const QVariant job = parseIndependently(file);
        for (const QVariant &element :
             PlistXml::items(PlistXml::value(job, QStringLiteral("StartCalendarInterval")))) {
            QStringList pairs;
            for (const QString &key : PlistXml::keys(element)) {
                pairs << key + "=" + PlistXml::value(element, key).toString();
            }
            out << pairs.join(',');
        }
        return out;
    }
};

TEST_F(JobFileWriterTest, ADailyUserTaskHasExactlyTheseKeys)
{
    auto t = task(ScheduleDaily);
    ASSERT_TRUE(t->saveData());
    const QString file = *t->filename();
    const QVariant job = parseIndependently(file);
    ASSERT_TRUE(job.isValid());
    EXPECT_EQ(PlistXml::keys(job),
              QStringList({"Label", "Program", "ProgramArguments", "LowPriorityIO", "Nice",
                           "StartCalendarInterval", "EnvironmentVariables"}));
    EXPECT_EQ(PlistXml::value(job, "Label").toString(),
              QStringLiteral("com.vantreel.ScheduledTask1"));
    EXPECT_EQ(PlistXml::value(job, "Program").toString(), quill + "/Contents/MacOS/Quill");
    QStringList programArguments;
    for (const QVariant &v : PlistXml::items(PlistXml::value(job, "ProgramArguments"))) {
        programArguments << v.toString();
    }
    EXPECT_EQ(programArguments, QStringList({"Quill", "-backup"}));
    EXPECT_EQ(PlistXml::value(job, "LowPriorityIO"), QVariant(true));
    EXPECT_EQ(PlistXml::value(job, "Nice"), QVariant(15LL));
    EXPECT_EQ(calendarOf(file), QStringList{"Hour=7,Minute=0"});
    const QVariant environment = PlistXml::value(job, "EnvironmentVariables");
    EXPECT_EQ(PlistXml::keys(environment), QStringList({"VTAppBundleID", "VTCommandID"}));
    EXPECT_EQ(PlistXml::value(environment, "VTCommandID").toString(), QStringLiteral("backup"));
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_EQ(launchctl->calls(), QStringList({"unload " + file, "load " + file}));
}

TEST_F(JobFileWriterTest, EachScheduleTypeWritesItsTrigger)
{
    struct Case
    {
        qint64 type;
        QString key;
        QStringList calendar;
    };
    const Case cases[] = {
        {ScheduleAtStartup, "RunAtLoad", {}},
        {ScheduleOnMount, "StartOnMount", {}},
        {ScheduleHourly, "StartCalendarInterval", {"Minute=0"}},
        {ScheduleWeekly, "StartCalendarInterval", {"Weekday=1,Hour=7,Minute=0"}},
        {ScheduleMonthly, "StartCalendarInterval", {"Day=1,Hour=7,Minute=0"}},
        {ScheduleEverySeconds, "StartInterval", {}},
        {ScheduleWatchDirectory, "WatchPaths", {}},
    };
    const QStringList triggers{"RunAtLoad", "StartOnMount", "StartCalendarInterval",
                               "StartInterval", "WatchPaths"};
    for (const Case &c : cases) {
        auto t = task(c.type);
        t->setIntervalSeconds(300);
        t->setIntervalDirectory(QStringLiteral("~/Inbox"));
        ASSERT_TRUE(t->saveData()) << c.type;
        const QVariant job = parseIndependently(*t->filename());
        for (const QString &trigger : triggers) {
            EXPECT_EQ(PlistXml::keys(job).contains(trigger), trigger == c.key)
                << c.type << trigger.toStdString();
        }
        if (!c.calendar.isEmpty()) {
            EXPECT_EQ(calendarOf(*t->filename()), c.calendar);
        }
    }
    auto seconds = task(ScheduleEverySeconds);
    seconds->setIntervalSeconds(300);
    seconds->saveData();
    EXPECT_EQ(PlistXml::value(parseIndependently(*seconds->filename()), "StartInterval"),
              QVariant(300LL));
    auto folder = task(ScheduleWatchDirectory);
    folder->setIntervalDirectory(QStringLiteral("~/Inbox"));
    folder->saveData();
    // Stored as given: no tilde expansion.
    EXPECT_EQ(
        PlistXml::items(PlistXml::value(parseIndependently(*folder->filename()), "WatchPaths")),
        QVariantList{QStringLiteral("~/Inbox")});
}

TEST_F(JobFileWriterTest, CalendarIntervalsAreOneKeyPerElementInTheirOwnOrder)
{
    auto t = task(ScheduleCalendar);
    PlistDict interval;
    interval.insert(QStringLiteral("Month"), 3);
    interval.insert(QStringLiteral("Minute"), 30);
    interval.insert(QStringLiteral("Hour"), 2);
    t->setInterval(interval);
    ASSERT_TRUE(t->saveData());
    EXPECT_EQ(calendarOf(*t->filename()), QStringList({"Month=3", "Minute=30", "Hour=2"}));

    t->setInterval(PlistDict());
    ASSERT_TRUE(t->saveData());
    EXPECT_TRUE(PlistXml::items(
                    PlistXml::value(parseIndependently(*t->filename()), "StartCalendarInterval"))
                    .isEmpty());
}

TEST_F(JobFileWriterTest, DisabledTasksCarryTheKeyAndAreStillReloaded)
{
    auto t = task(ScheduleHourly);
    t->setEnabled(false);
    ASSERT_TRUE(t->saveData());
    EXPECT_EQ(PlistXml::value(parseIndependently(*t->filename()), "Disabled"), QVariant(true));
    EXPECT_EQ(launchctl->calls(),
              QStringList({"unload " + *t->filename(), "load " + *t->filename()}));

    t->setEnabled(true);
    ASSERT_TRUE(t->saveData());
    EXPECT_FALSE(PlistXml::keys(parseIndependently(*t->filename())).contains("Disabled"));
}

TEST_F(JobFileWriterTest, StartupTasksAreUnloadedButNotLoaded)
{
    auto t = task(ScheduleAtStartup);
    ASSERT_TRUE(t->saveData());
    EXPECT_EQ(launchctl->calls(), QStringList{"unload " + *t->filename()});
}

TEST_F(JobFileWriterTest, UnknownTypesAreNotWrittenAndSayNothing)
{
    for (qint64 type : {9, -1, 100}) {
        auto t = task(type);
        TestFiles::CaptureStderr console;
        EXPECT_FALSE(t->saveData());
        EXPECT_EQ(console.finish(), QString());
        EXPECT_FALSE(QFileInfo::exists(*t->filename()));
    }
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

TEST_F(JobFileWriterTest, WithoutATaskIDOnlyTheBundleIsInTheEnvironment)
{
    auto t = task(ScheduleHourly);
    t->setTaskID(std::nullopt);
    ASSERT_TRUE(t->saveData());
    const QVariant environment =
        PlistXml::value(parseIndependently(*t->filename()), "EnvironmentVariables");
    EXPECT_EQ(PlistXml::keys(environment), QStringList{"VTAppBundleID"});
}

TEST_F(JobFileWriterTest, SanityAndApplicationChecks)
{
    auto noArguments = task(ScheduleHourly);
    noArguments->setTaskArguments(std::nullopt);
    TestFiles::CaptureStderr first;
    EXPECT_FALSE(noArguments->saveData());
    EXPECT_TRUE(first.finish().contains(QStringLiteral("] Sanity check failed\n")));

    auto gone = task(ScheduleHourly);
    gone->setTaskBundleID(QStringLiteral("com.vantreel.Gone"));
    TestFiles::CaptureStderr second;
    EXPECT_FALSE(gone->saveData());
    EXPECT_TRUE(second.finish().contains(
        QStringLiteral("] Unable to locate application with bundle ID com.vantreel.Gone\n")));
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

TEST_F(JobFileWriterTest, TheExecutableIsNamedAfterTheBundleFolder)
{
    const QString odd = TestFiles::makeBundle(
        applications, QStringLiteral("Foo Bar"),
        {{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.vantreel.FooBar")},
         {QStringLiteral("CFBundleExecutable"), QStringLiteral("something-else")}});
    auto t = task(ScheduleHourly);
    t->setTaskBundleID(QStringLiteral("com.vantreel.FooBar"));
    ASSERT_TRUE(t->saveData());
    const QVariant job = parseIndependently(*t->filename());
    EXPECT_EQ(PlistXml::value(job, "Program").toString(), odd + "/Contents/MacOS/Foo Bar");
    EXPECT_EQ(PlistXml::items(PlistXml::value(job, "ProgramArguments")).value(0).toString(),
              QStringLiteral("Foo Bar"));
}

TEST_F(JobFileWriterTest, QuietModeSkipsAnUnwritableFileButStillReloads)
{
    // A folder standing where the file should be cannot be replaced, not even by root.
    auto t = task(ScheduleHourly);
    QDir().mkpath(*t->filename());
    EXPECT_TRUE(t->saveData(false));
    EXPECT_TRUE(QFileInfo(*t->filename()).isDir());
    EXPECT_EQ(launchctl->calls(),
              QStringList({"unload " + *t->filename(), "load " + *t->filename()}));
}

TEST_F(JobFileWriterTest, AnUnwritableFileWithoutAdministratorRightsFails)
{
    auto t = task(ScheduleHourly);
    QDir().mkpath(*t->filename());
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(t->saveData());
    const QString printed = console.finish();
    EXPECT_TRUE(printed.contains("Unable to write to " + *t->filename() + ". Authorizing..."))
        << printed.toStdString();
    EXPECT_TRUE(printed.contains(QStringLiteral("] Unable to authenticate\n")))
        << printed.toStdString();
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

TEST_F(JobFileWriterTest, HostileArgumentsComeBackUnchanged)
{
    const QStringList hostile{QStringLiteral("<key>Label</key>"),
                              QStringLiteral("a\nb\r\nc"),
                              QStringLiteral("\"quoted\" 'single'"),
                              QStringLiteral("100% %@ %d"),
                              QStringLiteral("Grüße 日本 🎉"),
                              QStringLiteral("&amp; ]]> <![CDATA["),
                              QStringLiteral(" spaced "),
                              QString()};
    auto t = task(ScheduleHourly);
    t->setTaskArguments(hostile);
    ASSERT_TRUE(t->saveData());
    QStringList independent;
    for (const QVariant &v :
         PlistXml::items(PlistXml::value(parseIndependently(*t->filename()), "ProgramArguments"))) {
        independent << v.toString();
    }
    EXPECT_EQ(independent.mid(1), hostile);
    const auto back = VTScheduledTask::taskWithFilename(*t->filename());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->taskArguments(), hostile);
}
