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

// Each entry both ways, by its Qt key when an event carries no native code, and by the
// native code (the key's position) over whatever Qt key the layout gave.
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
        const QKeyEvent native(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, entry.xkbKeycode, 0, 0);
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(native), entry.macKeyCode);
        if (entry.qtKey != 0) {
            EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(entry.qtKey, entry.keypad),
                      entry.macKeyCode);
            const QKeyEvent synthesised(QEvent::KeyPress, entry.qtKey,
                                        entry.keypad ? Qt::KeypadModifier : Qt::NoModifier);
            EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(synthesised), entry.macKeyCode);
        }
    }
    EXPECT_GE(VTKeyCodeTable::entries().size(), 100u);
    // A key the table does not list (left shift) is no key, whatever Qt calls it.
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

    // The main block from 0x00 to 0x35 in code order ('~' where the code is no key), then
    // the keypad, which types digits whatever the Num Lock light says, as on the Mac.
    std::map<quint16, QString> ansi;
    const QString main =
        QStringLiteral("asdfhgzxcv~bqweryt123465=97-80]ou[ip\rlj'k;\\,/nm.\t `\b~\x1b");
    for (qsizetype i = 0; i < main.size(); ++i) {
        if (main[i] != QLatin1Char('~')) {
            ansi[quint16(i)] = main[i];
        }
    }
    const std::pair<quint16, char16_t> others[] = {
        {0x41, '.'},    {0x43, '*'},    {0x45, '+'},    {0x4B, '/'},    {0x4E, '-'},
        {0x51, '='},    {0x52, '0'},    {0x53, '1'},    {0x54, '2'},    {0x55, '3'},
        {0x56, '4'},    {0x57, '5'},    {0x58, '6'},    {0x59, '7'},    {0x5B, '8'},
        {0x5C, '9'},    {0x75, 0x7f},   {0x4C, 0x03},   {0x7E, 0xF700}, {0x7D, 0xF701},
        {0x7B, 0xF702}, {0x7C, 0xF703}, {0x73, 0xF729}, {0x77, 0xF72B}, {0x74, 0xF72C},
        {0x79, 0xF72D}};
    for (const auto &[mac, character] : others) {
        ansi[mac] = QString(QChar(character));
    }
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
