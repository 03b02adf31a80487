#include "TasksFixture.h"

#include "tasks/JobFileName.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFileInfo>

TEST(VTScheduledTaskRecordTest, DescriptionDictionaryEndsAtTheFirstUnsetProperty)
{
    VTScheduledTask task;
    task.setFilename("/x/com.vantreel.ScheduledTask1.plist");
    task.setTaskBundleID("com.vantreel.Quill");
    // taskID is unset: it and every key after it are missing.
    EXPECT_EQ(task.descriptionDictionary().keys(),
              QStringList({"filename", "taskDescription", "taskBundleID"}));

    task.setTaskID("backup");
    task.setRoot(false);
    task.setScheduleType(3);
    const PlistDict full = task.descriptionDictionary();
    EXPECT_EQ(full.keys(),
              QStringList({"filename", "taskDescription", "taskBundleID", "taskID", "scheduleType",
                           "intervalSeconds", "interval", "taskArguments", "enabled", "root",
                           "intervalDirectory", "frequencyDescription"}));
    // Unset values are shown empty.
    EXPECT_EQ(full.value("interval"), PlistValue(PlistDict()));
    EXPECT_EQ(full.value("taskArguments"), PlistValue(PlistArray()));
    EXPECT_EQ(full.value("frequencyDescription").string(), "Once a day");
}

class ScheduleFromStringTest : public TasksFixture
{
protected:
    VTScheduledTask task;
};

TEST_F(ScheduleFromStringTest, ExactStringsChooseWhatTheValueMeans)
{
    task.setScheduleTypeFromString("6", "45");
    task.setScheduleTypeFromString("7", "30,2,,,");
    task.setScheduleTypeFromString("8", "/srv/inbox");
    EXPECT_EQ(task.intervalDirectory(), "/srv/inbox");
    task.setScheduleTypeFromString("8", std::nullopt);
    EXPECT_FALSE(task.intervalDirectory().has_value());

    // "06" is type 6 by number but not by string: the seconds stay.
    task.setScheduleTypeFromString("06", "99");
    EXPECT_EQ(task.scheduleType(), 6);
    EXPECT_EQ(task.intervalSeconds(), 45);

    task.setScheduleTypeFromString("3", "anything");
    EXPECT_EQ(task.scheduleType(), 3);
    task.setScheduleTypeFromString("daily", std::nullopt);
    EXPECT_EQ(task.scheduleType(), 0);

    // A missing value is reported after the type changed; a short expression is caught by
    // the method's guard.
    TestFiles::CaptureStderr console;
    task.setScheduleTypeFromString("7", std::nullopt);
    EXPECT_EQ(task.scheduleType(), 7);
    task.setScheduleTypeFromString("3", std::nullopt);
    task.setScheduleTypeFromString("7", "1,2");
    EXPECT_EQ(task.scheduleType(), 7);
    EXPECT_EQ(task.interval()->keys(), QStringList({"Minute", "Hour"})); // left as it was
    EXPECT_TRUE(console.finish().contains(
        "Exception in VTScheduledTask::setScheduleTypeFromString. NSRangeException"));
}

class TaskFactoryTest : public TasksFixture
{
protected:
    VTScheduledTask::Ptr make(const char *bundleID, const char *argument, bool root)
    {
        return VTScheduledTask::taskWithBundleID(QString::fromLatin1(bundleID),
                                                 QStringList{argument}, 3, 0, PlistDict(), root);
    }
};

// The first free number is taken, root tasks are numbered on their own in the system
// folder, and a failed save gives its claimed number back.
TEST_F(TaskFactoryTest, TheFirstFreeNumberIsTaken)
{
    TestFiles::write(agents() + "/com.vantreel.ScheduledTask1.plist", "x");
    TestFiles::write(agents() + "/com.vantreel.ScheduledTask3.plist", "x");
    const auto task = make("com.vantreel.Quill", "-backup", false);
    ASSERT_TRUE(task);
    EXPECT_EQ(task->filename(), agents() + "/com.vantreel.ScheduledTask2.plist");
    EXPECT_EQ(task->taskDescription(), "Back up the library");
    EXPECT_EQ(task->taskID(), "backup");

    const auto root = make("com.vantreel.Quill", "-repair", true);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->filename(), daemons() + "/com.vantreel.RootScheduledTask1.plist");

    EXPECT_FALSE(make("com.vantreel.Missing", "-x", false));
    EXPECT_EQ(QDir(agents()).entryList(QDir::Files).size(), 3);
}

// A name is claimed with the whole job in one step: a process killed right after the claim
// leaves a complete job file, never an empty one.
TEST_F(TaskFactoryTest, TheClaimedNameHoldsTheWholeJobAtOnce)
{
    TestFiles::write(agents() + "/com.vantreel.ScheduledTask1.plist", "x");
    const JobFileName::Claim claim = JobFileName::claim(agents(), false, [](const QString &path) {
        return std::optional<PlistDict>(PlistDict{{"Label", QFileInfo(path).completeBaseName()}});
    });
    EXPECT_TRUE(claim.created);
    EXPECT_EQ(claim.path, agents() + "/com.vantreel.ScheduledTask2.plist");
    EXPECT_EQ(readJob(claim.path).value("Label").string(), "com.vantreel.ScheduledTask2");
    EXPECT_EQ(QDir(agents()).entryList(QDir::Files | QDir::Hidden).size(), 2);
    JobFileName::release(claim);
    EXPECT_FALSE(QFileInfo::exists(claim.path));
}
