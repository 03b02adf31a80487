#include "WindowFixture.h"

#include "platform/Bundle.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "testsupport/Poll.h"
#include "testsupport/TestFiles.h"
#include "ui/JobStatusMonitor.h"
#include "ui/MainWindow.h"
#include "ui/PreferencesWindow.h"
#include "ui/TaskEditorSheet.h"
#include "ui/TaskTableModel.h"
#include "ui/VTImageTextCell.h"
#include "ui/VTMessageBoxPresenter.h"
#include "ui/VTShortcutKeyContainerView.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// Receives the addresses the desktop would open.
class UrlRecorder : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> urls;

public Q_SLOTS:
    void open(const QUrl &url) { urls.append(url); }
};

} // namespace

class MainWindowTest : public WindowFixture
{
protected:
    UserDefaults &defaults() { return UserDefaults::standardUserDefaults(); }

    // Three tasks whose descriptions, states and schedules ("Once a day", "Once an hour",
    // "Once a week") sort differently.
    void makeThreeTasks()
    {
        makeTask("com.vantreel.Quill", {"-clean", "-quiet"}, ScheduleDaily);
        makeTask("com.vantreel.Inkwell", {"-spelling"}, ScheduleHourly, PlistDict(), false);
        makeTask("com.vantreel.Quill", {"-backup"}, ScheduleWeekly);
    }

    QHeaderView *header() const { return window->tableView()->horizontalHeader(); }

    void clickHeader(int column)
    {
        QHeaderView *h = header();
        click(h->viewport(), QPoint(h->sectionViewportPosition(column) + h->sectionSize(column) / 2,
                                    h->height() / 2));
    }

    void clickCheckbox(int row)
    {
        click(window->tableView()->viewport(),
              centerOf(window->tableView(), row, TaskTableModel::ColumnEnabled));
    }

    QString sortedColumn() { return defaults().stringForKey("sortedColumn").value_or(QString()); }
    PlistValue sortedDescending() { return defaults().objectForKey("sortedDescending"); }
};

TEST_F(MainWindowTest, TheListIsSortedByTheStoredColumnAndHeaderClicksAreRemembered)
{
    makeThreeTasks();
    // An unknown stored column sorts by schedules, without an indicator.
    defaults().setObject(PlistValue("colNothing"), "sortedColumn");
    openWindow();
    EXPECT_EQ(tableDescriptions().first(), "Clean caches");
    EXPECT_EQ(header()->sortIndicatorSection(), -1);

    // Without a stored column: ascending by the second column, and nothing is written back.
    defaults().removeObjectForKey("sortedColumn");
    window->controller()->populateScheduledTasks();
    EXPECT_EQ(tableDescriptions(),
              QStringList({"Back up the library", "Clean caches", "Update spelling"}));
    EXPECT_EQ(window->indicatorImageName("colTask"), "NSAscendingSortIndicator");
    EXPECT_FALSE(defaults().objectForKey("sortedColumn").isValid());

    // A header click sorts ascending ("Once a day", "Once a week", "Once an hour"), the
    // next descending.
    clickHeader(TaskTableModel::ColumnFrequency);
    EXPECT_EQ(tableDescriptions(),
              QStringList({"Clean caches", "Back up the library", "Update spelling"}));
    EXPECT_EQ(sortedColumn(), "colFrequency");
    EXPECT_EQ(sortedDescending(), PlistValue(false));
    clickHeader(TaskTableModel::ColumnFrequency);
    EXPECT_EQ(tableDescriptions(),
              QStringList({"Update spelling", "Back up the library", "Clean caches"}));
    EXPECT_EQ(sortedDescending(), PlistValue(true));
    EXPECT_EQ(window->indicatorImageName("colFrequency"), "NSDescendingSortIndicator");
    const Qt::SortOrder descendingOrder = header()->sortIndicatorOrder();

    // Another column starts ascending, and the first one loses its indicator.
    clickHeader(TaskTableModel::ColumnEnabled);
    EXPECT_EQ(sortedColumn(), "colEnabled");
    EXPECT_EQ(sortedDescending(), PlistValue(false));
    EXPECT_TRUE(window->indicatorImageName("colFrequency").isEmpty());
    EXPECT_EQ(header()->sortIndicatorSection(), TaskTableModel::ColumnEnabled);
    EXPECT_NE(header()->sortIndicatorOrder(), descendingOrder);

    // The stored order is applied again after every reload.
    defaults().setObject(PlistValue("colTask"), "sortedColumn");
    defaults().setObject(PlistValue(true), "sortedDescending");
    makeTask("com.vantreel.Quill", {"-repair"}, ScheduleMonthly);
    window->controller()->populateScheduledTasks();
    EXPECT_EQ(tableDescriptions(), QStringList({"Update spelling", "Repair permissions",
                                                "Clean caches", "Back up the library"}));
}

