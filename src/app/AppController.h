#pragma once

#include "AppControllerView.h"
#include "VTClientApplication.h"
#include "platform/PlistDict.h"
#include "tasks/VTScheduledTask.h"

#include <QString>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

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

    // The job file names that belong to the store.
    static bool isJobFileName(const QString &name);
    // The main bundle's version, as the upgrade rewrite compares it.
    static QString bundleVersion();

private:
    AppController(AppControllerView *view, bool gui);
    std::optional<TaskList> scanFolder(const QString &folder, bool root) const;
    void rewriteAfterUpgrade();

    AppControllerView *m_view = nullptr;
    bool m_hasGUI = false;
    bool m_editMode = false;
    mutable std::mutex m_mutex;
    TaskList m_dataArray;
    ClientList m_taskArray;
};
