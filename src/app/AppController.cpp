#include "AppController.h"

#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/LookupSnapshot.h"
#include "platform/PathString.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "platform/Trash.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "support/VTAlert.h"
#include "support/VTAuthorization.h"
#include "support/VTBugReporter.h"
#include "support/VTException.h"
#include "support/VTFormat.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "support/VTTask.h"
#include "support/VTTaskNotification.h"
#include "support/VTToolPaths.h"
#include "tasks/JobWriteAhead.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <algorithm>
#include <condition_variable>
#include <utility>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

const QString kLastRunVersion = QStringLiteral("lastRunVersion");
const QString kDisableAll = QStringLiteral("Disable All Tasks");

// A missing folder is created; false when that fails.
// Reasons a scan ends before it reads anything go to the console and the log: without them
// an empty list, or a task "not found", would look like the truth.
void scanEnded(const QString &reason)
{
    const QString message = reason + QStringLiteral("; scheduled tasks were not read");
    Console::log(message);
    VTLog::appendLog(QStringLiteral("%@"), message);
}

bool ensureFolder(const QString &folder)
{
    if (FileNames::isDirectory(folder) || PosixFile::makeFolders(folder)) {
        return true;
    }
    scanEnded(VTFormat::string(QStringLiteral("Unable to create folder %@"), folder));
    return false;
}

const QLatin1String kMakerPrefix("com.vantreel");

// The folder names that cannot hold client applications, tested in this order on the
// lower-cased name. Kept as the maker wrote them: "cocumentation", the repeated
// "font book.app" and "quickTime player.app", which no lower-cased name can equal.
bool blacklistedName(const QString &name)
{
    static const QStringList kFirstNames = {QStringLiteral("application backups"),
                                            QStringLiteral("mamp"),
                                            QStringLiteral("help"),
                                            QStringLiteral("docs"),
                                            QStringLiteral("cocumentation"),
                                            QStringLiteral("html")};
    static const QStringList kVendors = {QStringLiteral("adobe"), QStringLiteral("apple"),
                                         QStringLiteral("microsoft"), QStringLiteral("avid")};
    static const QStringList kSecondNames = {
        QStringLiteral("address book.app"), QStringLiteral("adium.app"),
        QStringLiteral("automator.app"),    QStringLiteral("batch monitor.app"),
        QStringLiteral("blender"),          QStringLiteral("calculator.app"),
        QStringLiteral("cinema tools.app"), QStringLiteral("color.app"),
        QStringLiteral("compressor.app"),   QStringLiteral("cyberduck.app"),
        QStringLiteral("damnvid.app"),      QStringLiteral("dashboard.app"),
        QStringLiteral("dictionary.app")};
    static const QStringList kThirdNames = {QStringLiteral("doc"), QStringLiteral("dvd player.app"),
                                            QStringLiteral("dvd studio pro.app"),
                                            QStringLiteral("ffmpegx.app")};
    static const QStringList kFourthNames = {
        QStringLiteral("final cut pro.app"),
        QStringLiteral("final cut pro additional easy setups.localized"),
        QStringLiteral("firefox.app"),
        QStringLiteral("flip4mac"),
        QStringLiteral("font book.app"),
        QStringLiteral("front row.app"),
        QStringLiteral("google chrome.app"),
        QStringLiteral("hewlett-packard"),
        QStringLiteral("ical.app"),
        QStringLiteral("ichat.app"),
        QStringLiteral("image capture.app"),
        QStringLiteral("isync.app"),
        QStringLiteral("itunes.app"),
        QStringLiteral("lib"),
        QStringLiteral("license"),
        QStringLiteral("livetype.app"),
        QStringLiteral("logic node.app"),
        QStringLiteral("logic pro.app"),
        QStringLiteral("font book.app"),
        QStringLiteral("mail.app"),
        QStringLiteral("mainstage.app"),
        QStringLiteral("font book.app"),
        QStringLiteral("motion.app"),
        QStringLiteral("mpeg streamclip.app"),
        QStringLiteral("onyx.app"),
        QStringLiteral("pacifist"),
        QStringLiteral("font book.app"),
        QStringLiteral("photo booth.app"),
        QStringLiteral("preview.app"),
        QStringLiteral("quickTime player.app"),
        QStringLiteral("safari.app"),
        QStringLiteral("soundtrack pro.app"),
        QStringLiteral("vlc.app"),
        QStringLiteral("tutorial")};

    if (name.startsWith(QLatin1Char('.')) || kFirstNames.contains(name)) {
        return true;
    }
    for (const QString &vendor : kVendors) {
        if (name.contains(vendor)) {
            return true;
        }
    }
    return kSecondNames.contains(name) || name.contains(QLatin1String("divx")) ||
           kThirdNames.contains(name) || name.contains(QLatin1String("filemaker")) ||
           kFourthNames.contains(name) || name.startsWith(QLatin1String("wacom"));
}

