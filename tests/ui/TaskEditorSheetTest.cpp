#include "WindowFixture.h"

#include "app/AppController.h"
#include "platform/FileNames.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "testsupport/ClientApps.h"
#include "testsupport/Poll.h"
#include "testsupport/TestFiles.h"
#include "ui/IconViewBox.h"
#include "ui/MainWindow.h"
#include "ui/TaskEditorSheet.h"
#include "ui/TaskTableModel.h"

#include <QtTest>
#include <QtWidgets>

#include <array>
#include <map>
#include <tuple>

class TaskEditorSheetTest : public WindowFixture
{
protected:
    TaskEditorSheet *sheet() const { return window->taskWindow(); }

    template <typename T>
    T *part(const char *name) const
    {
        T *widget = sheet()->findChild<T *>(QLatin1String(name));
        EXPECT_TRUE(widget) << name;
        return widget;
    }
    QLineEdit *field(const char *name) const { return part<QLineEdit>(name); }

    // The colour the grid draws at a point of a tile.
    static QColor tileColour(QListView *grid, int row, const QPoint &point)
    {
        const QWidget *box = grid->indexWidget(grid->model()->index(row, 0));
        return grid->viewport()->grab().toImage().pixelColor(box->geometry().topLeft() + point);
    }
    QWidget *taskBox() const { return part<QWidget>("taskBox"); }
    void pickApplication(int row)
    {
        QListView *grid = part<QListView>("taskCollectionView");
        grid->setCurrentIndex(grid->model()->index(row, 0));
    }

    // Picks the schedule as a user does, with the arrow keys on the pop-up.
    void chooseSchedule(const QString &title)
    {
        QComboBox *popup = part<QComboBox>("taskBoxRunPopUp");
        const int target = popup->findText(title);
        ASSERT_GE(target, 0) << title.toStdString();
        while (popup->currentIndex() != target) {
            QTest::keyClick(popup, popup->currentIndex() < target ? Qt::Key_Down : Qt::Key_Up);
        }
    }

    void type(const char *name, const QString &text)
    {
        QLineEdit *edit = field(name);
        edit->clear();
        QTest::keyClicks(edit, text);
    }

    void clearIntervalFields()
    {
        for (const char *name :
             {"intervalMinuteText", "intervalHourText", "intervalDayText", "intervalWeekdayText",
              "intervalMonthText", "intervalSecondsText", "intervalDirectoryPath"}) {
            field(name)->clear();
        }
    }

    void pressAdd() { QTest::mouseClick(part<QPushButton>("addTaskBtn"), Qt::LeftButton); }

    // Adds a task of the first application's first catalogue entry with the schedule chosen
    // and the fields typed in; the new job file.
    QString addTask(const QString &schedule, const std::map<const char *, QString> &fields)
    {
        window->newTask();
        chooseSchedule(schedule);
        clearIntervalFields();
        for (const auto &[name, text] : fields) {
            type(name, text);
        }
        const QStringList before = jobFiles();
        pressAdd();
        QStringList added = jobFiles();
        for (const QString &file : before) {
            added.removeAll(file);
        }
        EXPECT_EQ(added.size(), 1);
        return added.value(0);
    }

    // Dictionaries compared without regard to key order.
    static std::map<QString, qint64> asMap(const PlistDict &dict)
    {
        std::map<QString, qint64> out;
        for (const auto &entry : dict) {
            out[entry.key] = entry.value.integerValue();
        }
        return out;
    }
};

