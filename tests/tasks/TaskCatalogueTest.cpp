#include "TasksFixture.h"

#include "tasks/VTScheduledTask.h"
#include "testsupport/ClientApps.h"
#include "testsupport/TestFiles.h"

class TaskCatalogueTest : public TasksFixture
{
protected:
    QString make(const QString &id, const PlistValue &tasks, bool inInfoPlist = false)
    {
        return ClientApps::make(applications, id, "com.vantreel." + id, tasks, inInfoPlist);
    }

    // Runs argumentsFromTaskID and returns the console lines it printed.
    QString consoleOf(const QString &taskID, const QString &bundleID,
                      std::optional<QStringList> *result = nullptr)
    {
        TestFiles::CaptureStderr console;
        const auto arguments = VTScheduledTask::argumentsFromTaskID(taskID, bundleID);
        if (result) {
            *result = arguments;
        }
        return console.finish();
    }

    static PlistValue oldForm()
    {
        return PlistValue(
            PlistDict{{"-backup ### -quiet", "Quiet backup"}, {"-index", "Rebuild the index"}});
    }
};

TEST_F(TaskCatalogueTest, EachFailureIsReportedWithItsOwnText)
{
    make("Empty", PlistValue(PlistArray{}));
    make("Old", oldForm());
    make("NoCommand", PlistValue(PlistArray{ClientApps::entry("a", {}, "A")}));
    // A catalogue that is no dictionary falls back to Info.plist, which has no tasks.
    const QString broken = make("Broken", PlistValue(PlistArray{}));
    TestFiles::write(broken + "/Contents/VTTasks.plist", "not a property list");

    // Task ID, bundle ID, the message.
    const std::tuple<QString, QString, QString> cases[] = {
        {"backup", "com.vantreel.Broken", "No tasks found in application"},
        {"backup", "com.vantreel.Empty", "No tasks found in application"},
        {"-index", "com.vantreel.Old",
         "Unable to create task - application uses old task format. Please update this "
         "application."},
        {"a", "com.vantreel.NoCommand", "Unable to find task with task id a"},
    };
    for (const auto &[taskID, bundleID, message] : cases) {
        std::optional<QStringList> arguments = QStringList{"unchanged"};
        const QString printed = consoleOf(taskID, bundleID, &arguments);
        EXPECT_FALSE(arguments.has_value()) << bundleID.toStdString();
        EXPECT_TRUE(printed.contains("] " + message + "\n")) << printed.toStdString();
    }
}

// A string entry is the old format only when reached first; the catalogue may live in
// Info.plist, also behind a VTTasks.plist that is no dictionary; of two equal commands
// the first names the task.
TEST_F(TaskCatalogueTest, WhereTheEntryIsFound)
{
    const PlistValue go = ClientApps::entry("go", {"-go"}, "Go");
    make("Before", PlistValue(PlistArray{PlistValue("stray"), go}));
    make("After", PlistValue(PlistArray{go, PlistValue("stray")}));
    make("Inline", PlistValue(PlistArray{go}), true);
    make("Hidden", PlistValue(PlistArray{go}), true);
    TestFiles::write(applications + "/Hidden.app/Contents/VTTasks.plist",
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>");
    std::optional<QStringList> arguments;
    EXPECT_TRUE(consoleOf("go", "com.vantreel.Before", &arguments)
                    .contains("application uses old task format"));
    EXPECT_FALSE(arguments);
    for (const char *app : {"com.vantreel.After", "com.vantreel.Inline", "com.vantreel.Hidden"}) {
        consoleOf("go", QLatin1String(app), &arguments);
        EXPECT_EQ(arguments, QStringList{"-go"}) << app;
    }

    make("Twice", PlistValue(PlistArray{ClientApps::entry("one", {"-go"}, "First"),
                                        ClientApps::entry("two", {"-go"}, "Second")}));
    VTScheduledTask task;
    task.setTaskBundleID("com.vantreel.Twice");
    task.setTaskArguments(QStringList{"-go"});
    EXPECT_EQ(task.descriptionFromArguments(), "First");
    EXPECT_EQ(task.taskID(), "one");
}

TEST_F(TaskCatalogueTest, DescriptionsOfBothForms)
{
    VTScheduledTask task;
    task.setTaskBundleID("com.vantreel.Quill");
    task.setTaskArguments(QStringList{"-clean", "-quiet"});
    EXPECT_EQ(task.descriptionFromArguments(), "Clean caches");
    EXPECT_EQ(task.taskID(), "clean");

    // The old form still names tasks, even though it can no longer create them.
    make("Old", oldForm());
    VTScheduledTask old;
    old.setTaskBundleID("com.vantreel.Old");
    old.setTaskArguments(QStringList{"-backup", "-quiet"});
    EXPECT_EQ(old.descriptionFromArguments(), "Quiet backup");
    EXPECT_FALSE(old.taskID().has_value());

    // Unknown arguments leave the ID alone.
    task.setTaskID("kept");
    task.setTaskArguments(QStringList{"-clean"});
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
    EXPECT_EQ(task.taskID(), "kept");

    task.setTaskArguments(QStringList());
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
    task.setTaskArguments(QStringList{"-clean", "-quiet"});
    task.setTaskBundleID(std::nullopt);
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
}
