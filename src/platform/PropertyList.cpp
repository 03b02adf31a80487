#include "PropertyList.h"

#include <QFile>
#include <QSaveFile>
#include <QTimeZone>

#include <plist/plist.h>

#include <limits>
#include <memory>

namespace {

// Seconds between the Unix epoch and the property-list epoch (2001-01-01 00:00:00 UTC).
constexpr qint64 kPlistEpochOffset = 978307200;
// Deeper nesting than this is treated as malformed: no real property list comes close,
// and the converters below recurse once per level.
constexpr int kMaxDepth = 256;

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// The XML reader of libplist recurses once per nesting level; refuse absurd nesting before
// handing the text over, so a hostile file cannot exhaust the stack.
bool xmlNestingWithinLimit(const QByteArray &bytes)
{
    int depth = 0;
    const char *p = bytes.constData();
    const char *end = p + bytes.size();
    while (p < end) {
        p = static_cast<const char *>(memchr(p, '<', static_cast<size_t>(end - p)));
        if (!p) {
            break;
        }
        ++p;
        const bool closing = p < end && *p == '/';
        const char *name = closing ? p + 1 : p;
        const auto starts = [&](const char *word, size_t len) {
            return static_cast<size_t>(end - name) > len && memcmp(name, word, len) == 0 &&
                   (name[len] == '>' || name[len] == ' ' || name[len] == '\t' ||
                    name[len] == '\n' || name[len] == '\r');
        };
        if (starts("array", 5) || starts("dict", 4)) {
            // A self-closing <array/> opens nothing.
            const char *close = static_cast<const char *>(memchr(name, '>', static_cast<size_t>(end - name)));
            const bool selfClosing = close && close > name && close[-1] == '/';
            if (closing) {
                --depth;
            } else if (!selfClosing && ++depth > kMaxDepth) {
                return false;
            }
        }
    }
    return true;
}

std::optional<PlistValue> fromNode(plist_t node, int depth)
{
    if (!node || depth > kMaxDepth) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return PlistValue(b != 0);
    }
    case PLIST_UINT: {
        uint64_t u = 0;
        plist_get_uint_val(node, &u);
        return PlistValue(static_cast<qint64>(u));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return PlistValue(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t len = 0;
        const char *s = plist_get_string_ptr(node, &len);
        if (!s) {
            char *copy = nullptr;
            plist_get_string_val(node, &copy);
            PlistValue v(QString::fromUtf8(copy ? copy : ""));
            free(copy);
            return v;
        }
        return PlistValue(QString::fromUtf8(s, static_cast<qsizetype>(len)));
    }
    case PLIST_DATA: {
        uint64_t len = 0;
        const char *d = plist_get_data_ptr(node, &len);
        return PlistValue(QByteArray(d, static_cast<qsizetype>(len)));
    }
    case PLIST_DATE: {
        int32_t sec = 0;
        int32_t usec = 0;
        plist_get_date_val(node, &sec, &usec);
        const qint64 ms = (static_cast<qint64>(sec) + kPlistEpochOffset) * 1000 + usec / 1000;
        return PlistValue(QDateTime::fromMSecsSinceEpoch(ms, QTimeZone::utc()));
    }
    case PLIST_ARRAY: {
        const uint32_t n = plist_array_get_size(node);
        PlistArray array;
        array.reserve(n);
        for (uint32_t i = 0; i < n; ++i) {
            auto item = fromNode(plist_array_get_item(node, i), depth + 1);
            if (!item) {
                return std::nullopt;
            }
            array.push_back(std::move(*item));
        }
        return PlistValue(std::move(array));
    }
    case PLIST_DICT: {
        PlistDict dict;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        if (!it) {
            return PlistValue(std::move(dict));
        }
        for (;;) {
            char *key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, it, &key, &item);
            if (!item) {
                free(key);
                break;
            }
            auto value = fromNode(item, depth + 1);
            const QString k = QString::fromUtf8(key ? key : "");
            free(key);
            if (!value) {
                free(it);
                return std::nullopt;
            }
            dict.insert(k, *value);
        }
        free(it);
        return PlistValue(std::move(dict));
    }
    default:
        return std::nullopt;
    }
}

plist_t toNode(const PlistValue &value)
{
    switch (value.type()) {
    case PlistValue::Type::String:
        return plist_new_string(value.string().toUtf8().constData());
    case PlistValue::Type::Integer:
        return plist_new_uint(static_cast<uint64_t>(value.integerValue()));
    case PlistValue::Type::Real:
        return plist_new_real(value.doubleValue());
    case PlistValue::Type::Boolean:
        return plist_new_bool(value.boolValue() ? 1 : 0);
    case PlistValue::Type::Date: {
        const qint64 ms = value.date().toMSecsSinceEpoch() - kPlistEpochOffset * 1000;
        qint64 sec = ms / 1000;
        qint64 rem = ms % 1000;
        if (rem < 0) {
            rem += 1000;
            --sec;
        }
        sec = std::clamp<qint64>(sec, std::numeric_limits<int32_t>::min(),
                                 std::numeric_limits<int32_t>::max());
        return plist_new_date(static_cast<int32_t>(sec), static_cast<int32_t>(rem * 1000));
    }
    case PlistValue::Type::Data: {
        const QByteArray d = value.data();
        return plist_new_data(d.constData(), static_cast<uint64_t>(d.size()));
    }
    case PlistValue::Type::Array: {
        plist_t node = plist_new_array();
        for (const PlistValue &item : value.array()) {
            if (plist_t child = toNode(item)) {
                plist_array_append_item(node, child);
            }
        }
        return node;
    }
    case PlistValue::Type::Dictionary: {
        plist_t node = plist_new_dict();
        for (const auto &entry : value.dict()) {
            if (plist_t child = toNode(entry.value)) {
                plist_dict_set_item(node, entry.key.toUtf8().constData(), child);
            }
        }
        return node;
    }
    case PlistValue::Type::None:
        break;
    }
    return nullptr;
}

} // namespace

std::optional<PlistValue> PropertyList::parse(const QByteArray &bytes)
{
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
    }
    const bool binary =
        plist_is_binary(bytes.constData(), static_cast<uint32_t>(bytes.size())) != 0;
    if (!binary && !xmlNestingWithinLimit(bytes)) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), static_cast<uint32_t>(bytes.size()), &root);
    PlistPtr guard(root);
    if (!root) {
        return std::nullopt;
    }
    return fromNode(root, 0);
}

std::optional<PlistValue> PropertyList::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return parse(file.readAll());
}

std::optional<PlistDict> PropertyList::readDictionary(const QString &path)
{
    auto value = read(path);
    if (!value || !value->isDictionary()) {
        return std::nullopt;
    }
    return value->dict();
}

std::optional<PlistArray> PropertyList::readArray(const QString &path)
{
    auto value = read(path);
    if (!value || !value->isArray()) {
        return std::nullopt;
    }
    return value->array();
}

QByteArray PropertyList::toXml(const PlistValue &value)
{
    PlistPtr root(toNode(value));
    if (!root) {
        return QByteArray();
    }
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(root.get()), &xml, &length);
    QByteArray out(xml, static_cast<qsizetype>(length));
    plist_to_xml_free(xml);
    return out;
}

bool PropertyList::writeXml(const PlistValue &value, const QString &path, QString *error)
{
    const QByteArray xml = toXml(value);
    if (xml.isEmpty()) {
        if (error) {
            *error = QStringLiteral("The value cannot be written as a property list.");
        }
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size() || !file.commit()) {
        if (error) {
            *error = file.errorString();
        }
        return false;
    }
    return true;
}