TEST_F(TaskEditorSheetTest, AClickOnAGridItemSelectsItsApplicationAndFillsTheTaskMenu)
{
    PlistDict noID{{"command", PlistValue(QStringList{"-z"})}, {"description", "Without id"}};
    ClientApps::make(
        applications, "Tessera", "com.vantreelTessera",
        PlistValue(PlistArray{ClientApps::entry("12", {"-a"}, "Numbered"), PlistValue(noID)}));
    openWindow();
    window->newTask();
    QListView *grid = part<QListView>("taskCollectionView");
    ASSERT_EQ(grid->model()->rowCount(), 3);
    // The first application is selected once they are found.
    EXPECT_EQ(part<QGroupBox>("taskBox")->title(), "Quill");
    QComboBox *tasks = part<QComboBox>("taskBoxTaskPopUp");
    EXPECT_EQ(sheet()->representedObject(2)->value("root"), PlistValue(true));

    // Walk order: Quill.app, Tessera.app, then Vantreel/Inkwell.app.
    const QModelIndex tessera = grid->model()->index(1, 0);
    auto *box = qobject_cast<IconViewBox *>(grid->indexWidget(tessera));
    ASSERT_TRUE(box);
    const QPoint point = box->geometry().topLeft() + QPoint(10, 10);
    // The box never takes the click: the grid beneath does.
    EXPECT_EQ(grid->viewport()->childAt(point), nullptr);
    EXPECT_TRUE(part<QLabel>("gridHint")->isHidden());
    EXPECT_NE(tileColour(grid, 1, QPoint(14, 14)), box->palette().color(QPalette::Highlight));
    click(grid->viewport(), point);
    EXPECT_EQ(window->selectedClientIndex(), std::optional<int>(1));
    // The selected tile, and only it, in the desktop's selection colour; the keyboard focus
    // as a ring in the colour of selected text.
    EXPECT_EQ(tileColour(grid, 1, QPoint(14, 14)), box->palette().color(QPalette::Highlight));
    EXPECT_NE(tileColour(grid, 0, QPoint(14, 14)), box->palette().color(QPalette::Highlight));
    const QPoint ring(3, box->height() / 2);
    grid->clearFocus();
    EXPECT_EQ(tileColour(grid, 1, ring), box->palette().color(QPalette::Highlight));
    QApplication::setActiveWindow(sheet());
    grid->setFocus();
    ASSERT_TRUE(grid->hasFocus());
    EXPECT_EQ(tileColour(grid, 1, ring), box->palette().color(QPalette::HighlightedText));
    QTest::keyClick(grid, Qt::Key_Left);
    EXPECT_EQ(window->selectedClientIndex(), std::optional<int>(0));
    EXPECT_EQ(tileColour(grid, 0, ring), box->palette().color(QPalette::HighlightedText));
    EXPECT_NE(tileColour(grid, 1, QPoint(14, 14)), box->palette().color(QPalette::Highlight));
    click(grid->viewport(), point);
    EXPECT_EQ(part<QGroupBox>("taskBox")->title(), "Tessera");
    ASSERT_EQ(tasks->count(), 2);
    EXPECT_EQ(tasks->itemData(0).toLongLong(), 12);
    EXPECT_EQ(tasks->itemData(1).toLongLong(), -1);
    EXPECT_EQ(sheet()->representedObject(1)->value("description"), PlistValue("Without id"));
}

TEST_F(TaskEditorSheetTest, EveryRefusalLeavesTheSheetOpenAndWritesNothing)
{
    openWindow();
    window->newTask();
    struct Case
    {
        QString schedule;
        const char *field;
        QString text;
        QString alert;
    };
    const Case cases[] = {
        {"Every x seconds", "intervalSecondsText", "", "You must specify an interval."},
        {"Every x seconds", "intervalSecondsText", "0", "You must set an interval of 1 or above."},
        {"At specific interval", "intervalHourText", "",
         "You must complete at least one of the boxes in the interval field."},
        {"Whenever a directory changes", "intervalDirectoryPath", "",
         "You must specify a directory."},
    };
    for (const Case &c : cases) {
        clearIntervalFields();
        chooseSchedule(c.schedule);
        type(c.field, c.text);
        alerts->asked.clear();
        pressAdd();
        ASSERT_EQ(alerts->asked.size(), 1u) << c.alert.toStdString();
        EXPECT_EQ(alerts->asked[0].messageText, c.alert);
        EXPECT_TRUE(alerts->asked[0].alternateButton.isEmpty());
        EXPECT_TRUE(sheet()->isVisible());
        EXPECT_EQ(field(c.field)->text(), c.text);
    }
    // Without a selected application Add does nothing at all.
    part<QListView>("taskCollectionView")->selectionModel()->clearSelection();
    EXPECT_TRUE(taskBox()->isHidden());
    alerts->asked.clear();
    pressAdd();
    EXPECT_TRUE(alerts->asked.empty());
    EXPECT_TRUE(sheet()->isVisible());
    EXPECT_TRUE(jobFiles().isEmpty());
}

