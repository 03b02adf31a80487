#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"
#include "ui/VTKeyCodeTable.h"
#include "ui/VTKeyboardLayout.h"
#include "ui/VTShortcutKeyTableDelegate.h"

#include <gtest/gtest.h>

#include <QKeyEvent>

#include <map>
#include <set>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

namespace {

using Delegate = VTShortcutKeyTableDelegate;

std::optional<QString> some(const QString &s)
{
    return s;
}

// Key codes, their names and characters, with the US layout unless a test chooses another.
class VTShortcutKeyNameTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;

    void SetUp() override
    {
        identity->home = sandbox.home();
        for (const char *name : {"XKB_DEFAULT_RULES", "XKB_DEFAULT_MODEL", "XKB_DEFAULT_VARIANT",
                                 "XKB_DEFAULT_OPTIONS"}) {
            sandbox.setEnv(name, std::nullopt);
        }
        sandbox.setEnv("XKB_DEFAULT_LAYOUT", "us");
    }
};

} // namespace

// Each entry both ways, by its Qt key when an event carries no native code, and by the
// native code (the key's position) over whatever Qt key the layout gave.
TEST_F(VTShortcutKeyNameTest, EveryKeyMapsToItsMacCodeAndBack)
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
            const QKeyEvent synthesised(QEvent::KeyPress, entry.qtKey,
                                        entry.keypad ? Qt::KeypadModifier : Qt::NoModifier);
            EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(synthesised), entry.macKeyCode);
        }
    }
    EXPECT_GE(VTKeyCodeTable::entries().size(), 100u);

    // The keypad's and the main block's keys of the same Qt key are told apart; Enter exists
    // only on the keypad. Modifier keys have no entry, whatever Qt calls them.
    const std::tuple<int, bool, std::optional<quint16>> qtKeys[] = {{Qt::Key_Minus, false, 0x1B},
                                                                    {Qt::Key_Minus, true, 0x4E},
                                                                    {Qt::Key_1, false, 0x12},
                                                                    {Qt::Key_1, true, 0x53},
                                                                    {Qt::Key_Enter, false, 0x4C},
                                                                    {Qt::Key_Return, false, 0x24},
                                                                    {Qt::Key_Shift, false, {}},
                                                                    {Qt::Key_Control, false, {}},
                                                                    {Qt::Key_Alt, false, {}},
                                                                    {Qt::Key_Meta, false, {}},
                                                                    {Qt::Key_CapsLock, false, {}},
                                                                    {Qt::Key_AltGr, false, {}},
                                                                    {0, false, {}}};
    for (const auto &[key, keypad, mac] : qtKeys) {
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(key, keypad), mac) << key;
    }
    // Left shift, left control and left super by their XKB keycodes, and codes that are no
    // keys (modifiers and gaps).
    for (const quint32 xkb : {50u, 37u, 133u, 0u, 300u}) {
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForXkbKeycode(xkb), std::nullopt) << xkb;
    }
    for (const quint16 mac : {0x34, 0x36, 0x37, 0x38, 0x3A, 0x3B, 0x80, 0xFFFF}) {
        EXPECT_EQ(VTKeyCodeTable::xkbKeycodeForMacKeyCode(mac), std::nullopt) << mac;
    }
    const QKeyEvent leftShift(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, 50, 0, 0);
    EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(leftShift), std::nullopt);
}