TEST_F(MainWindowTest, CheckboxesAndEnableAllSaveTheTasksAndTurnTheToolbarItemAtOnce)
{
    // An empty list offers to enable all, with the application's image, and says how to add
    // a task.
    openWindow();
    auto *hint = window->findChild<QLabel *>("emptyTableHint");
    EXPECT_TRUE(hint->text().contains("New Task"));
    EXPECT_EQ(window->enableDisableAllLabel(), "Enable All Tasks");
    EXPECT_EQ(window->enableDisableAllImageName(), "KairoPlanner.icns");
    EXPECT_FALSE(window->toolbarEnableDisableAll()->icon().isNull());

    makeTask("com.vantreel.Quill", {"-backup"}, ScheduleDaily);
    makeTask("com.vantreel.Quill", {"-clean", "-quiet"}, ScheduleWeekly);
    window->controller()->populateScheduledTasks();
    EXPECT_FALSE(hint->isVisible());
    const QString file = *window->taskModel()->taskAt(0)->filename();
    launchctl->clear();
    clickCheckbox(0);
    EXPECT_EQ(readJob(file).value("Disabled"), PlistValue(true));
    EXPECT_EQ(launchctl->calls(), QStringList({"unload " + file, "load " + file}));
    EXPECT_EQ(window->enableDisableAllLabel(), "Enable All Tasks");
    clickCheckbox(0);
    EXPECT_FALSE(readJob(file).contains("Disabled"));
    EXPECT_EQ(window->enableDisableAllLabel(), "Disable All Tasks");

    window->toolbarEnableDisableAll()->trigger();
    for (const QString &job : jobFiles()) {
        EXPECT_EQ(readJob(job).value("Disabled"), PlistValue(true)) << job.toStdString();
    }
    EXPECT_EQ(window->enableDisableAllImageName(), "KairoPlanner.icns");
    EXPECT_EQ(window->taskModel()->index(1, 0).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    window->toolbarEnableDisableAll()->trigger();
    for (const QString &job : jobFiles()) {
        EXPECT_FALSE(readJob(job).contains("Disabled")) << job.toStdString();
    }
    EXPECT_EQ(window->enableDisableAllImageName(), "disableall.png");
}

TEST_F(MainWindowTest, NextRunAndLastResultComeFromTheBridgeAndSortLikeTheOthers)
{
    makeThreeTasks();
    // ScheduledTask2 (spelling, disabled) has no next run and was never run.
    launchctl->answerList(QStringLiteral(
        "printf 'com.vantreel.ScheduledTask1\\tyes\\t2030-01-02T07:00:00+00:00\\tfailed (exit "
        "status 1)\\n'\n"
        "printf 'com.vantreel.ScheduledTask2\\tno\\t-\\tnever run\\n'\n"
        "printf 'com.vantreel.ScheduledTask3\\tyes\\t2030-01-01T07:00:00+00:00\\tsuccess\\n'\n"));
    openWindow();
    const TaskTableModel *model = window->taskModel();
    const auto column = [&](int column) {
        QStringList values;
        for (int row = 0; row < model->rowCount(); ++row) {
            values.append(model->index(row, column).data().toString());
        }
        return values;
    };
    ASSERT_TRUE(
        Poll::until([&] { return !column(TaskTableModel::ColumnLastResult).first().isEmpty(); }));

    // The new columns may lie beyond the window's edge: their header's own handler.
    window->didClickTableColumn(TaskTableModel::ColumnNextRun);
    EXPECT_EQ(tableDescriptions(),
              QStringList({"Back up the library", "Clean caches", "Update spelling"}));
    EXPECT_EQ(sortedColumn(), "colNextRun");
    const QDateTime first = QDateTime::fromString("2030-01-01T07:00:00Z", Qt::ISODate);
    EXPECT_EQ(column(TaskTableModel::ColumnNextRun),
              QStringList({first.toLocalTime().toString("yyyy-MM-dd HH:mm"),
                           first.addDays(1).toLocalTime().toString("yyyy-MM-dd HH:mm"), ""}));
    EXPECT_EQ(column(TaskTableModel::ColumnLastResult),
              QStringList({"Success", "Failed (exit status 1)", "Never run"}));
    window->didClickTableColumn(TaskTableModel::ColumnLastResult);
    EXPECT_EQ(column(TaskTableModel::ColumnLastResult),
              QStringList({"Failed (exit status 1)", "Never run", "Success"}));
}

TEST_F(MainWindowTest, ASlowOrMissingSystemdLeavesTheStatusEmptyWithoutBlocking)
{
    makeThreeTasks();
    launchctl->answerList("printf 'com.vantreel.ScheduledTask1\\tyes\\t-\\tsuccess\\n'\n");
    // A time limit well above what starting a process takes, so blocking would show.
    JobStatusMonitor monitor(60000, 3000);
    int updates = 0;
    QObject::connect(&monitor, &JobStatusMonitor::updated, [&] { ++updates; });
    monitor.refresh();
    ASSERT_TRUE(Poll::until([&] { return updates == 1; }));
    ASSERT_TRUE(monitor.statusOf("com.vantreel.ScheduledTask1"));

    for (const QString answer : {"exec sleep 30", "exit 1"}) {
        launchctl->answerList(answer);
        QElapsedTimer timer;
        timer.start();
        monitor.refresh();
        EXPECT_LT(timer.elapsed(), 1000) << answer.toStdString();
        const int before = updates;
        ASSERT_TRUE(Poll::until([&] { return updates == before + 1; })) << answer.toStdString();
        EXPECT_FALSE(monitor.statusOf("com.vantreel.ScheduledTask1")) << answer.toStdString();
    }
}

TEST_F(MainWindowTest, ALargeFontAndADarkPaletteLeaveEveryPartReadable)
{
    const QFont font = QApplication::font();
    const QPalette palette = QApplication::palette();
    QFont large = font;
    large.setPointSizeF(font.pointSizeF() * 1.8);
    QApplication::setFont(large);
    QApplication::setPalette(QPalette(QColor(53, 53, 53)));
    const auto restore = qScopeGuard([&] {
        window.reset();
        QApplication::setFont(font);
        QApplication::setPalette(palette);
    });
    makeThreeTasks();
    openWindow();
    EXPECT_EQ(layoutFaults(window.get()), QStringList());

    // The task titles in the palette's light text on the dark table.
    QTableView *table = window->tableView();
    // Right of the 18-point icon and its margins.
    const QRect cell = table->visualRect(table->model()->index(1, TaskTableModel::ColumnTask))
                           .adjusted(30, 0, 0, 0);
    const QImage image = table->viewport()->grab(cell).toImage();
    int light = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            light += image.pixelColor(x, y).lightness() > 160 ? 1 : 0;
        }
    }
    EXPECT_GT(light, 10);

    TaskEditorSheet *sheet = window->taskWindow();
    for (const int schedule : {int(ScheduleCalendar), int(ScheduleWatchDirectory),
                               int(ScheduleEverySeconds), int(ScheduleDaily)}) {
        window->newTask();
        auto *popup = sheet->findChild<QComboBox *>("taskBoxRunPopUp");
        popup->setCurrentIndex(schedule);
        sheet->taskScheduleChanged();
        EXPECT_EQ(layoutFaults(sheet), QStringList()) << popup->currentText().toStdString();
        window->taskWindow()->cancelNewTask();
    }
    window->showPreferences();
    EXPECT_EQ(layoutFaults(window->preferencesWindow()), QStringList());
    window->preferencesWindow()->close();
}

