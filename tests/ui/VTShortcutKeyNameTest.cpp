#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"
#include "ui/VTKeyboardLayout.h"
#include "ui/VTShortcutKeyTableDelegate.h"

#include <gtest/gtest.h>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

namespace {

std::optional<QString> some(const QString &s)
{
    return s;
}

} // namespace

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
        sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("us"));
    }

    static std::optional<QString> name(quint64 keyCode, quint64 modifiers)
    {
        return VTShortcutKeyTableDelegate::nameForKeyCode(keyCode, modifiers);
    }
};

// Modifiers in the order Ctrl, Shift, Alt, Cmd; the key named without its modifiers (Shift+1
// is not "!") and upper-cased when it is one character.
TEST_F(VTShortcutKeyNameTest, NamesOfKeysAndModifiers)
{
    // Caps lock (0x400) and other bits name nothing.
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
        EXPECT_EQ(name(keyCode, modifiers), some(QString::fromUtf8(expected))) << keyCode;
    }
    // The Return key types a carriage return, named "Enter"; the keypad's Enter key types
    // 0x03, named "Return".
    const std::pair<quint16, const char *> special[] = {
        {0x7E, "Up Arrow"}, {0x7D, "Down Arrow"}, {0x7B, "Left Arrow"}, {0x7C, "Right Arrow"},
        {0x73, "Home"},     {0x77, "End"},        {0x74, "Page Up"},    {0x79, "Page Down"},
        {0x24, "Enter"},    {0x4C, "Return"},     {0x30, "Tab"},        {0x35, "Escape"},
        {0x31, "Space"},    {0x33, "Backspace"},  {0x75, "Delete"}};
    for (const auto &[keyCode, expected] : special) {
        EXPECT_EQ(name(keyCode, 0x300), some(QStringLiteral("Shift+Cmd+") + expected)) << keyCode;
    }
}

TEST_F(VTShortcutKeyNameTest, ModifierFlagsChangeTheCharacters)
{
    using D = VTShortcutKeyTableDelegate;
    EXPECT_EQ(D::stringForKeyCode(0x00, 0), some("a"));
    EXPECT_EQ(D::stringForKeyCode(0x00, 0x200), some("A"));
    EXPECT_EQ(D::stringForKeyCode(0x00, 0x400), some("A"));
    EXPECT_EQ(D::stringForKeyCode(0x12, 0x200), some("!"));
    // Shift+Tab is back-tab.
    EXPECT_EQ(D::stringForKeyCode(0x30, 0x200), some("Backtab"));
    // Command changes no character.
    EXPECT_EQ(D::stringForKeyCode(0x00, 0x100), some("a"));
}

TEST_F(VTShortcutKeyNameTest, TheDesktopsLayoutIsUsed)
{
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("de"));
    // The key in the Z position types y on a German keyboard, and the one in the Y position z.
    EXPECT_EQ(name(0x06, 0x300), some("Shift+Cmd+Y"));
    EXPECT_EQ(name(0x10, 0x300), some("Shift+Cmd+Z"));
    EXPECT_EQ(name(0x29, 0), some(QStringLiteral("\u00d6")));
    // Option is the third level, where the German layout has @ on Q.
    EXPECT_EQ(VTShortcutKeyTableDelegate::stringForKeyCode(0x0C, 0x800), some("@"));

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("fr"));
    EXPECT_EQ(name(0x00, 0), some("Q"));
    EXPECT_EQ(VTKeyboardLayout::current()->ruleNames().layout, QStringLiteral("fr"));
}

TEST_F(VTShortcutKeyNameTest, UntranslatableKeysHaveNoNameAndSayWhy)
{
    TestFiles::CaptureStderr capture;
    // 0x34 is no key of the table.
    EXPECT_EQ(name(0x34, 0x300), std::nullopt);
    EXPECT_EQ(name(0x10000, 0), std::nullopt);
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("no-such-layout"));
    EXPECT_EQ(name(0x00, 0x300), std::nullopt);
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

TEST_F(VTShortcutKeyNameTest, AKeycodeOutsideTheLayoutIsAnError)
{
    const auto layout = VTKeyboardLayout::current();
    ASSERT_TRUE(layout);
    for (const quint32 xkb : {0u, 7u, 100000u}) {
        const VTKeyboardLayout::Translation translation = layout->translate(xkb, 0);
        EXPECT_EQ(translation.status, VTKeyboardLayout::kKeycodeNotInKeymap);
        EXPECT_EQ(translation.errorName, QStringLiteral("xkb_keymap_key_get_name"));
        EXPECT_TRUE(translation.characters.isEmpty());
    }
}

TEST_F(VTShortcutKeyNameTest, RuleNamesComeFromTheEnvironmentWithDefaults)
{
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", std::nullopt);
    VTKeyboardLayout::RuleNames names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.rules, QStringLiteral("evdev"));
    EXPECT_EQ(names.model, QStringLiteral("pc105"));
    EXPECT_EQ(names.layout, QStringLiteral("us"));
    EXPECT_TRUE(names.variant.isEmpty());

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", QStringLiteral("de"));
    sandbox.setEnv("XKB_DEFAULT_VARIANT", QStringLiteral("nodeadkeys"));
    sandbox.setEnv("XKB_DEFAULT_MODEL", QString());
    names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.layout, QStringLiteral("de"));
    EXPECT_EQ(names.variant, QStringLiteral("nodeadkeys"));
    EXPECT_EQ(names.model, QStringLiteral("pc105"));
    EXPECT_EQ(name(0x06, 0), some("Y"));
}
