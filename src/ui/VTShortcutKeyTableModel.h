#pragma once

#include <QAbstractTableModel>
#include <QPointer>

class QTableView;
class VTShortcutKeyTableDelegate;

// The shortcut table's model: asks its data source for every row and cell, as the panel's
// table does of its delegate. Column 0 is "description", column 1 "shortcutkey"; only the
// shortcut column is edited.
class VTShortcutKeyTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    VTShortcutKeyTableModel(VTShortcutKeyTableDelegate *dataSource, QTableView *tableView,
                            QObject *parent = nullptr);

    static QString columnIdentifier(int column);
    // -1 for an identifier the table does not have.
    static int columnForIdentifier(const QString &identifier);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    // Shows the data source's rows again. The selection stays when the number of rows is
    // unchanged.
    void reloadData();

private:
    VTShortcutKeyTableDelegate *m_dataSource;
    QPointer<QTableView> m_tableView;
    int m_rows = 0;
};
