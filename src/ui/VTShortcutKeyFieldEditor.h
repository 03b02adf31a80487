#pragma once

#include <QLineEdit>
#include <QVariantMap>

// The editor of the shortcut column: the next key press is not typed but posted as the
// new shortcut ("VTShortcutKeyChanged"). A key alone, with no shift, control or option,
// becomes command+shift+key, and command+key stays command+key: a global shortcut needs
// a modifier, and these are the ones the shortcut-key manager expects.
class VTShortcutKeyFieldEditor : public QLineEdit
{
    Q_OBJECT

public:
    explicit VTShortcutKeyFieldEditor(QWidget *parent = nullptr);

    // The notification's user information for a key code and the modifiers really held:
    // "keycode", "shift", "ctrl", "opt", "cmd", with the forced modifiers applied.
    static QVariantMap shortcutForKey(quint16 keyCode, bool shift, bool ctrl, bool opt, bool cmd);

protected:
    bool event(QEvent *event) override;
    // keyDown: keys the key-code table does not list (modifier keys among them) are ignored.
    void keyPressEvent(QKeyEvent *event) override;
};
