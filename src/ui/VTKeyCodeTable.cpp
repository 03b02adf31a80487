#include "VTKeyCodeTable.h"

#include <QKeyEvent>

#include <array>

namespace {

// XKB numbers its keys as the evdev codes of linux/input-event-codes.h plus 8.
constexpr quint32 ev(quint32 evdevCode)
{
    return evdevCode + 8;
}

using Entry = VTKeyCodeTable::Entry;

// The Mac column is the classic kVK_ numbering; the evdev column the same physical key.
constexpr std::array kEntries = {
    // Letters, digits and punctuation of the main block.
    Entry{0x00, ev(30), Qt::Key_A, false},
    Entry{0x01, ev(31), Qt::Key_S, false},
    Entry{0x02, ev(32), Qt::Key_D, false},
    Entry{0x03, ev(33), Qt::Key_F, false},
    Entry{0x04, ev(35), Qt::Key_H, false},
    Entry{0x05, ev(34), Qt::Key_G, false},
    Entry{0x06, ev(44), Qt::Key_Z, false},
    Entry{0x07, ev(45), Qt::Key_X, false},
    Entry{0x08, ev(46), Qt::Key_C, false},
    Entry{0x09, ev(47), Qt::Key_V, false},
    Entry{0x0A, ev(86), 0, false}, // the ISO key beside the left shift key
    Entry{0x0B, ev(48), Qt::Key_B, false},
    Entry{0x0C, ev(16), Qt::Key_Q, false},
    Entry{0x0D, ev(17), Qt::Key_W, false},
    Entry{0x0E, ev(18), Qt::Key_E, false},
    Entry{0x0F, ev(19), Qt::Key_R, false},
    Entry{0x10, ev(21), Qt::Key_Y, false},
    Entry{0x11, ev(20), Qt::Key_T, false},
    Entry{0x12, ev(2), Qt::Key_1, false},
    Entry{0x13, ev(3), Qt::Key_2, false},
    Entry{0x14, ev(4), Qt::Key_3, false},
    Entry{0x15, ev(5), Qt::Key_4, false},
    Entry{0x16, ev(7), Qt::Key_6, false},
    Entry{0x17, ev(6), Qt::Key_5, false},
    Entry{0x18, ev(13), Qt::Key_Equal, false},
    Entry{0x19, ev(10), Qt::Key_9, false},
    Entry{0x1A, ev(8), Qt::Key_7, false},
    Entry{0x1B, ev(12), Qt::Key_Minus, false},
    Entry{0x1C, ev(9), Qt::Key_8, false},
    Entry{0x1D, ev(11), Qt::Key_0, false},
    Entry{0x1E, ev(27), Qt::Key_BracketRight, false},
    Entry{0x1F, ev(24), Qt::Key_O, false},
    Entry{0x20, ev(22), Qt::Key_U, false},
    Entry{0x21, ev(26), Qt::Key_BracketLeft, false},
    Entry{0x22, ev(23), Qt::Key_I, false},
    Entry{0x23, ev(25), Qt::Key_P, false},
    Entry{0x24, ev(28), Qt::Key_Return, false},
    Entry{0x25, ev(38), Qt::Key_L, false},
    Entry{0x26, ev(36), Qt::Key_J, false},
    Entry{0x27, ev(40), Qt::Key_Apostrophe, false},
    Entry{0x28, ev(37), Qt::Key_K, false},
    Entry{0x29, ev(39), Qt::Key_Semicolon, false},
    Entry{0x2A, ev(43), Qt::Key_Backslash, false},
    Entry{0x2B, ev(51), Qt::Key_Comma, false},
    Entry{0x2C, ev(53), Qt::Key_Slash, false},
    Entry{0x2D, ev(49), Qt::Key_N, false},
    Entry{0x2E, ev(50), Qt::Key_M, false},
    Entry{0x2F, ev(52), Qt::Key_Period, false},
    Entry{0x30, ev(15), Qt::Key_Tab, false},
    Entry{0x31, ev(57), Qt::Key_Space, false},
    Entry{0x32, ev(41), Qt::Key_QuoteLeft, false},
    Entry{0x33, ev(14), Qt::Key_Backspace, false},
    Entry{0x35, ev(1), Qt::Key_Escape, false},

    // Keypad. The Mac keypad's Clear key sits where Num Lock is.
    Entry{0x41, ev(83), Qt::Key_Period, true},
    Entry{0x43, ev(55), Qt::Key_Asterisk, true},
    Entry{0x45, ev(78), Qt::Key_Plus, true},
    Entry{0x47, ev(69), Qt::Key_NumLock, false},
    Entry{0x4B, ev(98), Qt::Key_Slash, true},
    Entry{0x4C, ev(96), Qt::Key_Enter, true},
    Entry{0x4E, ev(74), Qt::Key_Minus, true},
    Entry{0x51, ev(117), Qt::Key_Equal, true},
    Entry{0x52, ev(82), Qt::Key_0, true},
    Entry{0x53, ev(79), Qt::Key_1, true},
    Entry{0x54, ev(80), Qt::Key_2, true},
    Entry{0x55, ev(81), Qt::Key_3, true},
    Entry{0x56, ev(75), Qt::Key_4, true},
    Entry{0x57, ev(76), Qt::Key_5, true},
    Entry{0x58, ev(77), Qt::Key_6, true},
    Entry{0x59, ev(71), Qt::Key_7, true},
    Entry{0x5B, ev(72), Qt::Key_8, true},
    Entry{0x5C, ev(73), Qt::Key_9, true},
    Entry{0x5F, ev(121), 0, true}, // keypad comma (JIS)

    // Sound keys.
    Entry{0x48, ev(115), Qt::Key_VolumeUp, false},
    Entry{0x49, ev(114), Qt::Key_VolumeDown, false},
    Entry{0x4A, ev(113), Qt::Key_VolumeMute, false},

    // Japanese keys.
    Entry{0x5D, ev(124), 0, false}, // Yen
    Entry{0x5E, ev(89), 0, false},  // Ro
    Entry{0x66, ev(123), 0, false}, // Eisu
    Entry{0x68, ev(122), 0, false}, // Kana

    // Function keys.
    Entry{0x7A, ev(59), Qt::Key_F1, false},
    Entry{0x78, ev(60), Qt::Key_F2, false},
    Entry{0x63, ev(61), Qt::Key_F3, false},
    Entry{0x76, ev(62), Qt::Key_F4, false},
    Entry{0x60, ev(63), Qt::Key_F5, false},
    Entry{0x61, ev(64), Qt::Key_F6, false},
    Entry{0x62, ev(65), Qt::Key_F7, false},
    Entry{0x64, ev(66), Qt::Key_F8, false},
    Entry{0x65, ev(67), Qt::Key_F9, false},
    Entry{0x6D, ev(68), Qt::Key_F10, false},
    Entry{0x67, ev(87), Qt::Key_F11, false},
    Entry{0x6F, ev(88), Qt::Key_F12, false},
    Entry{0x69, ev(183), Qt::Key_F13, false},
    Entry{0x6B, ev(184), Qt::Key_F14, false},
    Entry{0x71, ev(185), Qt::Key_F15, false},
    Entry{0x6A, ev(186), Qt::Key_F16, false},
    Entry{0x40, ev(187), Qt::Key_F17, false},
    Entry{0x4F, ev(188), Qt::Key_F18, false},
    Entry{0x50, ev(189), Qt::Key_F19, false},
    Entry{0x5A, ev(190), Qt::Key_F20, false},

    // Navigation block. The Mac Help key sits where Insert is.
    Entry{0x6E, ev(127), Qt::Key_Menu, false},
    Entry{0x72, ev(110), Qt::Key_Insert, false},
    Entry{0x73, ev(102), Qt::Key_Home, false},
    Entry{0x74, ev(104), Qt::Key_PageUp, false},
    Entry{0x75, ev(111), Qt::Key_Delete, false},
    Entry{0x77, ev(107), Qt::Key_End, false},
    Entry{0x79, ev(109), Qt::Key_PageDown, false},
    Entry{0x7B, ev(105), Qt::Key_Left, false},
    Entry{0x7C, ev(106), Qt::Key_Right, false},
    Entry{0x7D, ev(108), Qt::Key_Down, false},
    Entry{0x7E, ev(103), Qt::Key_Up, false},
};

} // namespace

