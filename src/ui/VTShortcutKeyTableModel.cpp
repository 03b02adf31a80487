#include "VTShortcutKeyTableModel.h"

#include "VTShortcutKeyTableDelegate.h"

#include <QIcon>
#include <QTableView>

namespace {

const QString &identifierAt(int column)
{
    static const QString identifiers[] = {VTShortcutKeyTableDelegate::kDescriptionColumn,
                                          VTShortcutKeyTableDelegate::kShortcutKeyColumn};
    static const QString none;
    return column >= 0 && column < 2 ? identifiers[column] : none;
}

} // namespace

VTShortcutKeyTableModel::VTShortcutKeyTableModel(VTShortcutKeyTableDelegate *dataSource,
                                                 QTableView *tableView, QObject *parent)
    : QAbstractTableModel(parent), m_dataSource(dataSource), m_tableView(tableView)
{
    m_rows = m_dataSource->numberOfRowsInTableView(m_tableView);
}

QString VTShortcutKeyTableModel::columnIdentifier(int column)
{
    return identifierAt(column);
}

int VTShortcutKeyTableModel::columnForIdentifier(const QString &identifier)
{
    for (int column = 0; column < 2; ++column) {
        if (identifierAt(column) == identifier) {
            return column;
        }
    }
    return -1;
}

int VTShortcutKeyTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int VTShortcutKeyTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : 2;
}

QVariant VTShortcutKeyTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid()) {
        return QVariant();
    }
    const QString column = columnIdentifier(index.column());
    switch (role) {
    case Qt::DisplayRole: {
        const std::optional<QString> text =
            m_dataSource->tableView(m_tableView, column, index.row());
        return text ? QVariant(*text) : QVariant();
    }
    case Qt::DecorationRole: {
        QIcon image;
        m_dataSource->tableView(m_tableView, image, column, index.row());
        return image.isNull() ? QVariant() : QVariant(image);
    }
    default:
        return QVariant();
    }
}

QVariant VTShortcutKeyTableModel::headerData(int section, Qt::Orientation orientation,
                                             int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    const QString column = columnIdentifier(section);
    if (column == VTShortcutKeyTableDelegate::kDescriptionColumn) {
        return tr("Command");
    }
    if (column == VTShortcutKeyTableDelegate::kShortcutKeyColumn) {
        return tr("Shortcut Key");
    }
    return QVariant();
}

Qt::ItemFlags VTShortcutKeyTableModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (columnIdentifier(index.column()) == VTShortcutKeyTableDelegate::kShortcutKeyColumn) {
        flags |= Qt::ItemIsEditable;
    }
    return flags;
}

void VTShortcutKeyTableModel::reloadData()
{
    const int rows = m_dataSource->numberOfRowsInTableView(m_tableView);
    if (rows != m_rows) {
        beginResetModel();
        m_rows = rows;
        endResetModel();
    } else if (rows > 0) {
        Q_EMIT dataChanged(index(0, 0), index(rows - 1, columnCount() - 1));
    }
}
