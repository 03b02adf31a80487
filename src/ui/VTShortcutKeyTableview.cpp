#include "VTShortcutKeyTableview.h"

#include "VTShortcutKeyTableDelegate.h"

#include <QKeyEvent>

VTShortcutKeyTableview::VTShortcutKeyTableview(QWidget *parent) : QTableView(parent) {}

void VTShortcutKeyTableview::keyPressEvent(QKeyEvent *event)
{
    // The key itself, whatever modifiers are held.
    switch (event->key()) {
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
    case Qt::Key_Clear:
        VTShortcutKeyTableDelegate::postShortcutKeyCleared();
        event->accept();
        return;
    default:
        QTableView::keyPressEvent(event);
    }
}
