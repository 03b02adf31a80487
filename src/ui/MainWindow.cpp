#include "MainWindow.h"

#include "JobStatusMonitor.h"
#include "PreferencesWindow.h"
#include "TaskEditorSheet.h"
#include "TaskTableModel.h"
#include "VTCheckBoxCell.h"
#include "VTImageTextCell.h"
#include "VTImages.h"
#include "platform/Bundle.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "support/VTAuthorization.h"
#include "support/VTBugReporter.h"
#include "support/VTException.h"
#include "support/VTLocalPaths.h"

#include "ui_MainMenu.h"

#include <QApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QTimer>
#include <QUrl>

#include <algorithm>

namespace {

const QString kSortedColumn = QStringLiteral("sortedColumn");
const QString kSortedDescending = QStringLiteral("sortedDescending");
const QString kWebHost = QStringLiteral("VTWebHost");
const QString kDisableAll = QStringLiteral("Disable All Tasks");
const QString kEnableAll = QStringLiteral("Enable All Tasks");
const QString kAppImage = QStringLiteral("KairoPlanner.icns");
const QString kDisableAllImage = QStringLiteral("disableall.png");
const QString kAscendingIndicator = QStringLiteral("NSAscendingSortIndicator");
const QString kDescendingIndicator = QStringLiteral("NSDescendingSortIndicator");
const QString kSoftwareUpdate = QStringLiteral("com.vantreel.SoftwareUpdate");

constexpr int kTableIconSize = 18;

// The header draws Qt's ascending order as an arrow pointing down; the ascending image is
// the upward one, as the sort indicators of the maker's applications show it.
Qt::SortOrder headerOrderForIndicator(const QString &imageName)
{
    return imageName == kAscendingIndicator ? Qt::DescendingOrder : Qt::AscendingOrder;
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent), m_controller(AppController::init(this)),
      m_ui(std::make_unique<Ui::MainMenu>())
{
    PlistDict defaults;
    defaults.insert(kWebHost, QStringLiteral("https://www.vantreel.com/"));
    UserDefaults::standardUserDefaults().registerDefaults(defaults);

    m_ui->setupUi(this);
    setWindowIcon(VTImages::applicationIcon());

    m_model = new TaskTableModel(m_controller.get(), this, this);
    m_jobStatus = new JobStatusMonitor(30000, 5000, this);
    m_model->setJobStatus(m_jobStatus);
    connect(m_jobStatus, &JobStatusMonitor::updated, this, &MainWindow::jobStatusUpdated);
    QTableView *table = m_ui->tableView;
    table->setModel(m_model);
    m_taskCell = new VTImageTextCell(this);
    m_taskCell->setWillDisplayCell([this](VTImageTextCell &cell, const QModelIndex &index) {
        willDisplayCell(cell, index.column(), index.row());
    });
    table->setItemDelegateForColumn(TaskTableModel::ColumnTask, m_taskCell);
    table->setItemDelegateForColumn(TaskTableModel::ColumnEnabled, new VTCheckBoxCell(this));

    // Rows fit the 18-point icons, and are four points taller than a line on each side: the
    // icon cell's title (three points down, one inset) then lines up with the other columns.
    const int rowHeight = std::max(kTableIconSize + 4, table->fontMetrics().height() + 8);
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(rowHeight);
    QHeaderView *header = table->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(-1, Qt::AscendingOrder);
    header->setMinimumSectionSize(40);
    header->setSectionResizeMode(TaskTableModel::ColumnEnabled, QHeaderView::Fixed);
    header->resizeSection(
        TaskTableModel::ColumnEnabled,
        std::max(64, header->fontMetrics().horizontalAdvance(QStringLiteral("Enabled")) + 36));
    header->resizeSection(TaskTableModel::ColumnTask, 300);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    connect(header, &QHeaderView::sectionClicked, this, &MainWindow::didClickTableColumn);

    m_ui->toolbarNewTask->setIcon(VTImages::toolbarImage(QStringLiteral("NewTask")));
    m_ui->toolbarEditTask->setIcon(VTImages::toolbarImage(QStringLiteral("EditTask")));
    m_ui->toolbarDeleteTask->setIcon(VTImages::toolbarImage(QStringLiteral("DeleteTask")));
    setEnableDisableAllItem(kEnableAll, kAppImage);

    for (QAction *action : {m_ui->toolbarNewTask, m_ui->menuNewTask}) {
        connect(action, &QAction::triggered, this, &MainWindow::newTask);
    }
    for (QAction *action : {m_ui->toolbarEditTask, m_ui->menuEditTask}) {
        connect(action, &QAction::triggered, this, &MainWindow::editTask);
    }
    for (QAction *action : {m_ui->toolbarDeleteTask, m_ui->menuDeleteTask}) {
        connect(action, &QAction::triggered, this, &MainWindow::deleteTask);
    }
    for (QAction *action : {m_ui->toolbarEnableDisableAll, m_ui->menuEnableDisableAll}) {
        connect(action, &QAction::triggered, this, &MainWindow::enableDisableAll);
    }
    connect(m_ui->menuQuit, &QAction::triggered, this, &QWidget::close);
    connect(m_ui->menuPreferences, &QAction::triggered, this, &MainWindow::showPreferences);
    connect(m_ui->helpUserManual, &QAction::triggered, this, &MainWindow::helpUserManual);
    connect(m_ui->helpReportBug, &QAction::triggered, this, &MainWindow::helpReportBug);
    connect(m_ui->helpSuggestFeature, &QAction::triggered, this, &MainWindow::helpSuggestFeature);
    connect(m_ui->helpVTHome, &QAction::triggered, this, &MainWindow::helpVTHome);
    connect(m_ui->menuSoftwareUpdate, &QAction::triggered, this, &MainWindow::menuSoftwareUpdate);
    connect(m_ui->menuAbout, &QAction::triggered, this, &MainWindow::showAbout);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::updateSelectionActions);
    connect(m_model, &QAbstractItemModel::modelReset, this, &MainWindow::updateSelectionActions);
    updateSelectionActions();