bool isPackageExtension(const QString &lowerExtension)
{
    return lowerExtension == QLatin1String("app") || lowerExtension == QLatin1String("bundle") ||
           lowerExtension == QLatin1String("framework") ||
           lowerExtension == QLatin1String("plugin") || lowerExtension == QLatin1String("kext");
}

// Where a symbolic link points, made absolute against the link's own folder, so that a
// relative link back into the tree is recognised as well as an absolute one.
QString linkDestination(const QByteArray &link)
{
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink(link.constData(), buffer, sizeof(buffer) - 1);
    if (length <= 0) {
        return QString();
    }
    const QString target = FileNames::decode(QByteArray(buffer, static_cast<int>(length)));
    if (target.startsWith(QLatin1Char('/'))) {
        return QDir::cleanPath(target);
    }
    return QDir::cleanPath(QFileInfo(FileNames::decode(link)).absolutePath() + QLatin1Char('/') +
                           target);
}

struct FolderEntry
{
    QByteArray name;
    unsigned char type = DT_UNKNOWN;
};

} // namespace

// The discovery thread's link to the controller: the thread waits here for its main-thread
// calls, and the controller, going away, tells it to stop instead.
struct VTDiscoveryState
{
    std::mutex mutex;
    std::condition_variable finished;
    bool stopping = false;
    bool running = false;
};

AppControllerView::~AppControllerView() = default;

AppController::AppController(AppControllerView *view, bool gui)
    : m_view(view), m_hasGUI(gui), m_discovery(std::make_shared<VTDiscoveryState>())
{}

