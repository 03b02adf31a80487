#pragma once

#include "app/VTClientApplication.h"

#include <QAbstractListModel>

#include <vector>

// The client applications as the editor's grid shows them. Each item is drawn by an
// IconViewBox placed over it, so the model itself offers no text or image to draw.
class ClientGridModel : public QAbstractListModel
{
    Q_OBJECT

public:
    static constexpr int BundleIDRole = Qt::UserRole + 1;
    static constexpr int NameRole = Qt::UserRole + 2;

    explicit ClientGridModel(QObject *parent = nullptr);

    void setClients(const std::vector<VTClientApplication> &clients);
    const std::vector<VTClientApplication> &clients() const { return m_clients; }
    // The row of an entry equal to the item (same identifier and name), or -1.
    int rowOfClient(const VTClientApplication &item) const;
    static QSize itemSize();

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;

private:
    std::vector<VTClientApplication> m_clients;
};