    // An empty table says how to fill it.
    m_emptyHint = new QLabel(QStringLiteral("No tasks are scheduled.\nClick New Task to schedule "
                                            "a task of a Vantreel application."),
                             table->viewport());
    m_emptyHint->setObjectName(QStringLiteral("emptyTableHint"));
    m_emptyHint->setAlignment(Qt::AlignCenter);
    m_emptyHint->setWordWrap(true);
    m_emptyHint->setMargin(12);
    m_emptyHint->setForegroundRole(QPalette::PlaceholderText);
    m_emptyHint->setAttribute(Qt::WA_TransparentForMouseEvents);
    table->viewport()->installEventFilter(this);
    connect(m_model, &QAbstractItemModel::modelReset, this, &MainWindow::updateEmptyHint);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, &MainWindow::updateEmptyHint);
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, &MainWindow::updateEmptyHint);
    updateEmptyHint();

    m_sheet = new TaskEditorSheet(m_controller.get(), this, this);
    m_preferences = new PreferencesWindow(this);
}

MainWindow::~MainWindow()
{
    // The discovery thread reports to this window: it ends before the window does.
    m_controller.reset();
    VTBugReporter::stopBugReporter();
}

QTableView *MainWindow::tableView() const
{
    return m_ui->tableView;
}

QAction *MainWindow::toolbarEnableDisableAll() const
{
    return m_ui->toolbarEnableDisableAll;
}

QString MainWindow::indicatorImageName(const QString &identifier) const
{
    return m_indicatorImages.value(identifier);
}