TEST_F(MainWindowTest, TheToolbarEditsAndDeletesTheSelectedTask)
{
    makeThreeTasks();
    openWindow();
    for (const char *name : {"toolbarNewTask", "toolbarEditTask", "toolbarDeleteTask"}) {
        const QIcon icon = window->findChild<QAction *>(name)->icon();
        // The badge above its glyph: a colour, not the grey of a disabled control.
        const QColor normal = icon.pixmap(32).toImage().pixelColor(16, 6);
        EXPECT_GE(normal.hsvSaturation(), 100) << name;
        EXPECT_LT(icon.pixmap(32, QIcon::Disabled).toImage().pixelColor(16, 6).hsvSaturation(),
                  normal.hsvSaturation())
            << name;
    }

    // The task cell gets each task's icon at 18 points; the task's own image keeps its size.
    VTImageTextCell *cell = window->taskCell();
    cell->setImage(QImage());
    window->willDisplayCell(*cell, TaskTableModel::ColumnTask, 0);
    EXPECT_EQ(cell->image().deviceIndependentSize(), QSizeF(18, 18));
    EXPECT_EQ(window->taskModel()->taskAt(0)->icon().value<QImage>().size(), QSize(18, 18));
    // A task without an icon, and any other column, leave the image of the row before.
    const QImage previous = cell->image();
    window->taskModel()->taskAt(1)->setIcon(QVariant());
    window->willDisplayCell(*cell, TaskTableModel::ColumnTask, 1);
    window->willDisplayCell(*cell, TaskTableModel::ColumnEnabled, 2);
    EXPECT_EQ(cell->image(), previous);

    // Double-clicking a row opens the editor on it.
    QTableView *table = window->tableView();
    const QPoint point = centerOf(table, 2, TaskTableModel::ColumnTask);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, point);
    QTest::mouseDClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, point);
    TaskEditorSheet *sheet = window->taskWindow();
    ASSERT_TRUE(Poll::until([&] { return sheet->isVisible(); }));
    EXPECT_EQ(sheet->findChild<QPushButton *>("addTaskBtn")->text(), "Edit Task");
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    sheet->cancelNewTask();

    // Delete asks first, then moves the job file to the trash.
    QAction *remove = window->findChild<QAction *>("toolbarDeleteTask");
    table->clearSelection();
    EXPECT_FALSE(remove->isEnabled());
    window->deleteTask();
    EXPECT_TRUE(alerts->asked.empty());
    table->selectRow(1);
    EXPECT_TRUE(remove->isEnabled());
    const QString file = *window->taskModel()->taskAt(1)->filename();
    alerts->answer = VTAlert::AlternateReturn;
    remove->trigger();
    ASSERT_EQ(alerts->asked.size(), 1u);
    EXPECT_EQ(alerts->asked[0].messageText, "Are you sure you wish to delete this task?");
    EXPECT_EQ(alerts->asked[0].defaultButton, "Delete");
    EXPECT_TRUE(QFileInfo::exists(file));
    alerts->answer = VTAlert::DefaultReturn;
    remove->trigger();
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_TRUE(QFileInfo::exists(sandbox.home() + "/.local/share/Trash/files/" +
                                  QFileInfo(file).fileName()));
    EXPECT_TRUE(launchctl->calls().contains("unload " + file));
    EXPECT_EQ(tableDescriptions(), QStringList({"Back up the library", "Update spelling"}));
}

