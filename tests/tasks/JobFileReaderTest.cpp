#include "TasksFixture.h"

#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "support/VTException.h"
#include "tasks/JobFileReader.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <unistd.h>

class JobFileReaderTest : public TasksFixture
{
protected:
    QString file(const QString &name = QStringLiteral("com.vantreel.ScheduledTask1.plist")) const
    {
        return agents() + "/" + name;
    }

    // A job as the writer makes it for Quill's backup task, with extra keys.
    QString writeJob(const PlistDict &extra, bool withEnvironment = true) const
    {
        PlistDict job{{"Label", "com.vantreel.ScheduledTask1"},
                      {"Program", quill + "/Contents/MacOS/Quill"},
                      {"ProgramArguments", QStringList({"Quill", "-backup"})}};
        if (withEnvironment) {
            job.insert(QStringLiteral("EnvironmentVariables"),
                       PlistDict{{"VTAppBundleID", "com.vantreel.Quill"}});
        }
        for (const auto &entry : extra) {
            job.insert(entry.key, entry.value);
        }
        QDir().mkpath(agents());
        PropertyList::writeXml(PlistValue(job), file());
        return file();
    }

    static PlistValue calendar(std::initializer_list<PlistDict> elements)
    {
        PlistArray array;
        for (const PlistDict &e : elements) {
            array.emplace_back(e);
        }
        return PlistValue(array);
    }
};

TEST_F(JobFileReaderTest, EveryTypeTheWriterMakesReadsBack)
{
    const PlistDict calendarInterval{{"Minute", 30}, {"Hour", 2}, {"Weekday", 3}};
    for (qint64 type : {0, 1, 2, 3, 4, 5, 7, 8}) {
        auto written = std::make_shared<VTScheduledTask>();
        written->setFilename(file());
        written->setTaskBundleID(QStringLiteral("com.vantreel.Quill"));
        written->setTaskArguments(QStringList({"-clean", "-quiet"}));
        written->setScheduleType(type);
        written->setInterval(calendarInterval);
        written->setIntervalDirectory(QStringLiteral("/srv/inbox"));
        written->setEnabled(type % 2 == 0);
        ASSERT_TRUE(written->saveData()) << type;

        const auto read = VTScheduledTask::taskWithFilename(file());
        ASSERT_TRUE(read) << type;
        EXPECT_EQ(read->scheduleType(), type);
        EXPECT_EQ(read->taskArguments(), QStringList({"-clean", "-quiet"}));
        EXPECT_EQ(read->taskDescription(), QStringLiteral("Clean caches"));
        EXPECT_EQ(read->taskID(), QStringLiteral("clean"));
        EXPECT_EQ(read->enabled(), type % 2 == 0);
        EXPECT_EQ(read->intervalSeconds(), 10);
        // Headless reads draw no icon; the window gets one from its provider.
        EXPECT_FALSE(read->icon().isValid());
        EXPECT_EQ(read->interval(), type == 7 ? calendarInterval : PlistDict());
        EXPECT_EQ(read->intervalDirectory(), type == 8 ? QStringLiteral("/srv/inbox") : QString());
    }
}

TEST_F(JobFileReaderTest, PresenceNotValueDecides)
{
    writeJob({{QStringLiteral("RunAtLoad"), false}, {QStringLiteral("StartOnMount"), true}});
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->scheduleType(), ScheduleAtStartup);
    writeJob({{QStringLiteral("Disabled"), false}, {QStringLiteral("StartOnMount"), false}});
    const auto task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->scheduleType(), ScheduleOnMount);
    EXPECT_EQ(task->enabled(), false);
}

TEST_F(JobFileReaderTest, OnlyTheFirstCalendarElementDecidesTheFixedSchedules)
{
    struct Case
    {
        PlistValue calendar;
        qint64 type;
    };
    const Case cases[] = {
        {calendar({{{"Minute", 30}}, {{"Hour", 2}}}), ScheduleCalendar},
        {calendar({{{"Hour", 7}}, {{"Minute", 30}}}), ScheduleDaily},
        {calendar({{{"Minute", 0}}, {{"Day", 12}}}), ScheduleHourly},
        {calendar({{{"Day", 1}, {"Weekday", 1}}}), ScheduleMonthly},
        {calendar({{{"Weekday", 1}, {"Hour", 7}}}), ScheduleWeekly},
        // An absent Minute is not a zero Minute.
        {calendar({{{"Hour", 2}}}), ScheduleCalendar},
        {calendar({}), ScheduleUnknown},
        {calendar({PlistDict(), {{"Hour", 5}}}), ScheduleCalendar},
    };
    for (const Case &c : cases) {
        writeJob({{"StartCalendarInterval", c.calendar}});
        const auto task = VTScheduledTask::taskWithFilename(file());
        ASSERT_TRUE(task);
        EXPECT_EQ(task->scheduleType(), c.type) << c.calendar.description().toStdString();
    }
    writeJob(
        {{"StartCalendarInterval", calendar({{{"Minute", 30}}, {{"Hour", 2}}, {{"Minute", 45}}})}});
    const auto merged = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(merged->interval()->value("Minute").integerValue(), 45);
    EXPECT_EQ(merged->interval()->keys(), QStringList({"Minute", "Hour"}));
}

