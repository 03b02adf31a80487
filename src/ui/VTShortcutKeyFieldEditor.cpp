#include "VTShortcutKeyFieldEditor.h"

#include "VTKeyCodeTable.h"
#include "VTShortcutKeyTableDelegate.h"

#include <QKeyEvent>

VTShortcutKeyFieldEditor::VTShortcutKeyFieldEditor(QWidget *parent) : QLineEdit(parent)
{
    setFrame(false);
    setText(QString());
    // An input method would swallow the key before it is seen.
    setAttribute(Qt::WA_InputMethodEnabled, false);
}

QVariantMap VTShortcutKeyFieldEditor::shortcutForKey(quint16 keyCode, bool shift, bool ctrl,
                                                     bool opt, bool cmd)
{
    const bool bare = !shift && !ctrl && !opt;
    return QVariantMap{
        {QStringLiteral("keycode"), int(keyCode)},
        {QStringLiteral("shift"), bare ? !cmd : shift},
        {QStringLiteral("ctrl"), ctrl},
        {QStringLiteral("opt"), opt},
        {QStringLiteral("cmd"), bare ? true : cmd},
    };
}

bool VTShortcutKeyFieldEditor::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Every key is the editor's: no menu or window shortcut may take it first.
        event->accept();
        return true;
    case QEvent::KeyPress:
        // Before QWidget::event, which would move the focus on Tab.
        keyPressEvent(static_cast<QKeyEvent *>(event));
        return true;
    default:
        return QLineEdit::event(event);
    }
}

void VTShortcutKeyFieldEditor::keyPressEvent(QKeyEvent *event)
{
    const std::optional<quint16> keyCode = VTKeyCodeTable::macKeyCodeForKeyEvent(*event);
    if (!keyCode) {
        event->ignore();
        return;
    }
    event->accept();
    const Qt::KeyboardModifiers modifiers = event->modifiers();
    VTShortcutKeyTableDelegate::postShortcutKeyChanged(shortcutForKey(
        *keyCode, modifiers.testFlag(Qt::ShiftModifier), modifiers.testFlag(Qt::ControlModifier),
        modifiers.testFlag(Qt::AltModifier), modifiers.testFlag(Qt::MetaModifier)));
}
