#pragma once

#include "app/AppController.h"

#include <QAbstractTableModel>

class AppControllerView;
class JobStatusMonitor;

// The task table's data source: one row per task of the controller's list as it was at
// the last reload, in that order, and columns known by their identifiers: the three of
// the task itself, then its next run and last result as systemd reports them.
class TaskTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column
    {
        ColumnEnabled = 0,
        ColumnTask = 1,
        ColumnFrequency = 2,
        ColumnNextRun = 3,
        ColumnLastResult = 4,
        ColumnCount = 5
    };

    TaskTableModel(AppController *controller, AppControllerView *view, QObject *parent = nullptr);

    static QString columnIdentifier(int column);
    // The column with the identifier, or -1.
    static int columnWithIdentifier(const QString &identifier);
    // What a column shows for a task: the description, whether it is enabled, or the
    // schedule in words.
    static QVariant objectValue(const VTScheduledTask &task, const QString &identifier);

    // Where the next run and last result come from; without one those columns stay empty.
    void setJobStatus(const JobStatusMonitor *status);
    static bool isStatusColumn(const QString &identifier);
    // What a status column shows for a task; empty when not known.
    QVariant statusValue(const VTScheduledTask &task, const QString &identifier) const;
    // The sort order of a status column: by time for the next run (none last), by text for
    // the last result.
    int statusCompare(const QString &identifier, const VTScheduledTask &a,
                      const VTScheduledTask &b) const;
    // The status changed: every row's status columns are drawn again.
    void statusChanged();

    // Takes the controller's list again.
    void reloadData();
    VTScheduledTask::Ptr taskAt(int row) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    // Only the checkbox is editable: it enables or disables the task and saves it at once.
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    AppController *m_controller;
    AppControllerView *m_view;
    AppController::TaskList m_tasks;
    const JobStatusMonitor *m_status = nullptr;
};