TEST_F(TaskEditorSheetTest, CoarserIntervalFieldsOverwriteFinerOnesAndTheRestIsSavedAsTyped)
{
    openWindow();
    const QString calendar = "At specific interval";
    const std::tuple<std::map<const char *, QString>, PlistDict> cases[] = {
        {{{"intervalHourText", "14"}, {"intervalMinuteText", "30"}}, {{"Hour", 14}, {"Minute", 0}}},
        {{{"intervalDayText", "5"}, {"intervalHourText", "14"}},
         {{"Day", 5}, {"Hour", 8}, {"Minute", 0}}},
        {{{"intervalMonthText", "3"}}, {{"Month", 3}, {"Day", 1}, {"Hour", 8}, {"Minute", 0}}},
        {{{"intervalMinuteText", "45"}}, {{"Minute", 45}}}};
    for (const auto &[typed, saved] : cases) {
        EXPECT_EQ(asMap(calendarOf(addTask(calendar, typed))), asMap(saved));
        EXPECT_FALSE(sheet()->isVisible());
    }
    // Every new task is in the table.
    EXPECT_EQ(window->taskModel()->rowCount(), 4);
    EXPECT_EQ(readJob(jobFiles()[0]).value("ProgramArguments").stringList(),
              QStringList({"Quill", "-backup"}));

    EXPECT_EQ(
        readJob(addTask("Every x seconds", {{"intervalSecondsText", "45"}})).value("StartInterval"),
        PlistValue(45));
    for (const auto &[typed, saved] :
         {std::pair<QString, QString>{"~/Watched", sandbox.home() + "/Watched"},
          std::pair<QString, QString>{"srv/data", "/srv/data"}}) {
        const QString file =
            addTask("Whenever a directory changes", {{"intervalDirectoryPath", typed}});
        EXPECT_EQ(readJob(file).value("WatchPaths").stringList(), QStringList({saved}));
    }
}

TEST_F(TaskEditorSheetTest, EveryCalendarTypedInTheSheetReadsBackAfterARescanAsShown)
{
    openWindow();
    // Minute 0 and Hour 7 alone are what the named hourly and daily schedules mean.
    const std::pair<const char *, std::array<QString, 2>> fields[] = {
        {"intervalMinuteText", {"30", "0"}}, {"intervalHourText", {"14", "7"}},
        {"intervalDayText", {"5", "12"}},    {"intervalWeekdayText", {"3", "0"}},
        {"intervalMonthText", {"6", "1"}},
    };
    // The times of each named schedule, as a calendar.
    const std::map<qint64, PlistDict> named = {
        {ScheduleHourly, PlistDict{{"Minute", 0}}},
        {ScheduleDaily, PlistDict{{"Hour", 7}, {"Minute", 0}}},
        {ScheduleWeekly, PlistDict{{"Weekday", 1}, {"Hour", 7}, {"Minute", 0}}},
        {ScheduleMonthly, PlistDict{{"Day", 1}, {"Hour", 7}, {"Minute", 0}}},
    };
    // The text shown and the interval saved, by job file.
    std::map<QString, std::pair<QString, PlistDict>> saved;
    for (size_t set = 0; set < 2; ++set) {
        for (int mask = 1; mask < 32; ++mask) {
            std::map<const char *, QString> typed;
            for (int i = 0; i < 5; ++i) {
                if (mask & (1 << i)) {
                    typed[fields[i].first] = fields[i].second[set];
                }
            }
            const QString file = addTask("At specific interval", typed);
            for (const VTScheduledTask::Ptr &task : window->controller()->dataArray()) {
                if (task->filename() == file) {
                    saved[file] = {task->frequencyStringFromScheduleType(),
                                   task->interval().value_or(PlistDict())};
                }
            }
        }
    }
    ASSERT_EQ(saved.size(), 62u);

    window->controller()->populateScheduledTasks();
    const AppController::TaskList tasks = window->controller()->dataArray();
    ASSERT_EQ(tasks.size(), saved.size());
    for (const VTScheduledTask::Ptr &task : tasks) {
        const auto &[shown, interval] = saved.at(*task->filename());
        SCOPED_TRACE(shown.toStdString());
        const qint64 type = task->scheduleType().value_or(ScheduleUnknown);
        if (type == ScheduleCalendar) {
            EXPECT_EQ(task->frequencyStringFromScheduleType(), shown);
        } else {
            ASSERT_TRUE(named.count(type)) << "read back as type " << type;
            EXPECT_EQ(asMap(interval), asMap(named.at(type)));
        }
    }
}

