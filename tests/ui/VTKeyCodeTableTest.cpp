#include "ui/VTKeyCodeTable.h"
#include "testsupport/Sandbox.h"
#include "ui/VTKeyboardLayout.h"

#include <gtest/gtest.h>

#include <QKeyEvent>

#include <map>
#include <set>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

TEST(VTKeyCodeTableTest, EveryKeyMapsToItsMacCodeAndBack)
{
    std::set<quint16> macCodes;
    std::set<quint32> xkbKeycodes;
    for (const VTKeyCodeTable::Entry &entry : VTKeyCodeTable::entries()) {
        SCOPED_TRACE(entry.macKeyCode);
        EXPECT_TRUE(macCodes.insert(entry.macKeyCode).second) << "Mac code listed twice";
        EXPECT_TRUE(xkbKeycodes.insert(entry.xkbKeycode).second) << "XKB keycode listed twice";
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForXkbKeycode(entry.xkbKeycode), entry.macKeyCode);
        EXPECT_EQ(VTKeyCodeTable::xkbKeycodeForMacKeyCode(entry.macKeyCode), entry.xkbKeycode);
        // XKB keycodes are evdev codes plus 8, all within the 8..255 of the X protocol.
        EXPECT_GE(entry.xkbKeycode, 9u);
        EXPECT_LE(entry.xkbKeycode, 255u);
        EXPECT_LE(entry.macKeyCode, 0x7Fu);
    }
    EXPECT_GE(VTKeyCodeTable::entries().size(), 100u);
}

TEST(VTKeyCodeTableTest, EveryQtKeyMapsToItsMacCodeWhenEventsCarryNoNativeCode)
{
    for (const VTKeyCodeTable::Entry &entry : VTKeyCodeTable::entries()) {
        if (entry.qtKey == 0) {
            continue;
        }
        SCOPED_TRACE(entry.macKeyCode);
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(entry.qtKey, entry.keypad), entry.macKeyCode);

        const Qt::KeyboardModifiers modifiers = entry.keypad ? Qt::KeypadModifier : Qt::NoModifier;
        const QKeyEvent synthesised(QEvent::KeyPress, entry.qtKey, modifiers);
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(synthesised), entry.macKeyCode);
    }
}

TEST(VTKeyCodeTableTest, ANativeCodeWinsOverTheQtKey)
{
    // The Qt key depends on the layout; the native code is the key's position.
    for (const VTKeyCodeTable::Entry &entry : VTKeyCodeTable::entries()) {
        const QKeyEvent native(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, entry.xkbKeycode, 0, 0);
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(native), entry.macKeyCode)
            << entry.macKeyCode;
    }
    // A key the table does not list is no key, whatever Qt calls it.
    const QKeyEvent leftShift(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, 50, 0, 0);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(leftShift), std::nullopt);
}

TEST(VTKeyCodeTableTest, KeypadAndMainKeysOfTheSameQtKeyAreTold)
{
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_Minus, false), 0x1B);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_Minus, true), 0x4E);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_1, false), 0x12);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_1, true), 0x53);
    // Enter exists only on the keypad; without the keypad flag it is still that key.
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_Enter, false), 0x4C);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(Qt::Key_Return, false), 0x24);
}

TEST(VTKeyCodeTableTest, ModifierKeysAndUnknownCodesHaveNoEntry)
{
    for (const int key :
         std::initializer_list<int>{Qt::Key_Shift, Qt::Key_Control, Qt::Key_Alt, Qt::Key_Meta,
                                    Qt::Key_CapsLock, Qt::Key_AltGr, 0}) {
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(key, false), std::nullopt) << key;
    }
    // Left shift, left control and left super by their XKB keycodes.
    for (const quint32 xkb : {50u, 37u, 133u, 0u, 300u}) {
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForXkbKeycode(xkb), std::nullopt) << xkb;
    }
    // 0x34 and 0x36..0x3F are no keys of the table (modifiers and gaps).
    for (const quint16 mac :
         std::initializer_list<quint16>{0x34, 0x36, 0x37, 0x38, 0x3A, 0x3B, 0x80, 0xFFFF}) {
        EXPECT_EQ(VTKeyCodeTable::xkbKeycodeForMacKeyCode(mac), std::nullopt) << mac;
    }
}

