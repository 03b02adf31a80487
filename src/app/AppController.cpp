#include "AppController.h"

#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/PathString.h"
#include "platform/Trash.h"
#include "platform/UserDefaults.h"
#include "support/VTAlert.h"
#include "support/VTAuthorization.h"
#include "support/VTBugReporter.h"
#include "support/VTException.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "support/VTTask.h"
#include "support/VTToolPaths.h"

#include <QDir>
#include <QFileInfo>

namespace {

using namespace std::chrono_literals;

const QString kLastRunVersion = QStringLiteral("lastRunVersion");
const QString kDisableAll = QStringLiteral("Disable All Tasks");

// A missing folder is created; false when that fails.
bool ensureFolder(const QString &folder)
{
    return QFileInfo(folder).isDir() || QDir().mkpath(folder);
}

} // namespace

AppControllerView::~AppControllerView() = default;

AppController::AppController(AppControllerView *view, bool gui) : m_view(view), m_hasGUI(gui) {}

AppController::~AppController() = default;

std::unique_ptr<AppController> AppController::init(AppControllerView *view)
{
    VTBugReporter::startBugReporter();
    VTLog::createNewLog();
    PlistDict defaults;
    defaults.insert(QStringLiteral("SUCheckAtStartup"), true);
    UserDefaults::standardUserDefaults().registerDefaults(defaults);
    return std::unique_ptr<AppController>(new AppController(view, true));
}

std::unique_ptr<AppController> AppController::initWithoutGUI()
{
    const auto prefs = VTLocalPaths::prefsDirectory(true);
    const std::optional<QString> plist =
        prefs ? std::optional<QString>(*prefs + QStringLiteral("/com.vantreel.KairoPlanner.plist"))
              : std::nullopt;
    VTBugReporter::startBugReporter(QStringLiteral("Kairo Planner"), plist);
    VTLog::createNewLog(QStringLiteral("Kairo Planner.task"));
    // Created now, before anything could create it with a window: no privileged
    // operation of this process may ever show a dialog.
    VTAuthorization::sharedController(false);
    return std::unique_ptr<AppController>(new AppController(nullptr, false));
}

bool AppController::isJobFileName(const QString &name)
{
    // As the predicate reads it, AND binding tighter than OR: any name that begins with the
    // user prefix, or a root name ending in ".plist"; case is ignored throughout.
    return name.startsWith(QLatin1String("com.vantreel.ScheduledTask"), Qt::CaseInsensitive) ||
           (name.startsWith(QLatin1String("com.vantreel.RootScheduledTask"), Qt::CaseInsensitive) &&
            name.endsWith(QLatin1String(".plist"), Qt::CaseInsensitive));
}

QString AppController::bundleVersion()
{
    if (auto main = Bundle::mainBundle()) {
        const PlistValue version =
            main->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"));
        if (version.isString()) {
            return version.string();
        }
    }
    return QStringLiteral(KAIRO_VERSION);
}

void AppController::populateScheduledTasks()
{
    populateScheduledTasks(false);
}

std::optional<AppController::TaskList> AppController::scanFolder(const QString &folder,
                                                                 bool root) const
{
    TaskList tasks;
    const QStringList names = QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        if (!isJobFileName(name)) {
            continue;
        }
        // Invalid jobs explain themselves; here they are only skipped.
        VTScheduledTask::Ptr task =
            VTScheduledTask::taskWithFilename(folder + QLatin1Char('/') + name);
        if (task) {
            task->setRoot(root);
            tasks.push_back(std::move(task));
        }
    }
    return tasks;
}

void AppController::populateScheduledTasks(bool userOnly)
{
    VTException::guard(VT_METHOD, [&] {
        const auto userLibrary = VTLocalPaths::libraryDirectory(true);
        const auto localLibrary = VTLocalPaths::libraryDirectory(false);
        if (!userLibrary || !localLibrary) {
            return;
        }
        const QString agents = *userLibrary + QStringLiteral("/LaunchAgents");
        const QString daemons = *localLibrary + QStringLiteral("/LaunchDaemons");
        if (!ensureFolder(agents) || !ensureFolder(daemons)) {
            return;
        }
        TaskList tasks = *scanFolder(agents, false);
        if (!userOnly) {
            TaskList rootTasks = *scanFolder(daemons, true);
            tasks.insert(tasks.end(), rootTasks.begin(), rootTasks.end());
        }
        setDataArray(tasks);
        if (m_hasGUI && m_view) {
            m_view->applySortingForTableView();
            m_view->updateEnableDisableToolbar();
        }
        rewriteAfterUpgrade();
    });
}

