#pragma once

#include "app/AppController.h"
#include "app/AppControllerView.h"

#include <QHash>
#include <QMainWindow>

#include <memory>

namespace Ui {
class MainMenu;
}
class JobStatusMonitor;
class PreferencesWindow;
class QLabel;
class QTableView;
class TaskEditorSheet;
class TaskTableModel;
class VTImageTextCell;

// The main window: the table of scheduled tasks with its toolbar and menus, the owner of
// the controller, of the editor sheet and of the preferences. It is the controller's view.
class MainWindow : public QMainWindow, public AppControllerView
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // Start-up once the interface is loaded: the optional administrator gate, the first
    // scan, the window, the discovery thread and the sheet's first layout. False when the
    // application is to end at once (the administrator authentication failed).
    bool awakeFromNib();
    // The update check at launch.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    bool terminated() const { return m_terminated; }

    AppController *controller() const { return m_controller.get(); }
    QTableView *tableView() const;
    TaskTableModel *taskModel() const { return m_model; }
    JobStatusMonitor *jobStatus() const { return m_jobStatus; }
    VTImageTextCell *taskCell() const { return m_taskCell; }
    TaskEditorSheet *taskWindow() const { return m_sheet; }
    PreferencesWindow *preferencesWindow() const { return m_preferences; }
    QAction *toolbarEnableDisableAll() const;
    QString enableDisableAllImageName() const { return m_enableDisableImageName; }
    // The sort indicator image of the column, by name; empty when it has none.
    QString indicatorImageName(const QString &identifier) const;

    // The view of the task store.
    void applySortingForTableView() override;
    void updateEnableDisableToolbar() override;
    QString enableDisableAllLabel() const override;
    void setEnableDisableAllItem(const QString &label, const QString &imageName) override;
    int selectedTaskRow() const override;
    std::optional<int> selectedClientIndex() const override;
    void startProgress() override;
    void endProgress() override;
    void selectItem(const std::optional<VTClientApplication> &item) override;
    void clientApplicationsChanged() override;

    // The table.
    void sortColumnWithIdentifier(const QString &identifier, bool descending);
    void setSortIndicatorsForColumn(int column, bool descending);
    static AppController::TaskList reverseArray(const AppController::TaskList &tasks);
    void didClickTableColumn(int column);
    void willDisplayCell(VTImageTextCell &cell, int column, int row) const;

    // Actions.
    void newTask();
    void editTask();
    void deleteTask();
    void enableDisableAll();
    void showPreferences();
    void helpUserManual();
    void helpReportBug();
    void helpSuggestFeature();
    void helpVTHome();
    void menuSoftwareUpdate();
    void showAbout();

    // The maker's web site, from the "VTWebHost" default.
    static QString webHost();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void updateEmptyHint();
    void setIndicatorImage(const QString &imageName, int column);
    void jobStatusUpdated();
    void updateSelectionActions();
    void terminate();

    std::unique_ptr<AppController> m_controller;
    std::unique_ptr<Ui::MainMenu> m_ui;
    TaskTableModel *m_model = nullptr;
    JobStatusMonitor *m_jobStatus = nullptr;
    VTImageTextCell *m_taskCell = nullptr;
    TaskEditorSheet *m_sheet = nullptr;
    PreferencesWindow *m_preferences = nullptr;
    QLabel *m_emptyHint = nullptr;
    QString m_enableDisableImageName;
    QHash<QString, QString> m_indicatorImages;
    bool m_terminated = false;
};
