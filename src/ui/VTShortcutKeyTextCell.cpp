#include "VTShortcutKeyTextCell.h"

#include "VTShortcutKeyFieldEditor.h"
#include "VTShortcutKeyTableDelegate.h"

#include <QEvent>

VTShortcutKeyTextCell::VTShortcutKeyTextCell(QObject *parent) : QStyledItemDelegate(parent) {}

QWidget *VTShortcutKeyTextCell::createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                                             const QModelIndex &index) const
{
    // The parent is the table's viewport.
    QWidget *table = parent ? parent->parentWidget() : nullptr;
    QWidget *editor = VTShortcutKeyTableDelegate::sharedController().windowWillReturnFieldEditor(
        parent ? parent->window() : nullptr, table);
    if (!editor) {
        return QStyledItemDelegate::createEditor(parent, option, index);
    }
    editor->setParent(parent);
    return editor;
}

void VTShortcutKeyTextCell::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    if (!qobject_cast<VTShortcutKeyFieldEditor *>(editor)) {
        QStyledItemDelegate::setEditorData(editor, index);
    }
}

void VTShortcutKeyTextCell::setModelData(QWidget *editor, QAbstractItemModel *model,
                                         const QModelIndex &index) const
{
    if (!qobject_cast<VTShortcutKeyFieldEditor *>(editor)) {
        QStyledItemDelegate::setModelData(editor, model, index);
    }
}

void VTShortcutKeyTextCell::destroyEditor(QWidget *editor, const QModelIndex &index) const
{
    if (qobject_cast<VTShortcutKeyFieldEditor *>(editor)) {
        editor->hide();
        return;
    }
    QStyledItemDelegate::destroyEditor(editor, index);
}

void VTShortcutKeyTextCell::endEditing(QWidget *editor)
{
    Q_EMIT closeEditor(editor, QAbstractItemDelegate::NoHint);
}

bool VTShortcutKeyTextCell::eventFilter(QObject *object, QEvent *event)
{
    // Tab, Return and Escape would otherwise move on, commit or cancel: here they are keys
    // to capture like any other.
    if (qobject_cast<VTShortcutKeyFieldEditor *>(object) &&
        (event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride)) {
        return false;
    }
    return QStyledItemDelegate::eventFilter(object, event);
}