bool MainWindow::awakeFromNib()
{
    return VTException::guard(VT_METHOD, true, [&] {
        const PlistValue require = UserDefaults::standardUserDefaults().objectForKey(
            QStringLiteral("requireAdminPassword"));
        if (require.isNumber() && require.numberEquals(1)) {
            m_preferences->setAdminPassState(true);
            if (!VTAuthorization::sharedController().authStart()) {
                terminate();
                return false;
            }
        }
        m_controller->populateScheduledTasks();
        show();
        raise();
        activateWindow();
        m_controller->startDiscoveryThread();
        connect(m_ui->tableView, &QAbstractItemView::doubleClicked, this, &MainWindow::editTask);
        // The sheet starts in the layout of the first schedule type.
        m_sheet->selectFirstScheduleType();
        return true;
    });
}

void MainWindow::applicationDidFinishLaunching()
{
    VTException::guard(VT_METHOD, [&] {
        // The maker's applications share this switch; the application's own defaults do
        // not decide it.
        PlistDict global;
        if (const auto prefs = VTLocalPaths::prefsDirectory(true)) {
            global =
                PropertyList::readDictionary(*prefs + QStringLiteral("/com.vantreel.global.plist"))
                    .value_or(PlistDict());
        }
        const PlistValue *check = global.find(QStringLiteral("SUCheckAtStartup"));
        if (check && check->isNumber() && check->numberEquals(0)) {
            return;
        }
        const auto updater = Workspace::absolutePathForAppBundleWithIdentifier(kSoftwareUpdate);
        if (!updater || !Bundle::atPath(*updater)) {
            return;
        }
        const auto main = Bundle::mainBundle();
        const QString ownPath = main ? main->bundlePath() : QCoreApplication::applicationFilePath();
        Workspace::launchApplication(*updater, {QStringLiteral("-checkpath"), ownPath});
    });
}

void MainWindow::applicationWillTerminate()
{
    VTBugReporter::stopBugReporter();
}

void MainWindow::terminate()
{
    m_terminated = true;
    applicationWillTerminate();
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}

void MainWindow::applySortingForTableView()
{
    VTException::guard(VT_METHOD, [&] {
        UserDefaults &defaults = UserDefaults::standardUserDefaults();
        const bool descending = defaults.boolForKey(kSortedDescending);
        const QString column =
            defaults.stringForKey(kSortedColumn).value_or(TaskTableModel::columnIdentifier(1));
        sortColumnWithIdentifier(column, descending);
        // Every load of the list asks systemd again.
        m_jobStatus->refresh();
    });
}

void MainWindow::jobStatusUpdated()
{
    VTException::guard(VT_METHOD, [&] {
        m_model->statusChanged();
        UserDefaults &defaults = UserDefaults::standardUserDefaults();
        const std::optional<QString> column = defaults.stringForKey(kSortedColumn);
        if (column && TaskTableModel::isStatusColumn(*column)) {
            sortColumnWithIdentifier(*column, defaults.boolForKey(kSortedDescending));
        }
    });
}

void MainWindow::sortColumnWithIdentifier(const QString &identifier, bool descending)
{
    VTException::guard(VT_METHOD, [&] {
        using Compare = int (VTScheduledTask::*)(const VTScheduledTask &) const;
        Compare compare = &VTScheduledTask::frequencyCompare;
        if (identifier == QLatin1String("colTask")) {
            compare = &VTScheduledTask::descriptionCompare;
        } else if (identifier == QLatin1String("colEnabled")) {
            compare = &VTScheduledTask::enabledCompare;
        }
        const bool status = TaskTableModel::isStatusColumn(identifier);
        AppController::TaskList tasks = m_controller->dataArray();
        std::stable_sort(tasks.begin(), tasks.end(),
                         [&](const VTScheduledTask::Ptr &a, const VTScheduledTask::Ptr &b) {
                             return (status ? m_model->statusCompare(identifier, *a, *b)
                                            : ((*a).*compare)(*b)) < 0;
                         });
        // Descending is the exact reverse of ascending, ties included.
        if (descending) {
            tasks = reverseArray(tasks);
        }
        const int column = TaskTableModel::columnWithIdentifier(identifier);
        if (column >= 0) {
            setSortIndicatorsForColumn(column, descending);
        }
        const VTScheduledTask::Ptr selected = m_model->taskAt(selectedTaskRow());
        m_controller->setDataArray(tasks);
        m_model->reloadData();
        // The selected task stays selected wherever it moved.
        if (selected) {
            const auto found = std::find(tasks.begin(), tasks.end(), selected);
            if (found != tasks.end()) {
                m_ui->tableView->selectRow(static_cast<int>(found - tasks.begin()));
            }
        }
    });
}

