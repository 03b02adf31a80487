#include "TasksFixture.h"

#include "tasks/TaskCatalogue.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/ClientApps.h"
#include "testsupport/TestFiles.h"

#include <QFile>

class TaskCatalogueTest : public TasksFixture
{
protected:
    QString make(const QString &id, const PlistValue &tasks, bool inInfoPlist = false)
    {
        return ClientApps::make(applications, id, QStringLiteral("com.vantreel.") + id, tasks,
                                inInfoPlist);
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
    struct Case
    {
        QString taskID;
        QString bundleID;
        QString message;
    };
    make(QStringLiteral("Empty"), PlistValue(PlistArray{}));
    make(QStringLiteral("Old"), oldForm());
    make(QStringLiteral("NoCommand"),
         PlistValue(PlistArray{ClientApps::entry(QStringLiteral("a"), {}, QStringLiteral("A"))}));
    // A catalogue that is no dictionary falls back to Info.plist, which has no tasks.
    const QString broken = make(QStringLiteral("Broken"), PlistValue(PlistArray{}));
    TestFiles::write(broken + "/Contents/VTTasks.plist", "not a property list");

    const Case cases[] = {
        {"backup", "com.vantreel.Nowhere",
         "Unable to get path for application with bundle ID com.vantreel.Nowhere"},
        {"backup", "com.vantreel.Broken", "No tasks found in application"},
        {"backup", "com.vantreel.Empty", "No tasks found in application"},
        {"-index", "com.vantreel.Old",
         "Unable to create task - application uses old task format. Please update this "
         "application."},
        {"a", "com.vantreel.NoCommand", "Unable to find task with task id a"},
        {"nothing", "com.vantreel.Quill", "Unable to find task with task id nothing"},
    };
    for (const Case &c : cases) {
        std::optional<QStringList> arguments = QStringList{"unchanged"};
        const QString printed = consoleOf(c.taskID, c.bundleID, &arguments);
        EXPECT_FALSE(arguments.has_value()) << c.bundleID.toStdString();
        EXPECT_TRUE(printed.contains("] " + c.message + "\n")) << printed.toStdString();
    }
}

TEST_F(TaskCatalogueTest, AStringEntryIsOldFormatOnlyWhenReachedFirst)
{
    const PlistValue before(
        PlistArray{PlistValue(QStringLiteral("stray")),
                   ClientApps::entry(QStringLiteral("go"), {QStringLiteral("-go")}, "Go")});
    const PlistValue after(
        PlistArray{ClientApps::entry(QStringLiteral("go"), {QStringLiteral("-go")}, "Go"),
                   PlistValue(QStringLiteral("stray"))});
    make(QStringLiteral("Before"), before);
    make(QStringLiteral("After"), after);

    std::optional<QStringList> arguments;
    EXPECT_TRUE(consoleOf(QStringLiteral("go"), QStringLiteral("com.vantreel.Before"), &arguments)
                    .contains(QStringLiteral("application uses old task format")));
    EXPECT_FALSE(arguments);
    consoleOf(QStringLiteral("go"), QStringLiteral("com.vantreel.After"), &arguments);
    EXPECT_EQ(arguments, QStringList{"-go"});
}

TEST_F(TaskCatalogueTest, TheCatalogueMayLiveInInfoPlist)
{
    make(
        QStringLiteral("Inline"),
        PlistValue(PlistArray{ClientApps::entry(QStringLiteral("x"), {QStringLiteral("-x")}, "X")}),
        true);
    std::optional<QStringList> arguments;
    consoleOf(QStringLiteral("x"), QStringLiteral("com.vantreel.Inline"), &arguments);
    EXPECT_EQ(arguments, QStringList{"-x"});

    // A VTTasks.plist that is no dictionary falls back to Info.plist as well.
    const QString bundle = applications + "/Inline.app";
    TestFiles::write(bundle + "/Contents/VTTasks.plist",
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>");
    consoleOf(QStringLiteral("x"), QStringLiteral("com.vantreel.Inline"), &arguments);
    EXPECT_EQ(arguments, QStringList{"-x"});
}

TEST_F(TaskCatalogueTest, DescriptionsOfBothForms)
{
    VTScheduledTask task;
    task.setTaskBundleID(QStringLiteral("com.vantreel.Quill"));
    task.setTaskArguments(QStringList{"-clean", "-quiet"});
    EXPECT_EQ(task.descriptionFromArguments(), QStringLiteral("Clean caches"));
    EXPECT_EQ(task.taskID(), QStringLiteral("clean"));

    // The old form still names tasks, even though it can no longer create them.
    make(QStringLiteral("Old"), oldForm());
    VTScheduledTask old;
    old.setTaskBundleID(QStringLiteral("com.vantreel.Old"));
    old.setTaskArguments(QStringList{"-backup", "-quiet"});
    EXPECT_EQ(old.descriptionFromArguments(), QStringLiteral("Quiet backup"));
    EXPECT_FALSE(old.taskID().has_value());

    // Unknown arguments leave the ID alone.
    task.setTaskID(QStringLiteral("kept"));
    task.setTaskArguments(QStringList{"-clean"});
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
    EXPECT_EQ(task.taskID(), QStringLiteral("kept"));

    task.setTaskArguments(QStringList());
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
    task.setTaskArguments(QStringList{"-clean", "-quiet"});
    task.setTaskBundleID(std::nullopt);
    EXPECT_FALSE(task.descriptionFromArguments().has_value());
}

TEST_F(TaskCatalogueTest, TheFirstOfTwoEqualCommandsWins)
{
    make(QStringLiteral("Twice"),
         PlistValue(PlistArray{
             ClientApps::entry(QStringLiteral("one"), {QStringLiteral("-go")}, "First"),
             ClientApps::entry(QStringLiteral("two"), {QStringLiteral("-go")}, "Second")}));
    VTScheduledTask task;
    task.setTaskBundleID(QStringLiteral("com.vantreel.Twice"));
    task.setTaskArguments(QStringList{"-go"});
    EXPECT_EQ(task.descriptionFromArguments(), QStringLiteral("First"));
    EXPECT_EQ(task.taskID(), QStringLiteral("one"));
}

TEST_F(TaskCatalogueTest, RootChoiceOfAnEntry)
{
    EXPECT_TRUE(TaskCatalogue::isRootTask("com.vantreel.Quill", "repair"));
    EXPECT_FALSE(TaskCatalogue::isRootTask("com.vantreel.Quill", "backup"));
    EXPECT_FALSE(TaskCatalogue::isRootTask("com.vantreel.Quill", "nothing"));
    EXPECT_FALSE(TaskCatalogue::isRootTask("com.vantreel.Nowhere", "repair"));
}
