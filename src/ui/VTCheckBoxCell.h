#pragma once

#include <QStyledItemDelegate>

// A checkbox centred in its cell, as the table's "enabled" column shows it. A click on the
// box or the space bar on the current cell toggles it through the model.
class VTCheckBoxCell : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit VTCheckBoxCell(QObject *parent = nullptr);

    // The box's rectangle in a cell.
    static QRect checkRect(const QStyleOptionViewItem &option);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

protected:
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;
};
