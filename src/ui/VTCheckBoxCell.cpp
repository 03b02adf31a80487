#include "VTCheckBoxCell.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

namespace {

QStyle *styleOf(const QStyleOptionViewItem &option)
{
    return option.widget ? option.widget->style() : QApplication::style();
}

} // namespace

VTCheckBoxCell::VTCheckBoxCell(QObject *parent) : QStyledItemDelegate(parent) {}

QRect VTCheckBoxCell::checkRect(const QStyleOptionViewItem &option)
{
    QStyleOptionButton button;
    button.rect = option.rect;
    const QRect box =
        styleOf(option)->subElementRect(QStyle::SE_CheckBoxIndicator, &button, option.widget);
    return QRect(option.rect.x() + (option.rect.width() - box.width()) / 2,
                 option.rect.y() + (option.rect.height() - box.height()) / 2, box.width(),
                 box.height());
}

void VTCheckBoxCell::paint(QPainter *painter, const QStyleOptionViewItem &option,
                           const QModelIndex &index) const
{
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    QStyle *style = styleOf(opt);
    // The row's background and selection, without the item's own check and text.
    QStyleOptionViewItem background(opt);
    background.features &= ~QStyleOptionViewItem::HasCheckIndicator;
    background.text.clear();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, opt.widget);

    QStyleOptionButton box;
    box.rect = checkRect(opt);
    box.state = QStyle::State_Enabled;
    if (opt.state & QStyle::State_Active) {
        box.state |= QStyle::State_Active;
    }
    switch (opt.checkState) {
    case Qt::Checked:
        box.state |= QStyle::State_On;
        break;
    case Qt::PartiallyChecked:
        box.state |= QStyle::State_NoChange;
        break;
    case Qt::Unchecked:
        box.state |= QStyle::State_Off;
        break;
    }
    style->drawPrimitive(QStyle::PE_IndicatorCheckBox, &box, painter, opt.widget);
}

bool VTCheckBoxCell::editorEvent(QEvent *event, QAbstractItemModel *model,
                                 const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const Qt::ItemFlags flags = model->flags(index);
    if (!(flags & Qt::ItemIsUserCheckable) || !(flags & Qt::ItemIsEnabled)) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
        // Swallowed on the box, so that a quick second click toggles again rather than
        // opening the editor.
        auto *mouse = static_cast<QMouseEvent *>(event);
        return mouse->button() == Qt::LeftButton &&
               checkRect(option).contains(mouse->position().toPoint());
    }
    case QEvent::MouseButtonRelease: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton ||
            !checkRect(option).contains(mouse->position().toPoint())) {
            return false;
        }
        break;
    }
    case QEvent::KeyPress: {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key != Qt::Key_Space && key != Qt::Key_Select) {
            return false;
        }
        break;
    }
    default:
        return false;
    }
    const bool checked = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    return model->setData(index, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
}