AppController::~AppController()
{
    // The walk never outlives the controller it reports to.
    {
        std::lock_guard<std::mutex> lock(m_discovery->mutex);
        m_discovery->stopping = true;
    }
    m_discovery->finished.notify_all();
    if (m_discoveryThread.joinable()) {
        m_discoveryThread.join();
    }
}

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
    const QStringList names = FileNames::entryList(folder);
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
            scanEnded(QStringLiteral("No library folder for the user at the console"));
            return;
        }
        const QString agents = *userLibrary + QStringLiteral("/LaunchAgents");
        const QString daemons = *localLibrary + QStringLiteral("/LaunchDaemons");
        if (!ensureFolder(agents) || !ensureFolder(daemons)) {
            return;
        }
        // What killed writers left beside the job files (the system folder only where
        // this process may write it).
        for (const QString &folder : {agents, daemons}) {
            PropertyList::removeStaleTemporaries(folder, QStringLiteral("com.vantreel."));
        }
        TaskList tasks;
        {
            // One look at each application and catalogue for the whole scan.
            const LookupSnapshot snapshot;
            tasks = *scanFolder(agents, false);
            if (!userOnly) {
                TaskList rootTasks = *scanFolder(daemons, true);
                tasks.insert(tasks.end(), rootTasks.begin(), rootTasks.end());
            }
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
    // written again in the current format and reloaded. The version is recorded first: one
    // that cannot be recorded would have every later run rewrite every job again.
    if (!defaults.setObject(PlistValue(version), kLastRunVersion)) {
        const QString message = VTFormat::string(
            QStringLiteral("Unable to record version %@ in %@; job files are not rewritten"),
            version, defaults.userFile());
        Console::log(message);
        VTLog::appendLog(QStringLiteral("%@"), message);
        return;
    }
    const LookupSnapshot snapshot;
    JobWriteAhead::saveInTurn(
        dataArray(), [](VTScheduledTask &) {},
        [](VTScheduledTask &task) { return task.saveData(false); }, false);
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
        const LookupSnapshot snapshot;
        // A failed save is reported by the writer and does not stop the others.
        JobWriteAhead::saveInTurn(
            dataArray(), [disable](VTScheduledTask &task) { task.setEnabled(!disable); },
            [](VTScheduledTask &task) { return task.saveData(); }, false);
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
        if (!FileNames::exists(filename)) {
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

std::optional<VTClientApplication>
AppController::VTAppItemWithBundleID(const QString &bundleID) const
{
    return taskApplicationForBundleID(bundleID);
}

void AppController::startDiscoveryThread()
{
    VTException::guard(VT_METHOD, [&] {
        if (m_discoveryThread.joinable()) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(m_discovery->mutex);
            m_discovery->running = true;
        }
        try {
            m_discoveryThread = std::thread([this] { populateVTApps(); });
        } catch (...) {
            std::lock_guard<std::mutex> lock(m_discovery->mutex);
            m_discovery->running = false;
            throw;
        }
    });
}

bool AppController::isDiscovering() const
{
    std::lock_guard<std::mutex> lock(m_discovery->mutex);
    return m_discovery->running;
}

void AppController::performOnMainThread(const std::function<void()> &work)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        work();
        return;
    }
    const std::shared_ptr<VTDiscoveryState> state = m_discovery;
    auto done = std::make_shared<bool>(false);
    QMetaObject::invokeMethod(
        app,
        [state, done, work] {
            // Runs on the main thread, as the controller's destructor does: when it has not
            // begun to stop yet, the controller is still whole.
            {
                std::lock_guard<std::mutex> lock(state->mutex);
                if (state->stopping) {
                    return;
                }
            }
            work();
            {
                std::lock_guard<std::mutex> lock(state->mutex);
                *done = true;
            }
            state->finished.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock<std::mutex> lock(state->mutex);
    state->finished.wait(lock, [&] { return *done || state->stopping; });
}

void AppController::populateVTApps()
{
    VTException::guard(VT_METHOD, [&] {
        performOnMainThread([this] {
            if (m_view) {
                m_view->startProgress();
            }
        });
        std::optional<ClientList> apps;
        if (const auto applications = VTLocalPaths::applicationDirectory(false)) {
            apps = appsForFolder(*applications);
        }
        performOnMainThread([this, &apps] { setupApps(apps); });
        performOnMainThread([this] {
            if (m_view) {
                m_view->endProgress();
            }
        });
    });
    std::lock_guard<std::mutex> lock(m_discovery->mutex);
    m_discovery->running = false;
}

std::optional<AppController::ClientList> AppController::appsForFolder(const QString &folder) const
{
    return VTException::guard(
        VT_METHOD, std::optional<ClientList>(), [&]() -> std::optional<ClientList> {
            const QString applications =
                VTLocalPaths::applicationDirectory(false).value_or(QString());
            const QByteArray native = FileNames::encode(folder);
            struct stat st
            {};
            const bool isLink = ::lstat(native.constData(), &st) == 0 && S_ISLNK(st.st_mode);
            ClientList apps;
            if (!appendAppsInFolder(native, isLink, applications, apps)) {
                return std::nullopt;
            }
            return apps;
        });
}

bool AppController::appendAppsInFolder(const QByteArray &folder, bool isLink,
                                       const QString &applications, ClientList &apps) const
{
    if (isLink && !applications.isEmpty() && linkDestination(folder).startsWith(applications)) {
        VTLog::appendLog(QStringLiteral("Warning: Symbolic link links back to itself."));
        return false;
    }

    DIR *dir = ::opendir(folder.constData());
    if (!dir) {
        const QString path = FileNames::decode(folder);
        const QString reason = QString::fromLocal8Bit(std::strerror(errno));
        VTTaskNotification::postTaskErrorString(VTFormat::string(
            QStringLiteral("Kairo Planner: Unable to get contents of directory %@ - %@"), path,
            reason));
        VTLog::appendLog(QStringLiteral("Unable to get contents of directory %@ - %@"), path,
                         reason);
        return false;
    }
    std::vector<FolderEntry> entries;
    while (const dirent *entry = ::readdir(dir)) {
        const char *name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) {
            continue;
        }
        entries.push_back({QByteArray(name), entry->d_type});
    }
    ::closedir(dir);
    // Sorted, so the grid lists the applications in the same order on every machine.
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry &a, const FolderEntry &b) { return a.name < b.name; });

    for (const FolderEntry &entry : entries) {
        {
            std::lock_guard<std::mutex> lock(m_discovery->mutex);
            if (m_discovery->stopping) {
                return true;
            }
        }
        const QByteArray path = folder + '/' + entry.name;
        bool entryIsLink = entry.type == DT_LNK;
        bool isDirectory = entry.type == DT_DIR;
        if (entry.type == DT_LNK || entry.type == DT_UNKNOWN) {
            struct stat st
            {};
            isDirectory = ::stat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode);
            if (entry.type == DT_UNKNOWN && ::lstat(path.constData(), &st) == 0) {
                entryIsLink = S_ISLNK(st.st_mode);
            }
        }
        if (!isDirectory) {
            continue;
        }
        const QString name = FileNames::decode(entry.name);
        const QString extension = PathString::pathExtension(name).toLower();
        if (!isPackageExtension(extension)) {
            if (extension.isEmpty() && !isFileBlacklisted(name)) {
                // A branch that fails adds nothing and the walk goes on.
                VTException::guard(VT_METHOD, [&] {
                    ClientList found;
                    if (appendAppsInFolder(path, entryIsLink, applications, found)) {
                        std::move(found.begin(), found.end(), std::back_inserter(apps));
                    }
                });
            }
            continue;
        }
        if (extension == QLatin1String("app")) {
            VTException::guard(VT_METHOD, [&] { appendApplication(path, apps); });
        }
    }
    return true;
}

