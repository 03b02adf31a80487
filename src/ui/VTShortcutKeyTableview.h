#pragma once

#include <QTableView>

// The shortcut table: Backspace, Delete (forward delete) and the keypad's Clear key ask
// for the selected shortcut to be cleared ("VTShortcutKeyCleared"); every other key works
// as in any table.
class VTShortcutKeyTableview : public QTableView
{
    Q_OBJECT

public:
    explicit VTShortcutKeyTableview(QWidget *parent = nullptr);

protected:
    void keyPressEvent(QKeyEvent *event) override;
};
