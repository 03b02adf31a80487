#include "TasksFixture.h"

#include "platform/PropertyList.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>

class JobFileReaderTest : public TasksFixture
{
protected:
    QString file(const QString &name = "com.vantreel.ScheduledTask1.plist") const
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
            job.insert("EnvironmentVariables", PlistDict{{"VTAppBundleID", "com.vantreel.Quill"}});
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
        return PlistValue(PlistArray(elements.begin(), elements.end()));
    }
};

// The presence of a trigger key decides, not its value; only the first calendar element
// decides the fixed schedules; a job without a trigger is of no known type.
TEST_F(JobFileReaderTest, WhichKeysDecideTheSchedule)
{
    const std::pair<PlistDict, qint64> cases[] = {
        {{{"RunAtLoad", false}, {"StartOnMount", true}}, ScheduleAtStartup},
        {{{"Disabled", false}, {"StartOnMount", false}}, ScheduleOnMount},
        {{{"StartCalendarInterval", calendar({{{"Minute", 30}}, {{"Hour", 2}}})}},
         ScheduleCalendar},
        {{{"StartCalendarInterval", calendar({{{"Hour", 7}}, {{"Minute", 30}}})}}, ScheduleDaily},
        {{{"StartCalendarInterval", calendar({{{"Minute", 0}}, {{"Day", 12}}})}}, ScheduleHourly},
        {{{"StartCalendarInterval", calendar({{{"Day", 1}, {"Weekday", 1}}})}}, ScheduleMonthly},
        {{{"StartCalendarInterval", calendar({{{"Weekday", 1}, {"Hour", 7}}})}}, ScheduleWeekly},
        // An absent Minute is not a zero Minute.
        {{{"StartCalendarInterval", calendar({{{"Hour", 2}}})}}, ScheduleCalendar},
        {{{"StartCalendarInterval", calendar({})}}, ScheduleUnknown},
        {{{"StartCalendarInterval", calendar({PlistDict(), {{"Hour", 5}}})}}, ScheduleCalendar},
        {{}, ScheduleUnknown},
        {{{"WatchPaths", PlistValue(PlistArray{})}}, ScheduleUnknown},
    };
    for (const auto &[extra, type] : cases) {
        writeJob(extra);
        const auto task = VTScheduledTask::taskWithFilename(file());
        ASSERT_TRUE(task);
        EXPECT_EQ(task->scheduleType(), type) << PlistValue(extra).description().toStdString();
        EXPECT_EQ(task->enabled(), !extra.contains("Disabled"));
    }
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->frequencyStringFromScheduleType(),
              "Unknown");
    writeJob(
        {{"StartCalendarInterval", calendar({{{"Minute", 30}}, {{"Hour", 2}}, {{"Minute", 45}}})}});
    const auto merged = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(merged->interval()->value("Minute").integerValue(), 45);
    EXPECT_EQ(merged->interval()->keys(), QStringList({"Minute", "Hour"}));
}

// A job saved as every N seconds reads back as a calendar without a calendar; saved once
// more it has no schedule left, and the next save refuses it.
TEST_F(JobFileReaderTest, EverySecondsDecaysOverTwoSaves)
{
    writeJob({{"StartInterval", 300}});
    const auto task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->scheduleType(), ScheduleCalendar);
    EXPECT_EQ(task->intervalSeconds(), 300);
    EXPECT_TRUE(task->interval()->isEmpty());
    ASSERT_TRUE(task->saveData());
    const auto again = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(again->scheduleType(), ScheduleUnknown);
    EXPECT_FALSE(again->saveData());
}

// The recorded command ID wins; only the program name leaves the defaults; a moved
// application is found again, and files of earlier versions find the bundle through the
// program.
TEST_F(JobFileReaderTest, WhatIsReadOfOddJobs)
{
    writeJob({{"EnvironmentVariables",
               PlistDict{{"VTAppBundleID", "com.vantreel.Quill"}, {"VTCommandID", "legacy-id"}}}});
    auto task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskID(), "legacy-id");
    EXPECT_EQ(task->taskDescription(), "Back up the library");

    writeJob({{"ProgramArguments", QStringList{"Quill"}}});
    task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskArguments(), QStringList());
    EXPECT_EQ(task->taskDescription(), QString());

    writeJob({{"Program", "/Old/Place/Quill.app/Contents/MacOS/Quill"}});
    EXPECT_EQ(VTScheduledTask::taskWithFilename(file())->taskBundleID(), "com.vantreel.Quill");

    writeJob({}, false);
    task = VTScheduledTask::taskWithFilename(file());
    EXPECT_EQ(task->taskBundleID(), "com.vantreel.Quill");
    EXPECT_EQ(task->taskDescription(), "Back up the library");
    // A program path without ".app" cannot be cut: the error reaches the caller.
    writeJob({{"Program", "/usr/bin/true"}}, false);
    EXPECT_THROW(VTScheduledTask::taskWithFilename(file()), std::exception);
}

// The question names what it cannot find: the application, the executable of a found
// bundle, or nothing known; removal is offered and done without unloading.
TEST_F(JobFileReaderTest, AVanishedApplicationIsOfferedForRemoval)
{
    writeJob({{"EnvironmentVariables", PlistDict{{"VTAppBundleID", "com.vantreel.Vanished"}}}});
    EXPECT_FALSE(VTScheduledTask::taskWithFilename(file()));
    ASSERT_EQ(alerts->asked.size(), 1u);
    const VTAlertRequest &asked = alerts->asked.front();
    EXPECT_EQ(asked.messageText, "Unable to locate executable file");
    EXPECT_EQ(asked.informativeText,
              QStringLiteral("Kairo Planner cannot find Vanished.\n\nThis task is invalid - would "
                             "you like to remove it?"));
    EXPECT_EQ(asked.defaultButton, "Remove Task");
    EXPECT_TRUE(QFileInfo::exists(file()));

    alerts->answer = VTAlert::DefaultReturn;
    EXPECT_FALSE(VTScheduledTask::taskWithFilename(file()));
    EXPECT_FALSE(QFileInfo::exists(file()));
    EXPECT_TRUE(launchctl->calls().isEmpty());

    alerts->answer = VTAlert::AlternateReturn;
    QFile::remove(quill + "/Contents/MacOS/Quill");
    writeJob({});
    VTScheduledTask::taskWithFilename(file());
    PropertyList::writeXml(PlistValue(PlistDict{{"Label", "x"}}), file());
    VTScheduledTask::taskWithFilename(file());
    ASSERT_EQ(alerts->asked.size(), 4u);
    EXPECT_TRUE(alerts->asked[2].informativeText.startsWith("Kairo Planner cannot find " + quill +
                                                            "/Contents/MacOS/Quill."));
    EXPECT_TRUE(alerts->asked[3].informativeText.startsWith(
        "Kairo Planner cannot find Unknown Application."));
}
