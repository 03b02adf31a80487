#pragma once

#include <QString>

#include <memory>

struct xkb_context;
struct xkb_keymap;

// The desktop's keyboard layout, compiled by libxkbcommon: the one place that decides which
// layout key codes are translated with, and how a key's symbol becomes the characters the
// Mac layout would give for it.
class VTKeyboardLayout
{
public:
    struct RuleNames
    {
        QString rules;
        QString model;
        QString layout;
        QString variant;
        QString options;

        bool operator==(const RuleNames &other) const = default;
    };

    struct Translation
    {
        // 0 when the key could be looked up; otherwise the failing libxkbcommon call and why.
        long status = 0;
        QString errorName;
        QString errorComment;
        // Empty when the key has no symbol in the layout.
        QString characters;
    };

    // Failure statuses of translate().
    static constexpr long kKeycodeNotInKeymap = -1;
    static constexpr long kNoKeyboardState = -2;

    // The names the desktop session hands to XKB clients: XKB_DEFAULT_RULES, _MODEL, _LAYOUT,
    // _VARIANT and _OPTIONS, each defaulting to "evdev", "pc105", "us" and nothing.
    static RuleNames desktopRuleNames();
    // The layout of desktopRuleNames(), compiled once per set of names; null when
    // libxkbcommon cannot compile it (its reasons go to the log).
    static std::shared_ptr<const VTKeyboardLayout> current();

    ~VTKeyboardLayout();
    VTKeyboardLayout(const VTKeyboardLayout &) = delete;
    VTKeyboardLayout &operator=(const VTKeyboardLayout &) = delete;

    const RuleNames &ruleNames() const { return m_names; }

    // The characters of one key of the first layout group. modifierFlags holds the classic
    // modifier bits of the shortcut file: 0x200 shift, 0x400 caps lock, 0x800 option (the
    // third level, which is where the Mac's option characters are), 0x1000 control. Num Lock
    // is always on, since the Mac keypad always types digits. Keys that type no character
    // give the private-use characters of the Mac layout for arrows, Home, End and the page
    // keys, 0x03 for keypad Enter and 0x19 for back-tab, and otherwise their symbol's name
    // ("F5").
    Translation translate(quint32 xkbKeycode, quint32 modifierFlags) const;

private:
    VTKeyboardLayout(RuleNames names, xkb_context *context, xkb_keymap *keymap);
    static std::shared_ptr<const VTKeyboardLayout> compile(const RuleNames &names);

    RuleNames m_names;
    xkb_context *m_context;
    xkb_keymap *m_keymap;
};