void AppController::rewriteAfterUpgrade()
{
    UserDefaults &defaults = UserDefaults::standardUserDefaults();
    const QString version = bundleVersion();
    const auto last = defaults.stringForKey(kLastRunVersion);
    if (last && *last == version) {
        return;
    }
    // Once per new version: every job file that can be written without a password is
    // written again in the current format and reloaded.
    for (const VTScheduledTask::Ptr &task : dataArray()) {
        task->saveData(false);
    }
    defaults.setObject(PlistValue(version), kLastRunVersion);
}

AppController::TaskList AppController::dataArray() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dataArray;
}

void AppController::setDataArray(const TaskList &tasks)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_dataArray = tasks;
}

PlistDict AppController::dictionaryOfTasks() const
{
    return VTException::guard(VT_METHOD, PlistDict(), [&] {
        PlistDict out;
        const TaskList tasks = dataArray();
        out.reserve(static_cast<int>(tasks.size()));
        for (const VTScheduledTask::Ptr &task : tasks) {
            out.insert(task->filename().value_or(QString()),
                       PlistValue(task->descriptionDictionary()));
        }
        return out;
    });
}

void AppController::enableDisableAll()
{
    VTException::guard(VT_METHOD, [&] {
        if (!m_view) {
            return;
        }
        const bool disable = m_view->enableDisableAllLabel() == kDisableAll;
        for (const VTScheduledTask::Ptr &task : dataArray()) {
            task->setEnabled(!disable);
            // A failed save is reported by the writer and does not stop the others.
            task->saveData();
        }
        if (disable) {
            m_view->setEnableDisableAllItem(QStringLiteral("Enable All Tasks"),
                                            QStringLiteral("KairoPlanner.icns"));
        } else {
            m_view->setEnableDisableAllItem(kDisableAll, QStringLiteral("disableall.png"));
        }
        m_view->applySortingForTableView();
    });
}

void AppController::deleteTask()
{
    VTException::guard(VT_METHOD, [&] {
        if (!m_view) {
            return;
        }
        const int row = m_view->selectedTaskRow();
        const TaskList tasks = dataArray();
        if (row < 0 || row >= static_cast<int>(tasks.size())) {
            return;
        }
        VTAlertRequest question;
        question.messageText = QStringLiteral("Are you sure you wish to delete this task?");
        question.informativeText = QStringLiteral("This cannot be undone.");
        question.defaultButton = QStringLiteral("Delete");
        question.alternateButton = QStringLiteral("Cancel");
        if (VTAlert::runModal(question) != VTAlert::DefaultReturn) {
            return;
        }
        const VTScheduledTask::Ptr task = tasks[static_cast<size_t>(row)];
        const QString filename = task->filename().value_or(QString());
        if (!QFileInfo::exists(filename)) {
            return;
        }
        const QString launchctl = VTToolPaths::launchctl();
        if (task->root().value_or(false)) {
            // The waits let the privileged tool finish before the file moves and the folder
            // is read again.
            VTAuthorization &auth = VTAuthorization::sharedController();
            auth.authExecTask(launchctl, {QStringLiteral("unload"), filename});
            Clock::current().sleepFor(1s);
            auth.authTrashFile(filename);
            Clock::current().sleepFor(1s);
        } else {
            VTTask::runTask(launchctl, {QStringLiteral("unload"), filename});
            if (const auto trash = VTLocalPaths::trashDirectory()) {
                Trash::moveToTrash(filename, *trash);
            }
        }
        populateScheduledTasks();
    });
}

AppController::ClientList AppController::taskArray() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_taskArray;
}

void AppController::setTaskArray(const ClientList &clients)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_taskArray = clients;
}

std::optional<VTClientApplication>
AppController::taskApplicationForBundleID(const QString &bundleID) const
{
    return VTException::guard(VT_METHOD, std::optional<VTClientApplication>(), [&] {
        for (const VTClientApplication &client : taskArray()) {
            if (client.bundleid == bundleID) {
                return std::optional<VTClientApplication>(client);
            }
        }
        return std::optional<VTClientApplication>();
    });
}

std::optional<QStringList>
AppController::taskArgumentsForDescription(const QString &description) const
{
    return VTException::guard(
        VT_METHOD, std::optional<QStringList>(), [&]() -> std::optional<QStringList> {
            if (!m_view) {
                return std::nullopt;
            }
            const auto index = m_view->selectedClientIndex();
            const ClientList clients = taskArray();
            if (!index || *index < 0 || *index >= static_cast<int>(clients.size())) {
                return std::nullopt;
            }
            for (const PlistValue &entry : clients[static_cast<size_t>(*index)].tasks.array()) {
                if (entry.dict().value(QStringLiteral("description")).string() == description &&
                    entry.dict().contains(QStringLiteral("description"))) {
                    const PlistValue command = entry.dict().value(QStringLiteral("command"));
                    if (!command.isArray()) {
                        return std::nullopt;
                    }
                    return command.stringList();
                }
            }
            return std::nullopt;
        });
}