// The classic codes are named after the character of the US layout; typing each key with
// that layout must give it, which catches a code paired with the wrong key.
TEST_F(VTShortcutKeyNameTest, TheMainBlockTypesTheCharactersTheMacCodesAreNamedFor)
{
    const auto layout = VTKeyboardLayout::current();
    ASSERT_TRUE(layout);
    // The main block from 0x00 to 0x35 in code order ('~' where the code is no key), then
    // the keypad, which types digits whatever the Num Lock light says, as on the Mac.
    std::map<quint16, QString> ansi;
    const QString main = "asdfhgzxcv~bqweryt123465=97-80]ou[ip\rlj'k;\\,/nm.\t `\b~\x1b";
    for (qsizetype i = 0; i < main.size(); ++i) {
        if (main[i] != '~') {
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
    const std::map<quint16, QString> functionKeys = {
        {0x7A, "F1"}, {0x78, "F2"}, {0x63, "F3"}, {0x76, "F4"},  {0x60, "F5"},  {0x61, "F6"},
        {0x62, "F7"}, {0x64, "F8"}, {0x65, "F9"}, {0x6D, "F10"}, {0x67, "F11"}, {0x6F, "F12"}};
    ansi.insert(functionKeys.begin(), functionKeys.end());
    for (const auto &[mac, expected] : ansi) {
        SCOPED_TRACE(mac);
        const std::optional<quint32> xkb = VTKeyCodeTable::xkbKeycodeForMacKeyCode(mac);
        ASSERT_TRUE(xkb);
        const VTKeyboardLayout::Translation translation = layout->translate(*xkb, 0);
        EXPECT_EQ(translation.status, 0);
        EXPECT_EQ(translation.characters, expected);
    }
}

// Modifiers in the order Ctrl, Shift, Alt, Cmd; the key named without its modifiers (Shift+1
// is not "!") and upper-cased when it is one character. Caps lock (0x400) and other bits
// name nothing. The Return key types a carriage return, named "Enter"; the keypad's Enter
// key types 0x03, named "Return".
TEST_F(VTShortcutKeyNameTest, NamesAndCharactersOfKeysAndModifiers)
{
    const std::tuple<quint16, quint64, const char *> keys[] = {
        {0x00, 0, "A"},
        {0x00, 0x100, "Cmd+A"},
        {0x00, 0x1B00, "Ctrl+Shift+Alt+Cmd+A"},
        {0x0E, 0x1800, "Ctrl+Alt+E"},
        {0x12, 0x1200, "Ctrl+Shift+1"},
        {0x00, 0x481, "A"},
        {0x12, 0x200, "Shift+1"},
        {0x2C, 0x300, "Shift+Cmd+/"},
        {0x60, 0x1800, "Ctrl+Alt+F5"},
        {0x7A, 0, "F1"}};
    for (const auto &[keyCode, modifiers, expected] : keys) {
        EXPECT_EQ(Delegate::nameForKeyCode(keyCode, modifiers), some(expected)) << keyCode;
    }
    const std::pair<quint16, const char *> special[] = {
        {0x7E, "Up Arrow"}, {0x7D, "Down Arrow"}, {0x7B, "Left Arrow"}, {0x7C, "Right Arrow"},
        {0x73, "Home"},     {0x77, "End"},        {0x74, "Page Up"},    {0x79, "Page Down"},
        {0x24, "Enter"},    {0x4C, "Return"},     {0x30, "Tab"},        {0x35, "Escape"},
        {0x31, "Space"},    {0x33, "Backspace"},  {0x75, "Delete"}};
    for (const auto &[keyCode, expected] : special) {
        EXPECT_EQ(Delegate::nameForKeyCode(keyCode, 0x300), some(QString("Shift+Cmd+") + expected))
            << keyCode;
    }
    // The characters change with Shift and caps lock, not with Command; Shift+Tab is
    // back-tab.
    const std::tuple<quint16, quint64, const char *> characters[] = {
        {0x00, 0, "a"},     {0x00, 0x200, "A"},       {0x00, 0x400, "A"},
        {0x12, 0x200, "!"}, {0x30, 0x200, "Backtab"}, {0x00, 0x100, "a"}};
    for (const auto &[keyCode, modifiers, expected] : characters) {
        EXPECT_EQ(Delegate::stringForKeyCode(keyCode, modifiers), some(expected)) << expected;
    }
}

TEST_F(VTShortcutKeyNameTest, TheDesktopsLayoutIsUsed)
{
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", std::nullopt);
    VTKeyboardLayout::RuleNames names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.rules, "evdev");
    EXPECT_EQ(names.model, "pc105");
    EXPECT_EQ(names.layout, "us");
    EXPECT_TRUE(names.variant.isEmpty());

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "de");
    sandbox.setEnv("XKB_DEFAULT_VARIANT", "nodeadkeys");
    sandbox.setEnv("XKB_DEFAULT_MODEL", QString());
    names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.layout, "de");
    EXPECT_EQ(names.variant, "nodeadkeys");
    EXPECT_EQ(names.model, "pc105");
    // The key in the Z position types y on a German keyboard, and the one in the Y position z.
    EXPECT_EQ(Delegate::nameForKeyCode(0x06, 0x300), some("Shift+Cmd+Y"));
    EXPECT_EQ(Delegate::nameForKeyCode(0x10, 0x300), some("Shift+Cmd+Z"));
    EXPECT_EQ(Delegate::nameForKeyCode(0x29, 0), some("\u00d6"));
    // Option is the third level, where the German layout has @ on Q.
    EXPECT_EQ(Delegate::stringForKeyCode(0x0C, 0x800), some("@"));

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "fr");
    sandbox.setEnv("XKB_DEFAULT_VARIANT", std::nullopt);
    EXPECT_EQ(Delegate::nameForKeyCode(0x00, 0), some("Q"));
    EXPECT_EQ(VTKeyboardLayout::current()->ruleNames().layout, "fr");
}

TEST_F(VTShortcutKeyNameTest, UntranslatableKeysHaveNoNameAndSayWhy)
{
    const auto layout = VTKeyboardLayout::current();
    ASSERT_TRUE(layout);
    for (const quint32 xkb : {0u, 7u, 100000u}) {
        const VTKeyboardLayout::Translation translation = layout->translate(xkb, 0);
        EXPECT_EQ(translation.status, VTKeyboardLayout::kKeycodeNotInKeymap);
        EXPECT_EQ(translation.errorName, "xkb_keymap_key_get_name");
        EXPECT_TRUE(translation.characters.isEmpty());
    }

    TestFiles::CaptureStderr capture;
    // 0x34 is no key of the table.
    EXPECT_EQ(Delegate::nameForKeyCode(0x34, 0x300), std::nullopt);
    EXPECT_EQ(Delegate::nameForKeyCode(0x10000, 0), std::nullopt);
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "no-such-layout");
    EXPECT_EQ(Delegate::nameForKeyCode(0x00, 0x300), std::nullopt);
    EXPECT_EQ(VTKeyboardLayout::current(), nullptr);
    const QString console = capture.finish();
    EXPECT_TRUE(console.contains("Couldn't find a translation for the '52' key code"))
        << console.toStdString();
    EXPECT_TRUE(
        console.contains("Couldn't find a suitable keyboard layout from which to translate"))
        << console.toStdString();
    // libxkbcommon's own complaints go to the log, not to the console.
    EXPECT_FALSE(console.contains("xkbcommon")) << console.toStdString();
}
