#include "TaskTableModel.h"

#include "JobStatusMonitor.h"

#include "support/VTException.h"

#include <QFileInfo>

#include <limits>

namespace {

const QString kColEnabled = QStringLiteral("colEnabled");
const QString kColTask = QStringLiteral("colTask");
const QString kColFrequency = QStringLiteral("colFrequency");
const QString kColNextRun = QStringLiteral("colNextRun");
const QString kColLastResult = QStringLiteral("colLastResult");

// A job's label is its file's name without the extension.
QString labelOf(const VTScheduledTask &task)
{
    return task.filename() ? QFileInfo(*task.filename()).completeBaseName() : QString();
}

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
    case ColumnNextRun:
        return kColNextRun;
    case ColumnLastResult:
        return kColLastResult;
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

void TaskTableModel::setJobStatus(const JobStatusMonitor *status)
{
    m_status = status;
    statusChanged();
}

bool TaskTableModel::isStatusColumn(const QString &identifier)
{
    return identifier == kColNextRun || identifier == kColLastResult;
}

QVariant TaskTableModel::statusValue(const VTScheduledTask &task, const QString &identifier) const
{
    const std::optional<JobStatusMonitor::Status> status =
        m_status ? m_status->statusOf(labelOf(task)) : std::nullopt;
    if (!status) {
        return QVariant();
    }
    if (identifier == kColNextRun) {
        return status->nextRun ? QVariant(status->nextRun->toLocalTime().toString(
                                     QStringLiteral("yyyy-MM-dd HH:mm")))
                               : QVariant();
    }
    if (identifier == kColLastResult && !status->lastResult.isEmpty()) {
        return QVariant(status->lastResult.left(1).toUpper() + status->lastResult.mid(1));
    }
    return QVariant();
}

int TaskTableModel::statusCompare(const QString &identifier, const VTScheduledTask &a,
                                  const VTScheduledTask &b) const
{
    if (identifier == kColNextRun) {
        const auto time = [this](const VTScheduledTask &task) {
            const std::optional<JobStatusMonitor::Status> status =
                m_status ? m_status->statusOf(labelOf(task)) : std::nullopt;
            return status && status->nextRun ? status->nextRun->toSecsSinceEpoch()
                                             : std::numeric_limits<qint64>::max();
        };
        const qint64 left = time(a);
        const qint64 right = time(b);
        return left < right ? -1 : (left > right ? 1 : 0);
    }
    return statusValue(a, identifier)
        .toString()
        .compare(statusValue(b, identifier).toString(), Qt::CaseInsensitive);
}

void TaskTableModel::statusChanged()
{
    if (!m_tasks.empty()) {
        Q_EMIT dataChanged(index(0, ColumnNextRun),
                           index(static_cast<int>(m_tasks.size()) - 1, ColumnLastResult),
                           {Qt::DisplayRole});
    }
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
        return isStatusColumn(identifier) ? statusValue(*task, identifier)
                                          : objectValue(*task, identifier);
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
        case ColumnNextRun:
            return QStringLiteral("Next Run");
        case ColumnLastResult:
            return QStringLiteral("Last Result");
        default:
            return QVariant();
        }
    }
    if (role == Qt::TextAlignmentRole && section == ColumnEnabled) {
        return int(Qt::AlignCenter);
    }
    return QVariant();
}