void MainWindow::setSortIndicatorsForColumn(int column, bool descending)
{
    VTException::guard(VT_METHOD, [&] {
        setIndicatorImage(descending ? kDescendingIndicator : kAscendingIndicator, column);
    });
}

void MainWindow::setIndicatorImage(const QString &imageName, int column)
{
    const QString identifier = TaskTableModel::columnIdentifier(column);
    if (identifier.isEmpty()) {
        return;
    }
    QHeaderView *header = m_ui->tableView->horizontalHeader();
    if (imageName.isEmpty()) {
        m_indicatorImages.remove(identifier);
        if (header->sortIndicatorSection() == column) {
            header->setSortIndicator(-1, Qt::AscendingOrder);
        }
        return;
    }
    m_indicatorImages.insert(identifier, imageName);
    header->setSortIndicator(column, headerOrderForIndicator(imageName));
}

AppController::TaskList MainWindow::reverseArray(const AppController::TaskList &tasks)
{
    AppController::TaskList reversed;
    reversed.reserve(tasks.size());
    std::copy(tasks.rbegin(), tasks.rend(), std::back_inserter(reversed));
    return reversed;
}

void MainWindow::didClickTableColumn(int column)
{
    VTException::guard(VT_METHOD, [&] {
        UserDefaults &defaults = UserDefaults::standardUserDefaults();
        bool descending = defaults.boolForKey(kSortedDescending);
        const std::optional<QString> stored = defaults.stringForKey(kSortedColumn);
        const QString identifier = TaskTableModel::columnIdentifier(column);
        if (stored && *stored == identifier) {
            descending = !descending;
        } else {
            // A first click on a column always sorts ascending.
            if (stored) {
                setIndicatorImage(QString(), TaskTableModel::columnWithIdentifier(*stored));
            }
            descending = false;
        }
        sortColumnWithIdentifier(identifier, descending);
        defaults.setObject(PlistValue(descending), kSortedDescending);
        defaults.setObject(PlistValue(identifier), kSortedColumn);
    });
}

void MainWindow::willDisplayCell(VTImageTextCell &cell, int column, int row) const
{
    VTException::guard(VT_METHOD, [&] {
        if (column != TaskTableModel::ColumnTask) {
            return;
        }
        const VTScheduledTask::Ptr task = m_model->taskAt(row);
        QImage image = task ? task->icon().value<QImage>() : QImage();
        if (image.isNull()) {
            // Without an icon the cell keeps the image it has.
            return;
        }
        // A copy drawn at 18 by 18 points; the task's own image keeps its size.
        image.setDevicePixelRatio(qreal(image.width()) / kTableIconSize);
        cell.setImage(image);
    });
}

void MainWindow::updateEnableDisableToolbar()
{
    VTException::guard(VT_METHOD, [&] {
        bool anyEnabled = false;
        bool anyNotEnabled = false;
        for (const VTScheduledTask::Ptr &task : m_controller->dataArray()) {
            if (task->enabled() == std::optional<bool>(true)) {
                anyEnabled = true;
            } else {
                anyNotEnabled = true;
            }
        }
        if (anyEnabled && !anyNotEnabled) {
            setEnableDisableAllItem(kDisableAll, kDisableAllImage);
        } else {
            setEnableDisableAllItem(kEnableAll, kAppImage);
        }
    });
}

QString MainWindow::enableDisableAllLabel() const
{
    return m_ui->toolbarEnableDisableAll->text();
}

