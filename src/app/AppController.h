#pragma once

#include "AppControllerView.h"
#include "VTClientApplication.h"
#include "platform/PlistDict.h"
#include "tasks/VTScheduledTask.h"

#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

struct VTDiscoveryState;

// The application's controller: the store of scheduled tasks found in the job folders,
// the installed client applications, and the operations on them. The windowed application
// gives it a view; the headless command line makes it without one.
class AppController
{
public:
    using TaskList = std::vector<VTScheduledTask::Ptr>;
    using ClientList = std::vector<VTClientApplication>;

    // The windowed mode: starts the crash reporter and the log, registers the defaults.
    static std::unique_ptr<AppController> init(AppControllerView *view);
    // The headless mode: crash reporter with the preferences file, the log
    // "Kairo Planner.task", and privileged operations that never show a dialog.
    static std::unique_ptr<AppController> initWithoutGUI();
    ~AppController();

    bool hasGUI() const { return m_hasGUI; }
    bool editMode() const { return m_editMode; }
    void setEditMode(bool editing) { m_editMode = editing; }
    AppControllerView *view() const { return m_view; }

    // The task store.
    void populateScheduledTasks();
    void populateScheduledTasks(bool userOnly);
    TaskList dataArray() const;
    void setDataArray(const TaskList &tasks);
    PlistDict dictionaryOfTasks() const;
    void enableDisableAll();
    void deleteTask();

    // The client applications.
    ClientList taskArray() const;
    void setTaskArray(const ClientList &clients);
    std::optional<VTClientApplication> taskApplicationForBundleID(const QString &bundleID) const;
    std::optional<QStringList> taskArgumentsForDescription(const QString &description) const;

    // Discovery of the installed client applications. The walk runs once per windowed launch
    // on its own thread; the view hears of it only on the main thread, which the thread
    // waits for.
    void startDiscoveryThread();
    void populateVTApps();
    bool isDiscovering() const;
    // Every client application at any depth below the folder, in walk order; none after a
    // listing error or a link that loops back into the Applications folder.
    std::optional<ClientList> appsForFolder(const QString &folder) const;
    static bool isFileBlacklisted(const QString &path);
    // Installs the list and selects its first application (or none); main thread only.
    void setupApps(const std::optional<ClientList> &apps);
    std::optional<VTClientApplication> VTAppItemWithBundleID(const QString &bundleID) const;

    // The job file names that belong to the store.
    static bool isJobFileName(const QString &name);
    // The main bundle's version, as the upgrade rewrite compares it.
    static QString bundleVersion();

private:
    AppController(AppControllerView *view, bool gui);
    std::optional<TaskList> scanFolder(const QString &folder, bool root) const;
    void rewriteAfterUpgrade();
    // One folder of the walk: false for a looping link or a listing error.
    bool appendAppsInFolder(const QByteArray &folder, bool isLink, const QString &applications,
                            ClientList &apps) const;
    void appendApplication(const QByteArray &bundle, ClientList &apps) const;
    // Runs on the main thread and waits for it; gives up when the controller is going away.
    void performOnMainThread(const std::function<void()> &work);

    AppControllerView *m_view = nullptr;
    bool m_hasGUI = false;
    bool m_editMode = false;
    mutable std::mutex m_mutex;
    TaskList m_dataArray;
    ClientList m_taskArray;
    std::shared_ptr<VTDiscoveryState> m_discovery;
    std::thread m_discoveryThread;
};
