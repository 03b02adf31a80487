#pragma once

#include "VTClientApplication.h"

#include <QString>

#include <optional>

// What the task store needs from the window. Without one (the headless mode) the store
// never touches an interface.
class AppControllerView
{
public:
    virtual ~AppControllerView();

    // Sorts the task list by the remembered column and shows it.
    virtual void applySortingForTableView() = 0;
    virtual void updateEnableDisableToolbar() = 0;
    // The toolbar item that says which of enable all or disable all comes next.
    virtual QString enableDisableAllLabel() const = 0;
    virtual void setEnableDisableAllItem(const QString &label, const QString &imageName) = 0;
    // The selected row of the task table, or -1.
    virtual int selectedTaskRow() const = 0;
    // The first selected client application of the editor's grid.
    virtual std::optional<int> selectedClientIndex() const = 0;
    virtual void startProgress() = 0;
    virtual void endProgress() = 0;
    virtual void selectItem(const std::optional<VTClientApplication> &item) = 0;
    // The client list changed (after discovery).
    virtual void clientApplicationsChanged() = 0;
};