// The classic codes are named after the character of the US layout; typing each key with
// that layout must give it, which catches a code paired with the wrong key.
TEST(VTKeyCodeTableTest, TheMainBlockTypesTheCharactersTheMacCodesAreNamedFor)
{
    Sandbox sandbox;
    for (const char *name :
         {"XKB_DEFAULT_RULES", "XKB_DEFAULT_MODEL", "XKB_DEFAULT_VARIANT", "XKB_DEFAULT_OPTIONS"}) {
        sandbox.setEnv(name, std::nullopt);
    }
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("us"));
    const auto layout = VTKeyboardLayout::current();
    ASSERT_TRUE(layout);

    const std::map<quint16, QString> ansi = {
        {0x00, "a"},
        {0x01, "s"},
        {0x02, "d"},
        {0x03, "f"},
        {0x04, "h"},
        {0x05, "g"},
        {0x06, "z"},
        {0x07, "x"},
        {0x08, "c"},
        {0x09, "v"},
        {0x0B, "b"},
        {0x0C, "q"},
        {0x0D, "w"},
        {0x0E, "e"},
        {0x0F, "r"},
        {0x10, "y"},
        {0x11, "t"},
        {0x12, "1"},
        {0x13, "2"},
        {0x14, "3"},
        {0x15, "4"},
        {0x16, "6"},
        {0x17, "5"},
        {0x18, "="},
        {0x19, "9"},
        {0x1A, "7"},
        {0x1B, "-"},
        {0x1C, "8"},
        {0x1D, "0"},
        {0x1E, "]"},
        {0x1F, "o"},
        {0x20, "u"},
        {0x21, "["},
        {0x22, "i"},
        {0x23, "p"},
        {0x25, "l"},
        {0x26, "j"},
        {0x27, "'"},
        {0x28, "k"},
        {0x29, ";"},
        {0x2A, "\\"},
        {0x2B, ","},
        {0x2C, "/"},
        {0x2D, "n"},
        {0x2E, "m"},
        {0x2F, "."},
        {0x32, "`"},
        {0x24, "\r"},
        {0x30, "\t"},
        {0x31, " "},
        {0x33, "\b"},
        {0x35, "\x1b"},
        // The keypad types digits whatever the Num Lock light says, as on the Mac.
        {0x41, "."},
        {0x43, "*"},
        {0x45, "+"},
        {0x4B, "/"},
        {0x4E, "-"},
        {0x51, "="},
        {0x52, "0"},
        {0x53, "1"},
        {0x54, "2"},
        {0x55, "3"},
        {0x56, "4"},
        {0x57, "5"},
        {0x58, "6"},
        {0x59, "7"},
        {0x5B, "8"},
        {0x5C, "9"},
        {0x75, "\x7f"},
        {0x4C, "\x03"},
        {0x7E, QString(QChar(0xF700))},
        {0x7D, QString(QChar(0xF701))},
        {0x7B, QString(QChar(0xF702))},
        {0x7C, QString(QChar(0xF703))},
        {0x73, QString(QChar(0xF729))},
        {0x77, QString(QChar(0xF72B))},
        {0x74, QString(QChar(0xF72C))},
        {0x79, QString(QChar(0xF72D))},
    };
    for (const auto &[mac, expected] : ansi) {
        SCOPED_TRACE(mac);
        const std::optional<quint32> xkb = VTKeyCodeTable::xkbKeycodeForMacKeyCode(mac);
        ASSERT_TRUE(xkb);
        const VTKeyboardLayout::Translation translation = layout->translate(*xkb, 0);
        EXPECT_EQ(translation.status, 0);
        EXPECT_EQ(translation.characters, expected);
    }

    const std::map<quint16, QString> functionKeys = {
        {0x7A, "F1"}, {0x78, "F2"}, {0x63, "F3"}, {0x76, "F4"},  {0x60, "F5"},  {0x61, "F6"},
        {0x62, "F7"}, {0x64, "F8"}, {0x65, "F9"}, {0x6D, "F10"}, {0x67, "F11"}, {0x6F, "F12"},
    };
    for (const auto &[mac, expected] : functionKeys) {
        EXPECT_EQ(layout->translate(*VTKeyCodeTable::xkbKeycodeForMacKeyCode(mac), 0).characters,
                  expected);
    }
}
