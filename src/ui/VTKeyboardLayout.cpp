#include "VTKeyboardLayout.h"

#include "platform/Environment.h"
#include "support/VTLog.h"

#include <xkbcommon/xkbcommon.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

QString nameOrDefault(const char *variable, const QString &fallback)
{
    const std::optional<QString> value = Environment::value(variable);
    return value && !value->isEmpty() ? *value : fallback;
}

// libxkbcommon explains a failed compilation line by line; those lines belong in the log.
void logToVTLog(xkb_context *, xkb_log_level, const char *format, va_list args)
{
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, format, args);
    VTLog::appendLog(QStringLiteral("%@"), QString::fromUtf8(buffer).trimmed());
}

// What the Mac layout types for the keys that have no character of their own.
char32_t macCharacterForKeysym(xkb_keysym_t keysym)
{
    switch (keysym) {
    case XKB_KEY_Up:
    case XKB_KEY_KP_Up:
        return 0xF700;
    case XKB_KEY_Down:
    case XKB_KEY_KP_Down:
        return 0xF701;
    case XKB_KEY_Left:
    case XKB_KEY_KP_Left:
        return 0xF702;
    case XKB_KEY_Right:
    case XKB_KEY_KP_Right:
        return 0xF703;
    case XKB_KEY_Home:
    case XKB_KEY_KP_Home:
        return 0xF729;
    case XKB_KEY_End:
    case XKB_KEY_KP_End:
        return 0xF72B;
    case XKB_KEY_Page_Up:
    case XKB_KEY_KP_Page_Up:
        return 0xF72C;
    case XKB_KEY_Page_Down:
    case XKB_KEY_KP_Page_Down:
        return 0xF72D;
    case XKB_KEY_KP_Enter:
        return 0x03;
    case XKB_KEY_ISO_Left_Tab:
        return 0x19;
    default:
        return 0;
    }
}

xkb_mod_mask_t modBit(xkb_keymap *keymap, const char *name)
{
    const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
    return index == XKB_MOD_INVALID ? 0 : xkb_mod_mask_t(1) << index;
}

} // namespace

VTKeyboardLayout::RuleNames VTKeyboardLayout::desktopRuleNames()
{
    return RuleNames{nameOrDefault("XKB_DEFAULT_RULES", QStringLiteral("evdev")),
                     nameOrDefault("XKB_DEFAULT_MODEL", QStringLiteral("pc105")),
                     nameOrDefault("XKB_DEFAULT_LAYOUT", QStringLiteral("us")),
                     nameOrDefault("XKB_DEFAULT_VARIANT", QString()),
                     nameOrDefault("XKB_DEFAULT_OPTIONS", QString())};
}

std::shared_ptr<const VTKeyboardLayout> VTKeyboardLayout::current()
{
    static std::mutex mutex;
    static std::optional<RuleNames> cachedNames;
    static std::shared_ptr<const VTKeyboardLayout> cached;

    const RuleNames names = desktopRuleNames();
    std::lock_guard<std::mutex> lock(mutex);
    // Compiling takes tens of milliseconds; a failure is remembered as well.
    if (!cachedNames || !(*cachedNames == names)) {
        cached = compile(names);
        cachedNames = names;
    }
    return cached;
}

std::shared_ptr<const VTKeyboardLayout> VTKeyboardLayout::compile(const RuleNames &names)
{
    // The names are complete, so the context must not fill them in from the environment.
    xkb_context *context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (!context) {
        return nullptr;
    }
    xkb_context_set_log_fn(context, logToVTLog);

    const QByteArray rules = names.rules.toUtf8();
    const QByteArray model = names.model.toUtf8();
    const QByteArray layout = names.layout.toUtf8();
    const QByteArray variant = names.variant.toUtf8();
    const QByteArray options = names.options.toUtf8();
    const xkb_rule_names ruleNames{rules.constData(), model.constData(), layout.constData(),
                                   variant.constData(), options.constData()};
    xkb_keymap *keymap =
        xkb_keymap_new_from_names(context, &ruleNames, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap) {
        xkb_context_unref(context);
        return nullptr;
    }
    return std::shared_ptr<const VTKeyboardLayout>(new VTKeyboardLayout(names, context, keymap));
}

VTKeyboardLayout::VTKeyboardLayout(RuleNames names, xkb_context *context, xkb_keymap *keymap)
    : m_names(std::move(names)), m_context(context), m_keymap(keymap)
{}

VTKeyboardLayout::~VTKeyboardLayout()
{
    xkb_keymap_unref(m_keymap);
    xkb_context_unref(m_context);
}

VTKeyboardLayout::Translation VTKeyboardLayout::translate(quint32 xkbKeycode,
                                                          quint32 modifierFlags) const
{
    Translation result;
    if (xkbKeycode < xkb_keymap_min_keycode(m_keymap) ||
        xkbKeycode > xkb_keymap_max_keycode(m_keymap) ||
        !xkb_keymap_key_get_name(m_keymap, xkbKeycode)) {
        result.status = kKeycodeNotInKeymap;
        result.errorName = QStringLiteral("xkb_keymap_key_get_name");
        result.errorComment = QStringLiteral("Key code %1 is not part of the keyboard layout %2")
                                  .arg(xkbKeycode)
                                  .arg(m_names.layout);
        return result;
    }

    xkb_state *state = xkb_state_new(m_keymap);
    if (!state) {
        result.status = kNoKeyboardState;
        result.errorName = QStringLiteral("xkb_state_new");
        result.errorComment = QStringLiteral("Unable to create a keyboard state");
        return result;
    }
    xkb_mod_mask_t depressed = 0;
    if (modifierFlags & 0x200) {
        depressed |= modBit(m_keymap, XKB_MOD_NAME_SHIFT);
    }
    if (modifierFlags & 0x800) {
        depressed |= modBit(m_keymap, "Mod5");
    }
    if (modifierFlags & 0x1000) {
        depressed |= modBit(m_keymap, XKB_MOD_NAME_CTRL);
    }
    xkb_mod_mask_t locked = modBit(m_keymap, XKB_MOD_NAME_NUM);
    if (modifierFlags & 0x400) {
        locked |= modBit(m_keymap, XKB_MOD_NAME_CAPS);
    }
    xkb_state_update_mask(state, depressed, 0, locked, 0, 0, 0);

    const xkb_keysym_t keysym = xkb_state_key_get_one_sym(state, xkbKeycode);
    if (const char32_t mac = macCharacterForKeysym(keysym)) {
        result.characters = QString::fromUcs4(&mac, 1);
    } else {
        char buffer[256];
        if (xkb_state_key_get_utf8(state, xkbKeycode, buffer, sizeof buffer) > 0) {
            result.characters = QString::fromUtf8(buffer);
        } else if (keysym != XKB_KEY_NoSymbol &&
                   xkb_keysym_get_name(keysym, buffer, sizeof buffer) > 0) {
            result.characters = QString::fromUtf8(buffer);
        }
    }
    xkb_state_unref(state);
    return result;
}