TEST_F(MainWindowTest, RequiredAdministratorPasswordThatFailsEndsTheApplication)
{
    PropertyList::writeXml(
        PlistValue(PlistDict{{"requireAdminPassword", 1}}),
        sandbox.file("root/Library/Preferences/com.vantreel.KairoPlanner.plist"));
    makeThreeTasks();
    window = std::make_unique<MainWindow>();
    EXPECT_FALSE(window->awakeFromNib());
    EXPECT_TRUE(window->terminated());
    EXPECT_TRUE(window->preferencesWindow()->prefsAdminPass()->isChecked());
    EXPECT_EQ(window->taskModel()->rowCount(), 0);
}

TEST_F(MainWindowTest, TheAdministratorCheckboxWritesTheMachineWideSetting)
{
    const QString asked = sandbox.file("elevate.log");
    sandbox.setEnv("VT_ELEVATE", TestFiles::writeScript(sandbox.file("bin/elevate"),
                                                        "echo asked >> '" + asked + "'\nexit 1"));
    const QString machine =
        sandbox.localRoot() + "/Library/Preferences/com.vantreel.KairoPlanner.plist";
    const auto stored = [&] {
        return PropertyList::readDictionary(machine)->value("requireAdminPassword");
    };
    // Without the setting no password is asked and the checkbox is off.
    defaults().setObject(PlistValue(0), "requireAdminPassword");
    openWindow();
    PreferencesWindow *preferences = window->preferencesWindow();
    QCheckBox *box = preferences->prefsAdminPass();
    EXPECT_FALSE(box->isChecked());
    // The keyboard shortcuts are made when their tab is first shown.
    EXPECT_FALSE(preferences->findChild<VTShortcutKeyContainerView *>());
    window->showPreferences();
    preferences->findChild<QTabWidget *>("prefsTabs")->setCurrentIndex(1);
    auto *container = preferences->findChild<VTShortcutKeyContainerView *>();
    EXPECT_TRUE(container && container->isVisible());
    preferences->findChild<QTabWidget *>("prefsTabs")->setCurrentIndex(0);

    // On: no password. Off: the authentication is refused, so the box goes back on and
    // nothing changes. As the administrator, off is written.
    click(box, box->rect().center());
    EXPECT_TRUE(box->isChecked());
    EXPECT_EQ(stored(), PlistValue(1));
    EXPECT_FALSE(QFileInfo::exists(asked));
    click(box, box->rect().center());
    EXPECT_TRUE(box->isChecked());
    EXPECT_TRUE(QFileInfo::exists(asked));
    EXPECT_EQ(stored(), PlistValue(1));
    identity->uid = 0;
    click(box, box->rect().center());
    EXPECT_FALSE(box->isChecked());
    EXPECT_EQ(stored(), PlistValue(0));
}

