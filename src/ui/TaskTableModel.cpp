#include "TaskTableModel.h"

#include "support/VTException.h"

namespace {

const QString kColEnabled = QStringLiteral("colEnabled");
const QString kColTask = QStringLiteral("colTask");
const QString kColFrequency = QStringLiteral("colFrequency");

} // namespace

TaskTableModel::TaskTableModel(AppController *controller, AppControllerView *view, QObject *parent)
    : QAbstractTableModel(parent), m_controller(controller), m_view(view)
{}

QString TaskTableModel::columnIdentifier(int column)
{
    switch (column) {
    case ColumnEnabled:
        return kColEnabled;
    case ColumnTask:
        return kColTask;
    case ColumnFrequency:
        return kColFrequency;
    default:
        return QString();
    }
}

int TaskTableModel::columnWithIdentifier(const QString &identifier)
{
    for (int column = 0; column < ColumnCount; ++column) {
        if (columnIdentifier(column) == identifier) {
            return column;
        }
    }
    return -1;
}

QVariant TaskTableModel::objectValue(const VTScheduledTask &task, const QString &identifier)
{
    return VTException::guard(VT_METHOD, QVariant(), [&] {
        if (identifier == kColTask) {
            return task.taskDescription() ? QVariant(*task.taskDescription()) : QVariant();
        }
        if (identifier == kColEnabled) {
            return QVariant(task.enabled().value_or(false));
        }
        return QVariant(task.frequencyStringFromScheduleType());
    });
}

void TaskTableModel::reloadData()
{
    beginResetModel();
    m_tasks = m_controller->dataArray();
    endResetModel();
}

VTScheduledTask::Ptr TaskTableModel::taskAt(int row) const
{
    if (row < 0 || row >= static_cast<int>(m_tasks.size())) {
        return nullptr;
    }
    return m_tasks[static_cast<size_t>(row)];
}

int TaskTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_tasks.size());
}

int TaskTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TaskTableModel::data(const QModelIndex &index, int role) const
{
    const VTScheduledTask::Ptr task = taskAt(index.row());
    if (!task) {
        return QVariant();
    }
    const QString identifier = columnIdentifier(index.column());
    if (index.column() == ColumnEnabled) {
        if (role == Qt::CheckStateRole) {
            return objectValue(*task, identifier).toBool() ? Qt::Checked : Qt::Unchecked;
        }
        if (role == Qt::ToolTipRole) {
            return QStringLiteral("Runs on its schedule when ticked");
        }
        return QVariant();
    }
    if (role == Qt::DisplayRole) {
        return objectValue(*task, identifier);
    }
    if (role == Qt::ToolTipRole && index.column() == ColumnTask) {
        return task->filename() ? QVariant(*task->filename()) : QVariant();
    }
    return QVariant();
}

bool TaskTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (index.column() != ColumnEnabled || role != Qt::CheckStateRole) {
        return false;
    }
    return VTException::guard(VT_METHOD, false, [&] {
        const VTScheduledTask::Ptr task = taskAt(index.row());
        if (!task) {
            return false;
        }
        task->setEnabled(value.toInt() == Qt::Checked);
        // A failed save is reported by the writer; the row keeps showing the new state.
        task->saveData();
        Q_EMIT dataChanged(index, index, {Qt::CheckStateRole});
        if (m_view) {
            m_view->updateEnableDisableToolbar();
        }
        return true;
    });
}

Qt::ItemFlags TaskTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == ColumnEnabled) {
        flags |= Qt::ItemIsUserCheckable;
    }
    return flags;
}

QVariant TaskTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal) {
        return QVariant();
    }
    if (role == Qt::DisplayRole) {
        switch (section) {
        case ColumnEnabled:
            return QStringLiteral("Enabled");
        case ColumnTask:
            return QStringLiteral("Task");
        case ColumnFrequency:
            return QStringLiteral("Schedule");
        default:
            return QVariant();
        }
    }
    if (role == Qt::TextAlignmentRole && section == ColumnEnabled) {
        return int(Qt::AlignCenter);
    }
    return QVariant();
}
