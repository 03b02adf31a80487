#include "ClientGridModel.h"

#include <QApplication>
#include <QFontMetrics>
#include <QSize>

#include <algorithm>

ClientGridModel::ClientGridModel(QObject *parent) : QAbstractListModel(parent) {}

void ClientGridModel::setClients(const std::vector<VTClientApplication> &clients)
{
    beginResetModel();
    m_clients = clients;
    endResetModel();
}

int ClientGridModel::rowOfClient(const VTClientApplication &item) const
{
    for (size_t row = 0; row < m_clients.size(); ++row) {
        if (m_clients[row].bundleid == item.bundleid && m_clients[row].name == item.name) {
            return static_cast<int>(row);
        }
    }
    return -1;
}

QSize ClientGridModel::itemSize()
{
    // The 48-point icon with one line of the name under it, in the desktop's font.
    const QFontMetrics metrics(QApplication::font());
    return QSize(std::max(104, metrics.averageCharWidth() * 13),
                 std::max(88, 6 + 48 + 2 + metrics.height() + 8));
}

int ClientGridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_clients.size());
}

QVariant ClientGridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount()) {
        return QVariant();
    }
    const VTClientApplication &client = m_clients[static_cast<size_t>(index.row())];
    switch (role) {
    case BundleIDRole:
        return client.bundleid;
    case NameRole:
    case Qt::AccessibleTextRole:
        return client.name;
    case Qt::ToolTipRole:
        return client.name + QStringLiteral(" (") + client.bundleid + QStringLiteral(")");
    case Qt::SizeHintRole:
        return itemSize();
    default:
        return QVariant();
    }
}