TEST_F(MainWindowTest, TheUpdaterAndTheHelpPagesAreOpenedForThisApplication)
{
    const QString record = sandbox.file("updater.log");
    TestFiles::makeBundle(applications, "Software Update",
                          PlistDict{{"CFBundleIdentifier", "com.vantreel.SoftwareUpdate"},
                                    {"CFBundleExecutable", "Software Update"}},
                          "echo \"run: $*\" >> '" + record + "'");
    const QString own =
        TestFiles::makeBundle(sandbox.mkdir("elsewhere"), "Kairo Planner",
                              PlistDict{{"CFBundleIdentifier", "com.vantreel.KairoPlanner"},
                                        {"CFBundleShortVersionString", "2.5"}});
    Bundle::setMainBundlePath(own);
    UrlRecorder recorder;
    QDesktopServices::setUrlHandler("https", &recorder, "open");
    const auto restore = qScopeGuard([] { QDesktopServices::unsetUrlHandler("https"); });
    openWindow();

    // The update check runs unless the maker's shared switch is off; a missing key counts as
    // "check", whatever the application's own defaults say.
    const QString global = sandbox.home() + "/Library/Preferences/com.vantreel.global.plist";
    PropertyList::writeXml(PlistValue(PlistDict{{"SUCheckAtStartup", false}}), global);
    window->applicationDidFinishLaunching();
    QTest::qWait(300);
    EXPECT_FALSE(QFileInfo::exists(record));
    defaults().setObject(PlistValue(false), "SUCheckAtStartup");
    PropertyList::writeXml(PlistValue(PlistDict{{"disable-logging", "0"}}), global);
    window->applicationDidFinishLaunching();
    ASSERT_TRUE(Poll::until([&] { return !TestFiles::lines(record).isEmpty(); }));
    EXPECT_EQ(TestFiles::lines(record), QStringList({"run: -checkpath " + own}));
    // The menu item starts it with no arguments.
    QFile::remove(record);
    window->menuSoftwareUpdate();
    ASSERT_TRUE(Poll::until([&] { return !TestFiles::lines(record).isEmpty(); }));
    EXPECT_EQ(TestFiles::lines(record), QStringList({"run: "}));

    // The help items open the maker's pages, on the configured host.
    for (const char *name :
         {"helpUserManual", "helpReportBug", "helpSuggestFeature", "helpVTHome"}) {
        window->findChild<QAction *>(name)->trigger();
    }
    EXPECT_EQ(
        recorder.urls,
        QList<QUrl>(
            {QUrl("https://www.vantreel.com/software_bugreport.htm?app=kairo_planner&version=2.5"),
             QUrl("https://www.vantreel.com/software_featurerequest.htm?app=kairo_planner"),
             QUrl("https://www.vantreel.com/")}));
    recorder.urls.clear();
    defaults().setObject(PlistValue("https://mirror.example.org/vt"), "VTWebHost");
    window->helpVTHome();
    EXPECT_EQ(recorder.urls, QList<QUrl>({QUrl("https://mirror.example.org/vt/")}));
}

