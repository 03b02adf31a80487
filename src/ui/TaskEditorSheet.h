#pragma once

#include "app/AppController.h"

#include <QDialog>

#include <memory>
#include <optional>
#include <vector>

namespace Ui {
class TaskWindow;
}
class AppControllerView;
class ClientGridModel;
class QLineEdit;
class QPropertyAnimation;

// The editor sheet, shown window-modal on the main window: the grid of client
// applications, the chosen application's tasks, the schedule and its interval fields. It
// grows and shrinks from its top edge as its boxes appear and disappear.
class TaskEditorSheet : public QDialog
{
    Q_OBJECT

public:
    TaskEditorSheet(AppController *controller, AppControllerView *view, QWidget *mainWindow);
    ~TaskEditorSheet() override;

    void newTask();
    void editTask();
    void cancelNewTask();
    void selectItem(const std::optional<VTClientApplication> &item);
    void taskScheduleChanged();
    void controlTextDidChange(QLineEdit *field);
    void taskBrowseDirectory();
    void addTask();

    // Selects the first schedule type and lays the sheet out for it.
    void selectFirstScheduleType();
    // The grid's selection changed.
    void selectionIndexesChanged();
    // The discovered applications become the grid's content.
    void setClientApplications(const AppController::ClientList &clients);
    std::optional<int> selectedClientIndex() const;
    void startProgress();
    void endProgress();
    // The represented object (the catalogue entry) of a task pop-up item.
    std::optional<PlistDict> representedObject(int item) const;

    // Where the Browse panel opens.
    QString browseStartFolder() const;

    // Tests set 0, so that every frame change is complete when the call returns.
    static void setAnimationDuration(int milliseconds);
    static int animationDuration();

    // The limits applied while an interval field is typed in: the replacement text for a
    // given field text, or none when it is within range.
    static std::optional<QString> clampedIntervalText(const QString &key, const QString &text);

protected:
    void reject() override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Makes room for a font larger than the interface file's sizes allow for.
    void fitToFont();
    // Places the top-level parts: the grid at the top, the task box below it at its own
    // height, the buttons at the bottom.
    void layoutSheet();
    // A frame change of the whole sheet, animated when it is on screen.
    void setWindowFrame(const QRect &frame);
    void finishAnimation();
    // Each grid tile shows whether it is selected and whether it has the keyboard focus.
    void updateGridHighlight();
    // The height the shown parts need: the grid, the task box when shown, the buttons.
    int neededHeight() const;
    void updateMinimumHeight();
    void resizeTaskBox(int heightChange);
    void updateIntervalPlace();
    // The grid, or a line saying that applications are being looked for or none was found.
    void updateGridHint();
    void openSheet();
    void showAlert(const QString &message);

    std::unique_ptr<Ui::TaskWindow> m_ui;
    AppController *m_controller;
    AppControllerView *m_view;
    QWidget *m_mainWindow;
    ClientGridModel *m_clients;
    std::vector<PlistDict> m_taskItems;
    QPropertyAnimation *m_animation;
    bool m_selecting = false;
    bool m_discoveryEnded = false;
    // The margins of the parts as the interface file places them.
    int m_buttonsBottom = 0;
    int m_addButtonRight = 0;
    int m_cancelButtonRight = 0;
    int m_spinnerRight = 0;
    int m_sideMargin = 0;
    int m_belowTaskBox = 0;
};
