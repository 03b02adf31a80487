#pragma once

#include <QStyledItemDelegate>

// The cell of the shortcut column. Its editor is the panel's field editor, which turns the
// next key press into a shortcut; the shortcut is stored when it is captured, so nothing is
// written back when the editor closes. The one field editor is reused, never deleted.
class VTShortcutKeyTextCell : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit VTShortcutKeyTextCell(QObject *parent = nullptr);

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model,
                      const QModelIndex &index) const override;
    void destroyEditor(QWidget *editor, const QModelIndex &index) const override;

    // Closes the editor without writing anything back.
    void endEditing(QWidget *editor);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;
};