TEST(VTMessageBoxPresenterTest, ALongPathWrapsAfterItsSlashes)
{
    // Numbered folders: a line may not break between a slash and a digit by itself, and a
    // run longer than the alert is wide would otherwise be cut anywhere.
    QString path = "/srv/archive/2024/11/23/";
    for (int i = 0; i < 40; ++i) {
        path += QStringLiteral("%1/").arg(i, 2, 10, QLatin1Char('0'));
    }
    path += "Applications/Tessel.app/Contents/MacOS/Tessel";
    VTAlertRequest request;
    request.messageText = "Unable to locate executable file";
    request.informativeText = QStringLiteral("Kairo Planner cannot find %1.").arg(path);
    request.defaultButton = "Remove Task";
    request.alternateButton = "Ignore";
    QStringList lines;
    QTimer::singleShot(0, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        auto *label = box->findChild<QLabel *>("qt_msgbox_informativelabel");
        ASSERT_TRUE(label);
        // The lines as the label lays them out at its width.
        QTextLayout layout(label->text(), label->font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(label->contentsRect().width() - 2 * label->margin());
            lines.append(label->text().mid(line.textStart(), line.textLength()));
        }
        layout.endLayout();
        box->defaultButton()->click();
    });
    VTMessageBoxPresenter().runModal(request);
    ASSERT_GT(lines.size(), 1) << lines.join(QLatin1Char('|')).toStdString();
    QString joined;
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines[i];
        joined += line;
        if (i + 1 < lines.size()) {
            const QString bare = QString(line).remove(QChar(0x200B)).trimmed();
            EXPECT_TRUE(bare.endsWith(QLatin1Char('/')) || line.endsWith(QLatin1Char(' ')))
                << lines.join(QLatin1Char('|')).toStdString();
        }
    }
    EXPECT_EQ(joined.remove(QChar(0x200B)), request.informativeText);
}

#include "MainWindowTest.moc"