TEST_F(TaskEditorSheetTest, TypingIntoTheIntervalFieldsKeepsThemInRangeAndDescribesThem)
{
    openWindow();
    window->newTask();
    chooseSchedule("At specific interval");
    clearIntervalFields();
    QLabel *label = part<QLabel>("intervalFriendlyLabel");

    type("intervalHourText", "0");
    EXPECT_EQ(field("intervalHourText")->text(), "1");
    EXPECT_EQ(field("intervalMinuteText")->text(), "00");
    type("intervalHourText", "24");
    EXPECT_EQ(field("intervalHourText")->text(), "23");
    type("intervalHourText", "7");
    EXPECT_EQ(label->text(), "Every day at 7:00");

    for (const char *name :
         {"intervalMinuteText", "intervalDayText", "intervalWeekdayText", "intervalMonthText"}) {
        type(name, "99");
    }
    EXPECT_EQ(label->text(),
              VTScheduledTask::friendlyIntervalDescription("59", "7", "31", "7", "12"));

    // A day typed with no minute puts "00" there.
    clearIntervalFields();
    type("intervalDayText", "5");
    EXPECT_EQ(field("intervalMinuteText")->text(), "00");
    EXPECT_EQ(label->text(), VTScheduledTask::friendlyIntervalDescription("00", "", "5", "", ""));

    // The seconds field never changes the description.
    const QString before = label->text();
    chooseSchedule("Every x seconds");
    type("intervalSecondsText", "99");
    EXPECT_EQ(label->text(), before);
}

TEST_F(TaskEditorSheetTest, EditingFillsTheSheetAndRewritesTheSameJobFile)
{
    const VTScheduledTask::Ptr task =
        makeTask("com.vantreel.Quill", {"-clean", "-quiet"}, ScheduleCalendar,
                 PlistDict{{"Minute", 30}, {"Hour", 2}});
    openWindow();
    window->tableView()->selectRow(0);
    window->editTask();
    ASSERT_TRUE(sheet()->isVisible());
    EXPECT_EQ(part<QPushButton>("addTaskBtn")->text(), "Edit Task");
    EXPECT_EQ(part<QComboBox>("taskBoxTaskPopUp")->currentText(), "Clean caches");
    EXPECT_EQ(part<QComboBox>("taskBoxRunPopUp")->currentIndex(), int(ScheduleCalendar));
    EXPECT_EQ(field("intervalMinuteText")->text(), "30");
    EXPECT_EQ(part<QLabel>("intervalFriendlyLabel")->text(), "Every day at 2:30");

    type("intervalHourText", "5");
    pressAdd();
    EXPECT_FALSE(sheet()->isVisible());
    ASSERT_EQ(jobFiles(), QStringList({*task->filename()}));
    EXPECT_EQ(asMap(calendarOf(*task->filename())), asMap(PlistDict{{"Hour", 5}, {"Minute", 0}}));
    EXPECT_EQ(window->taskModel()->index(0, TaskTableModel::ColumnFrequency).data().toString(),
              "Every day at 5:00");

    // A new task afterwards is added, not edited.
    window->newTask();
    EXPECT_FALSE(window->controller()->editMode());
}