std::span<const VTKeyCodeTable::Entry> VTKeyCodeTable::entries()
{
    return kEntries;
}

std::optional<quint16> VTKeyCodeTable::macKeyCodeForXkbKeycode(quint32 xkbKeycode)
{
    for (const Entry &entry : kEntries) {
        if (entry.xkbKeycode == xkbKeycode) {
            return entry.macKeyCode;
        }
    }
    return std::nullopt;
}

std::optional<quint32> VTKeyCodeTable::xkbKeycodeForMacKeyCode(quint16 macKeyCode)
{
    for (const Entry &entry : kEntries) {
        if (entry.macKeyCode == macKeyCode) {
            return entry.xkbKeycode;
        }
    }
    return std::nullopt;
}

std::optional<quint16> VTKeyCodeTable::macKeyCodeForQtKey(int qtKey, bool keypad)
{
    if (qtKey == 0) {
        return std::nullopt;
    }
    const Entry *any = nullptr;
    for (const Entry &entry : kEntries) {
        if (entry.qtKey != qtKey) {
            continue;
        }
        if (entry.keypad == keypad) {
            return entry.macKeyCode;
        }
        if (!any) {
            any = &entry;
        }
    }
    return any ? std::optional<quint16>(any->macKeyCode) : std::nullopt;
}

std::optional<quint16> VTKeyCodeTable::macKeyCodeForKeyEvent(const QKeyEvent &event)
{
    // Events synthesised by tests and by the offscreen platform carry no native code.
    if (event.nativeScanCode() != 0) {
        return macKeyCodeForXkbKeycode(event.nativeScanCode());
    }
    return macKeyCodeForQtKey(event.key(), event.modifiers().testFlag(Qt::KeypadModifier));
}
