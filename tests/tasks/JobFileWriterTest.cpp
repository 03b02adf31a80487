#include "TasksFixture.h"

#include "tasks/JobWriteAhead.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

class JobFileWriterTest : public TasksFixture
{
protected:
    VTScheduledTask::Ptr task(qint64 type)
    {
        auto t = std::make_shared<VTScheduledTask>();
        t->setFilename(agents() + "/com.vantreel.ScheduledTask1.plist");
        t->setTaskBundleID("com.vantreel.Quill");
        t->setTaskArguments(QStringList{"-backup"});
        t->setTaskID("backup");
        t->setScheduleType(type);
        return t;
    }

    // The calendar elements as written: "Key=value" per key, in the file's order.
    QStringList calendarOf(const QString &file) const
    {
        QStringList out;
        const PlistValue calendar = readJob(file).value("StartCalendarInterval");
        for (const PlistValue &element : calendar.array()) {
            QStringList pairs;
            for (const auto &entry : element.dict()) {
                pairs << entry.key + "=" + QString::number(entry.value.integerValue());
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
    const PlistDict job = readJob(file);
    EXPECT_EQ(job.keys(), QStringList({"Label", "Program", "ProgramArguments", "LowPriorityIO",
                                       "Nice", "StartCalendarInterval", "EnvironmentVariables"}));
    EXPECT_EQ(job.value("Label").string(), "com.vantreel.ScheduledTask1");
    EXPECT_EQ(job.value("Program").string(), quill + "/Contents/MacOS/Quill");
    EXPECT_EQ(job.value("ProgramArguments").stringList(), QStringList({"Quill", "-backup"}));
    EXPECT_EQ(job.value("LowPriorityIO"), PlistValue(true));
    EXPECT_EQ(job.value("Nice"), PlistValue(15));
    EXPECT_EQ(calendarOf(file), QStringList{"Hour=7,Minute=0"});
    EXPECT_EQ(job.value("EnvironmentVariables").dict(),
              (PlistDict{{"VTAppBundleID", "com.vantreel.Quill"}, {"VTCommandID", "backup"}}));
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_EQ(launchctl->calls(), QStringList({"unload " + file, "load " + file}));

    // Without a task ID only the bundle is in the environment. Disabled tasks carry the key
    // and are still reloaded; startup tasks are only unloaded.
    t->setTaskID(std::nullopt);
    t->setEnabled(false);
    ASSERT_TRUE(t->saveData());
    EXPECT_EQ(readJob(file).value("EnvironmentVariables").dict().keys(),
              QStringList{"VTAppBundleID"});
    EXPECT_EQ(readJob(file).value("Disabled"), PlistValue(true));
    EXPECT_EQ(launchctl->calls().mid(2), QStringList({"unload " + file, "load " + file}));
    launchctl->clear();
    ASSERT_TRUE(task(ScheduleAtStartup)->saveData());
    EXPECT_FALSE(readJob(file).contains("Disabled"));
    EXPECT_EQ(launchctl->calls(), QStringList{"unload " + file});
}

// Each type writes its one trigger; calendar elements hold one key each, in the
// interval's own order.
TEST_F(JobFileWriterTest, EachScheduleTypeWritesItsTrigger)
{
    const std::tuple<qint64, QString, PlistValue> cases[] = {
        {ScheduleAtStartup, "RunAtLoad", PlistValue(true)},
        {ScheduleOnMount, "StartOnMount", PlistValue(true)},
        {ScheduleHourly, "StartCalendarInterval", PlistValue(QStringList{"Minute=0"})},
        {ScheduleWeekly, "StartCalendarInterval",
         PlistValue(QStringList{"Weekday=1,Hour=7,Minute=0"})},
        {ScheduleMonthly, "StartCalendarInterval",
         PlistValue(QStringList{"Day=1,Hour=7,Minute=0"})},
        {ScheduleCalendar, "StartCalendarInterval",
         PlistValue(QStringList{"Month=3", "Minute=30", "Hour=2"})},
        {ScheduleEverySeconds, "StartInterval", PlistValue(300)},
        // Stored as given: no tilde expansion.
        {ScheduleWatchDirectory, "WatchPaths", PlistValue(QStringList{"~/Inbox"})},
    };
    const QStringList triggers{"RunAtLoad", "StartOnMount", "StartCalendarInterval",
                               "StartInterval", "WatchPaths"};
    for (const auto &[type, key, value] : cases) {
        auto t = task(type);
        t->setIntervalSeconds(300);
        t->setIntervalDirectory("~/Inbox");
        t->setInterval(PlistDict{{"Month", 3}, {"Minute", 30}, {"Hour", 2}});
        ASSERT_TRUE(t->saveData()) << type;
        const PlistDict job = readJob(*t->filename());
        for (const QString &trigger : triggers) {
            EXPECT_EQ(job.contains(trigger), trigger == key) << type << trigger.toStdString();
        }
        EXPECT_EQ(key == "StartCalendarInterval" ? PlistValue(calendarOf(*t->filename()))
                                                 : job.value(key),
                  value)
            << type;
    }
    auto empty = task(ScheduleCalendar);
    empty->setInterval(PlistDict());
    ASSERT_TRUE(empty->saveData());
    EXPECT_TRUE(calendarOf(*empty->filename()).isEmpty());
}

TEST_F(JobFileWriterTest, WhatIsNotWritten)
{
    // Unknown types, silently.
    for (qint64 type : {9, -1}) {
        TestFiles::CaptureStderr console;
        EXPECT_FALSE(task(type)->saveData());
        EXPECT_EQ(console.finish(), QString());
    }
    auto noArguments = task(ScheduleHourly);
    noArguments->setTaskArguments(std::nullopt);
    TestFiles::CaptureStderr first;
    EXPECT_FALSE(noArguments->saveData());
    EXPECT_TRUE(first.finish().contains("] Sanity check failed\n"));

    auto gone = task(ScheduleHourly);
    gone->setTaskBundleID("com.vantreel.Gone");
    TestFiles::CaptureStderr second;
    EXPECT_FALSE(gone->saveData());
    EXPECT_TRUE(second.finish().contains(
        "] Unable to locate application with bundle ID com.vantreel.Gone\n"));
    EXPECT_FALSE(QFileInfo::exists(*gone->filename()));
    EXPECT_TRUE(launchctl->calls().isEmpty());
}

// A folder standing where the file should be cannot be replaced, not even by root: quiet mode
// skips it but still reloads; otherwise, without administrator rights, the save fails.
TEST_F(JobFileWriterTest, AnUnwritableFile)
{
    auto t = task(ScheduleHourly);
    QDir().mkpath(*t->filename());
    TestFiles::CaptureStderr console;
    EXPECT_FALSE(t->saveData());
    const QString printed = console.finish();
    EXPECT_TRUE(printed.contains("Unable to write to " + *t->filename() + ". Authorizing..."))
        << printed.toStdString();
    EXPECT_TRUE(printed.contains("] Unable to authenticate\n")) << printed.toStdString();
    EXPECT_TRUE(launchctl->calls().isEmpty());

    EXPECT_TRUE(t->saveData(false));
    EXPECT_TRUE(QFileInfo(*t->filename()).isDir());
    EXPECT_EQ(launchctl->calls(),
              QStringList({"unload " + *t->filename(), "load " + *t->filename()}));
}

// A pass writes each next file ahead; the saves still rename and reload in turn, and a file
// written ahead whose task changed meanwhile is not used.
TEST_F(JobFileWriterTest, APassWritesAheadWithoutChangingWhatIsSaved)
{
    std::vector<VTScheduledTask::Ptr> tasks;
    QStringList expected;
    for (int i = 1; i <= 4; ++i) {
        tasks.push_back(task(ScheduleDaily));
        tasks.back()->setFilename(agents() + QStringLiteral("/com.vantreel.Job%1.plist").arg(i));
        expected << "unload " + *tasks.back()->filename() << "load " + *tasks.back()->filename();
    }
    const auto openFiles = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
    const uint openBefore = openFiles();
    const auto disable = [](VTScheduledTask &t) { t.setEnabled(false); };
    ASSERT_TRUE(JobWriteAhead::saveInTurn(
        tasks, disable, [](VTScheduledTask &t) { return t.saveData(); }, true));
    EXPECT_EQ(launchctl->calls(), expected);
    for (const auto &t : tasks) {
        EXPECT_EQ(readJob(*t->filename()).value("Disabled"), PlistValue(true));
    }

    launchctl->clear();
    const auto renamed = [](VTScheduledTask &t) {
        t.setTaskID(QStringLiteral("changed"));
        return t.saveData();
    };
    ASSERT_TRUE(JobWriteAhead::saveInTurn(tasks, disable, renamed, true));
    EXPECT_EQ(launchctl->calls(), expected);
    for (const auto &t : tasks) {
        EXPECT_EQ(readJob(*t->filename()).value("EnvironmentVariables").dict().value("VTCommandID"),
                  PlistValue("changed"));
    }
    // Nothing written ahead is left beside the jobs, nor held open: the files replaced.
    EXPECT_EQ(QDir(agents()).entryList(QDir::Files | QDir::Hidden).size(), 4);
    EXPECT_EQ(openFiles(), openBefore);

    // A failed save stops the pass there when asked to.
    int saves = 0;
    EXPECT_FALSE(JobWriteAhead::saveInTurn(
        tasks, disable, [&saves](VTScheduledTask &) { return ++saves == 0; }, true));
    EXPECT_EQ(saves, 1);
}