TEST_F(TaskEditorSheetTest, EditingATaskOfAnUndiscoveredApplicationHidesTheTaskBox)
{
    // The catalogue in Info.plist only: the task reads back, but discovery passes it by.
    ClientApps::make(applications, "Tessel", "com.vantreel.Tessel",
                     PlistValue(PlistArray{ClientApps::entry("thumbs", {"-thumbs"}, "Thumbnails")}),
                     true);
    makeTask("com.vantreel.Tessel", {"-thumbs"}, ScheduleHourly);
    // A job of the same application that no schedule type fits.
    const VTScheduledTask::Ptr unknown =
        makeTask("com.vantreel.Tessel", {"-thumbs"}, ScheduleHourly);
    PlistDict job = readJob(*unknown->filename());
    job.remove("StartCalendarInterval");
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(job), *unknown->filename()));
    openWindow();
    ASSERT_EQ(window->taskModel()->rowCount(), 2);
    ASSERT_FALSE(taskBox()->isHidden());
    const int height = sheet()->height();
    const int B = taskBox()->height();
    const auto rowOf = [&](qint64 type) {
        for (int row = 0; row < 2; ++row) {
            if (window->taskModel()->taskAt(row)->scheduleType() == type) {
                return row;
            }
        }
        return -1;
    };
    window->tableView()->selectRow(rowOf(ScheduleHourly));
    window->editTask();
    EXPECT_TRUE(sheet()->isVisible());
    EXPECT_TRUE(taskBox()->isHidden());
    EXPECT_EQ(sheet()->height(), height - B);
    sheet()->cancelNewTask();

    // Expanded, then the unknown type collapses it with the task box already gone: the
    // buttons still stay below the grid, and the next opening has its proper height.
    window->newTask();
    pickApplication(1);
    ASSERT_FALSE(taskBox()->isHidden());
    // An interval grows the sheet by its box, in place.
    const int top = sheet()->y();
    chooseSchedule("At specific interval");
    const int expanded = sheet()->height();
    EXPECT_EQ(expanded, height + part<QWidget>("intervalBox")->height());
    EXPECT_EQ(sheet()->y(), top);
    sheet()->cancelNewTask();
    window->tableView()->selectRow(rowOf(ScheduleUnknown));
    window->editTask();
    EXPECT_TRUE(taskBox()->isHidden());
    const QWidget *grid = part<QWidget>("taskView");
    for (const char *button : {"addTaskBtn", "cancelButton"}) {
        EXPECT_GT(part<QWidget>(button)->y(), grid->geometry().bottom()) << button;
    }
    EXPECT_GE(sheet()->height(), height - B);
    sheet()->cancelNewTask();
    window->newTask();
    EXPECT_EQ(sheet()->height(), height - B);
    pickApplication(0);
    EXPECT_FALSE(taskBox()->isHidden());
    EXPECT_EQ(sheet()->height(), height);
    chooseSchedule("At specific interval");
    EXPECT_EQ(sheet()->height(), expanded);
}

TEST_F(TaskEditorSheetTest, TheGridSaysWhileItLooksAndWhereItLookedWhenNothingIsFound)
{
    QDir(applications).removeRecursively();
    QDir().mkpath(applications);
    window = std::make_unique<MainWindow>();
    QLabel *hint = part<QLabel>("gridHint");
    EXPECT_FALSE(hint->isHidden());
    EXPECT_EQ(hint->text(), "Looking for applications...");
    // No empty "Application" box while nothing is selected.
    EXPECT_TRUE(taskBox()->isHidden());

    ASSERT_TRUE(window->awakeFromNib());
    ASSERT_TRUE(Poll::until([&] { return !window->controller()->isDiscovering(); }));
    EXPECT_TRUE(hint->text().startsWith("No Vantreel application"));
    EXPECT_TRUE(hint->text().contains(applications)) << hint->text().toStdString();
}

TEST_F(TaskEditorSheetTest, BrowseOpensInTheTypedFolderElseInTheHomeFolder)
{
    const QString watched = sandbox.home() + "/Watched";
    ASSERT_TRUE(QDir().mkpath(watched));
    openWindow();
    window->newTask();
    chooseSchedule("Whenever a directory changes");
    // A home Qt cannot name (not UTF-8): the panel opens beside it, not at a folder that
    // does not exist.
    const QString latin1 = sandbox.path() + FileNames::decode("/caf\xe9");
    ASSERT_TRUE(PosixFile::makeFolders(latin1));
    for (const auto &[home, typed, opened] :
         {std::tuple<QString, QString, QString>{sandbox.home(), "~/Watched", watched},
          {sandbox.home(), "~/Watched/not yet made", watched},
          {sandbox.home(), "", sandbox.home()},
          {latin1, "", sandbox.path()}}) {
        identity->home = home;
        type("intervalDirectoryPath", typed);
        QString shown;
        QTimer::singleShot(0, sheet(), [&] {
            auto *panel = sheet()->findChild<QFileDialog *>();
            ASSERT_TRUE(panel);
            shown = panel->directory().absolutePath();
            panel->reject();
        });
        sheet()->taskBrowseDirectory();
        EXPECT_EQ(shown, opened) << typed.toStdString();
        EXPECT_EQ(field("intervalDirectoryPath")->text(), typed);
    }
}
