#pragma once

#include <QtGlobal>

#include <optional>
#include <span>

class QKeyEvent;

// The fixed table between the keys of a PC keyboard and the classic Mac virtual key codes
// (A is 0) that the shared shortcut file stores. A key is known by its XKB keycode (the
// evdev code plus 8, which QKeyEvent::nativeScanCode() gives under xcb and Wayland) and,
// for synthesised events that carry no native code (the offscreen platform), by its Qt key.
// Modifier keys are not listed: they never make a shortcut on their own.
class VTKeyCodeTable
{
public:
    struct Entry
    {
        quint16 macKeyCode;
        quint32 xkbKeycode;
        // Qt::Key of the key on a US layout; 0 when it has no layout-independent Qt key.
        int qtKey;
        // The Qt key comes with Qt::KeypadModifier.
        bool keypad;
    };

    static std::span<const Entry> entries();

    static std::optional<quint16> macKeyCodeForXkbKeycode(quint32 xkbKeycode);
    static std::optional<quint32> xkbKeycodeForMacKeyCode(quint16 macKeyCode);
    // A keypad key is matched first among the keypad entries; a key with no entry of the
    // same kind falls back to any entry of that Qt key.
    static std::optional<quint16> macKeyCodeForQtKey(int qtKey, bool keypad);
    // The native code when the event has one, else its Qt key.
    static std::optional<quint16> macKeyCodeForKeyEvent(const QKeyEvent &event);
};