TEST_F(JobFileReaderTest, JobsWithoutAScheduleAreUnknownNotFailures)
{
    writeJob({});
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->scheduleType(), ScheduleUnknown);
    writeJob({{"WatchPaths", PlistValue(PlistArray{})}});
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->scheduleType(), ScheduleUnknown);
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->frequencyStringFromScheduleType(),
              QStringLiteral("Unknown"));
}

// The recorded command ID wins; only the program name leaves the defaults; a moved
// application is found again, and files of earlier versions find the bundle through the
// program.
TEST_F(JobFileReaderTest, WhatIsReadOfOddJobs)
{
    writeJob({{"EnvironmentVariables",
               PlistDict{{"VTAppBundleID", "com.vantreel.Quill"}, {"VTCommandID", "legacy-id"}}}});
    auto task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskID(), QStringLiteral("legacy-id"));
    EXPECT_EQ(task->taskDescription(), QStringLiteral("Back up the library"));

    writeJob({{"ProgramArguments", QStringList{"Quill"}}});
    task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskArguments(), QStringList());
    EXPECT_EQ(task->taskDescription(), QString());

    writeJob({{"Program", "/Old/Place/Quill.app/Contents/MacOS/Quill"}});
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->taskBundleID(),
              QStringLiteral("com.vantreel.Quill"));

    writeJob({}, false);
    task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskBundleID(), QStringLiteral("com.vantreel.Quill"));
    EXPECT_EQ(task->taskDescription(), QStringLiteral("Back up the library"));
    // A program path without ".app" cannot be cut: the error reaches the caller.
    writeJob({{"Program", "/usr/bin/true"}}, false);
    EXPECT_THROW(VTScheduledTask::taskWithFilename(file()), std::exception);
}

TEST_F(JobFileReaderTest, MissingUnreadableAndForeignFilesGiveNothingSilently)
{
    QDir().mkpath(agents());
    TestFiles::write(file(QStringLiteral("a.plist")), "garbage");
    TestFiles::write(file(QStringLiteral("b.plist")),
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>");
    TestFiles::write(file(QStringLiteral("c.plist")), "");
    for (const char *name : {"a.plist", "b.plist", "c.plist", "none.plist"}) {
        TestFiles::CaptureStderr console;
        EXPECT_FALSE(VTScheduledTask::taskWithFilename(file(QLatin1String(name))));
        EXPECT_EQ(console.finish(), QString());
    }
    EXPECT_TRUE(alerts->asked.empty());
}

TEST_F(JobFileReaderTest, AVanishedApplicationIsOfferedForRemoval)
{
    writeJob({{"EnvironmentVariables", PlistDict{{"VTAppBundleID", "com.vantreel.Vanished"}}}});
    alerts->answer = VTAlert::AlternateReturn;
    EXPECT_FALSE(VTScheduledTask::taskWithFilename(file()));
    ASSERT_EQ(alerts->asked.size(), 1u);
    const VTAlertRequest &asked = alerts->asked.front();
    EXPECT_EQ(asked.messageText, QStringLiteral("Unable to locate executable file"));
    EXPECT_EQ(asked.informativeText,
              QStringLiteral("Kairo Planner cannot find Vanished.\n\nThis task is invalid - would "
                             "you like to remove it?"));
    EXPECT_EQ(asked.defaultButton, QStringLiteral("Remove Task"));
    EXPECT_TRUE(QFileInfo::exists(file()));

    alerts->answer = VTAlert::DefaultReturn;
    EXPECT_FALSE(VTScheduledTask::taskWithFilename(file()));
    EXPECT_FALSE(QFileInfo::exists(file()));
    // Removed without unloading.
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

TEST_F(JobFileReaderTest, TheQuestionNamesWhatItCannotFind)
{
    // A missing executable in a found bundle is named by its path.
    QFile::remove(quill + "/Contents/MacOS/Quill");
    writeJob({});
    VTScheduledTask::taskWithFilename(file());
    ASSERT_EQ(alerts->asked.size(), 1u);
    EXPECT_TRUE(alerts->asked[0].informativeText.startsWith("Kairo Planner cannot find " + quill +
                                                            "/Contents/MacOS/Quill."));

    // Neither a program nor a bundle identifier.
    PropertyList::writeXml(PlistValue(PlistDict{{"Label", "x"}}), file());
    VTScheduledTask::taskWithFilename(file());
    ASSERT_EQ(alerts->asked.size(), 2u);
    EXPECT_TRUE(alerts->asked[1].informativeText.startsWith(
        QStringLiteral("Kairo Planner cannot find Unknown Application.")));
}

TEST_F(JobFileReaderTest, WithoutAPersonToAskNothingIsRemoved)
{
    VTAlert::setPresenter(nullptr); // the headless presenter: no display, no terminal here
    const int savedInput = dup(STDIN_FILENO);
    const int nothing = ::open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    ::close(nothing);
    writeJob({{"EnvironmentVariables", PlistDict{{"VTAppBundleID", "com.vantreel.Vanished"}}}});
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(VTScheduledTask::taskWithFilename(file()));
    console.finish();
    dup2(savedInput, STDIN_FILENO);
    ::close(savedInput);
    EXPECT_TRUE(QFileInfo::exists(file()));
}