void AppController::appendApplication(const QByteArray &bundle, ClientList &apps) const
{
    const QByteArray catalogue = bundle + "/Contents/VTTasks.plist";
    if (::access(catalogue.constData(), F_OK) != 0) {
        return;
    }
    const QString path = FileNames::decode(bundle);
    const std::optional<PlistDict> tasks =
        PropertyList::readDictionary(FileNames::decode(catalogue));
    if (!tasks) {
        return;
    }
    const std::optional<Bundle> app = Bundle::atPath(path);
    if (!app) {
        return;
    }
    const QString identifier = app->bundleIdentifier().value_or(QString());
    if (!identifier.startsWith(kMakerPrefix)) {
        return;
    }
    const PlistValue list = tasks->value(QStringLiteral("VTTasks"));
    const bool hasElements = (list.isArray() && !list.array().empty()) ||
                             (list.isDictionary() && !list.dict().isEmpty());
    if (!hasElements) {
        return;
    }
    VTClientApplication client;
    client.name = app->objectForInfoDictionaryKey(QStringLiteral("CFBundleName")).string();
    client.bundleid = identifier;
    client.icon = Workspace::iconForFile(path, QSize(48, 48));
    client.tasks = list;
    apps.push_back(std::move(client));
}

bool AppController::isFileBlacklisted(const QString &path)
{
    return VTException::guard(VT_METHOD, false, [&] {
        return blacklistedName(PathString::lastPathComponent(path).toLower());
    });
}

void AppController::setupApps(const std::optional<ClientList> &apps)
{
    VTException::guard(VT_METHOD, [&] {
        setTaskArray(apps.value_or(ClientList()));
        if (!m_view) {
            return;
        }
        m_view->clientApplicationsChanged();
        const ClientList clients = taskArray();
        m_view->selectItem(clients.empty() ? std::nullopt
                                           : std::optional<VTClientApplication>(clients.front()));
    });
}