void MainWindow::setEnableDisableAllItem(const QString &label, const QString &imageName)
{
    m_ui->toolbarEnableDisableAll->setText(label);
    m_ui->toolbarEnableDisableAll->setIcon(VTImages::imageNamed(imageName));
    m_ui->menuEnableDisableAll->setText(label);
    m_enableDisableImageName = imageName;
}

int MainWindow::selectedTaskRow() const
{
    const QModelIndexList rows = m_ui->tableView->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

std::optional<int> MainWindow::selectedClientIndex() const
{
    return m_sheet->selectedClientIndex();
}

void MainWindow::startProgress()
{
    m_sheet->startProgress();
}

void MainWindow::endProgress()
{
    m_sheet->endProgress();
}

void MainWindow::selectItem(const std::optional<VTClientApplication> &item)
{
    m_sheet->selectItem(item);
}

void MainWindow::clientApplicationsChanged()
{
    m_sheet->setClientApplications(m_controller->taskArray());
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_ui->tableView->viewport() && event->type() == QEvent::Resize) {
        m_emptyHint->setGeometry(m_ui->tableView->viewport()->rect());
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::updateEmptyHint()
{
    m_emptyHint->setGeometry(m_ui->tableView->viewport()->rect());
    m_emptyHint->setVisible(m_model->rowCount() == 0);
}

void MainWindow::updateSelectionActions()
{
    const bool selected = selectedTaskRow() >= 0;
    for (QAction *action : {m_ui->toolbarEditTask, m_ui->menuEditTask, m_ui->toolbarDeleteTask,
                            m_ui->menuDeleteTask}) {
        action->setEnabled(selected);
    }
}

void MainWindow::newTask()
{
    m_sheet->newTask();
}

void MainWindow::editTask()
{
    m_sheet->editTask();
}

void MainWindow::deleteTask()
{
    m_controller->deleteTask();
}

void MainWindow::enableDisableAll()
{
    m_controller->enableDisableAll();
}

void MainWindow::showPreferences()
{
    m_preferences->show();
    m_preferences->raise();
    m_preferences->activateWindow();
}

QString MainWindow::webHost()
{
    QString host = UserDefaults::standardUserDefaults().stringForKey(kWebHost).value_or(
        QStringLiteral("https://www.vantreel.com/"));
    if (!host.endsWith(QLatin1Char('/'))) {
        host += QLatin1Char('/');
    }
    return host;
}

void MainWindow::helpUserManual()
{
    // Wired on purpose, and on purpose it does nothing.
}

void MainWindow::helpReportBug()
{
    VTException::guard(VT_METHOD, [&] {
        QString version;
        if (const auto main = Bundle::mainBundle()) {
            version = main->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
                          .string();
        }
        Workspace::openURL(
            QUrl(webHost() + QStringLiteral("software_bugreport.htm?app=kairo_planner&version=") +
                 version));
    });
}

void MainWindow::helpSuggestFeature()
{
    VTException::guard(VT_METHOD, [&] {
        Workspace::openURL(
            QUrl(webHost() + QStringLiteral("software_featurerequest.htm?app=kairo_planner")));
    });
}

void MainWindow::helpVTHome()
{
    VTException::guard(VT_METHOD, [&] { Workspace::openURL(QUrl(webHost())); });
}

void MainWindow::menuSoftwareUpdate()
{
    VTException::guard(VT_METHOD,
                       [&] { Workspace::launchAppWithBundleIdentifier(kSoftwareUpdate); });
}

void MainWindow::showAbout()
{
    QString version = QStringLiteral(KAIRO_VERSION);
    if (const auto main = Bundle::mainBundle()) {
        const PlistValue value =
            main->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"));
        if (value.isString()) {
            version = value.string();
        }
    }
    QMessageBox::about(this, QStringLiteral("About Kairo Planner"),
                       QStringLiteral("<b>Kairo Planner</b> %1<br>Runs the maintenance tasks of "
                                      "Vantreel applications on a schedule.")
                           .arg(version.toHtmlEscaped()));
}
