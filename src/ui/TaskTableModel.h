#pragma once

#include "app/AppController.h"

#include <QAbstractTableModel>

class AppControllerView;

// The task table's data source: one row per task of the controller's list as it was at
// the last reload, in that order, and three columns known by their identifiers.
class TaskTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column
    {
        ColumnEnabled = 0,
        ColumnTask = 1,
        ColumnFrequency = 2,
        ColumnCount = 3
    };

    TaskTableModel(AppController *controller, AppControllerView *view, QObject *parent = nullptr);

    static QString columnIdentifier(int column);
    // The column with the identifier, or -1.
    static int columnWithIdentifier(const QString &identifier);
    // What a column shows for a task: the description, whether it is enabled, or the
    // schedule in words.
    static QVariant objectValue(const VTScheduledTask &task, const QString &identifier);

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
};
