#include "PlistXmlReader.h"

#include "FileNames.h"
#include "PlistDict.h"

#include <QHash>

#include <cstring>

namespace {

// As deep as the general reader goes.
constexpr int kMaxDepth = 256;

class Cursor
{
public:
    Cursor(const char *p, const char *end) : m_p(p), m_end(end) {}

    void skipSpace()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n')) {
            ++m_p;
        }
    }

    bool atEnd() const { return m_p == m_end; }

    // Takes the literal text when it comes next.
    bool take(const char *literal, size_t length)
    {
        if (static_cast<size_t>(m_end - m_p) < length || memcmp(m_p, literal, length) != 0) {
            return false;
        }
        m_p += length;
        return true;
    }
    template <size_t N>
    bool take(const char (&literal)[N])
    {
        return take(literal, N - 1);
    }

    // Skips a quoted literal: "...".
    bool skipQuoted()
    {
        if (m_p == m_end || *m_p != '"') {
            return false;
        }
        const char *close = static_cast<const char *>(memchr(m_p + 1, '"', m_end - m_p - 1));
        if (!close) {
            return false;
        }
        m_p = close + 1;
        return true;
    }

    // The text up to the next '<', its entities replaced; false for markup the general
    // reader might read differently.
    bool text(QByteArray *out)
    {
        const char *start = m_p;
        const void *at = memchr(m_p, '<', static_cast<size_t>(m_end - m_p));
        if (!at) {
            return false;
        }
        m_p = static_cast<const char *>(at);
        const char *amp = static_cast<const char *>(memchr(start, '&', m_p - start));
        if (!amp) {
            *out = QByteArray::fromRawData(start, m_p - start);
            return true;
        }
        QByteArray decoded(start, amp - start);
        for (const char *q = amp; q < m_p;) {
            if (*q != '&') {
                decoded += *q++;
                continue;
            }
            static const struct
            {
                const char *name;
                char c;
            } entities[] = {
                {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
            bool known = false;
            for (const auto &entity : entities) {
                const size_t length = strlen(entity.name);
                if (static_cast<size_t>(m_p - q) >= length && memcmp(q, entity.name, length) == 0) {
                    decoded += entity.c;
                    q += length;
                    known = true;
                    break;
                }
            }
            if (!known) {
                return false;
            }
        }
        *out = decoded;
        return true;
    }

private:
    const char *m_p;
    const char *m_end;
};

} // namespace

QString PlistXmlReader::dictionaryKey(const QByteArray &bytes)
{
    thread_local QHash<QByteArray, QString> known;
    const auto it = known.constFind(bytes);
    if (it != known.constEnd()) {
        return *it;
    }
    QString key = QString::fromUtf8(bytes);
    if (bytes.size() <= 64) {
        if (known.size() >= 1024) {
            known.clear();
        }
        known.insert(QByteArray(bytes.constData(), bytes.size()), key);
    }
    return key;
}

namespace {

std::optional<qint64> decimal(const QByteArray &digits)
{
    const char *p = digits.constData();
    const char *end = p + digits.size();
    const bool negative = p < end && *p == '-';
    if (negative) {
        ++p;
    }
    // Leading zeros, signs, spaces and other bases are read by rules of their own.
    if (p == end || end - p > 18 || (*p == '0' && end - p > 1) || (negative && *p == '0')) {
        return std::nullopt;
    }
    qint64 value = 0;
    for (; p < end; ++p) {
        if (*p < '0' || *p > '9') {
            return std::nullopt;
        }
        value = value * 10 + (*p - '0');
    }
    return negative ? -value : value;
}

std::optional<PlistValue> value(Cursor &in, int depth);

std::optional<PlistValue> dictionary(Cursor &in, int depth)
{
    PlistDict dict;
    for (;;) {
        in.skipSpace();
        if (in.take("</dict>")) {
            return PlistValue(std::move(dict));
        }
        QByteArray keyBytes;
        if (!in.take("<key>") || !in.text(&keyBytes) || !in.take("</key>") || keyBytes.isEmpty()) {
            return std::nullopt;
        }
        QString key = PlistXmlReader::dictionaryKey(keyBytes);
        if (dict.contains(key)) {
            return std::nullopt;
        }
        in.skipSpace();
        std::optional<PlistValue> item = value(in, depth + 1);
        if (!item) {
            return std::nullopt;
        }
        dict.insert(std::move(key), std::move(*item));
    }
}

std::optional<PlistValue> array(Cursor &in, int depth)
{
    PlistArray items;
    for (;;) {
        in.skipSpace();
        if (in.take("</array>")) {
            return PlistValue(std::move(items));
        }
        std::optional<PlistValue> item = value(in, depth + 1);
        if (!item) {
            return std::nullopt;
        }
        items.push_back(std::move(*item));
    }
}

std::optional<PlistValue> value(Cursor &in, int depth)
{
    if (depth > kMaxDepth) {
        return std::nullopt;
    }
    QByteArray text;
    if (in.take("<string>")) {
        if (!in.text(&text) || !in.take("</string>")) {
            return std::nullopt;
        }
        // Strings hold paths, which are bytes: kept as they are, also when not UTF-8.
        return PlistValue(FileNames::decode(text));
    }
    if (in.take("<dict>")) {
        return dictionary(in, depth);
    }
    if (in.take("<array>")) {
        return array(in, depth);
    }
    if (in.take("<integer>")) {
        if (!in.text(&text) || !in.take("</integer>")) {
            return std::nullopt;
        }
        const std::optional<qint64> number = decimal(text);
        return number ? std::optional<PlistValue>(PlistValue(*number)) : std::nullopt;
    }
    if (in.take("<true/>")) {
        return PlistValue(true);
    }
    if (in.take("<false/>")) {
        return PlistValue(false);
    }
    if (in.take("<dict/>")) {
        return PlistValue(PlistDict());
    }
    if (in.take("<array/>")) {
        return PlistValue(PlistArray());
    }
    return std::nullopt;
}

} // namespace

std::optional<PlistValue> PlistXmlReader::read(const char *bytes, qsizetype size)
{
    const char *end = bytes + size;
    // Control characters (a carriage return among them, which XML folds) and NUL bytes are
    // left to the general reader.
    for (const char *p = bytes; p < end; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c < 0x20 && c != '\t' && c != '\n') {
            return std::nullopt;
        }
    }
    Cursor in(bytes, end);
    in.skipSpace();
    // Another encoding named here is left to the general reader.
    if (!in.take("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")) {
        in.take("<?xml version=\"1.0\"?>");
    }
    in.skipSpace();
    // Only the usual public identifier and address; an internal subset could declare
    // entities of its own.
    if (in.take("<!DOCTYPE plist PUBLIC ") &&
        !(in.skipQuoted() && in.take(" ") && in.skipQuoted() && in.take(">"))) {
        return std::nullopt;
    }
    in.skipSpace();
    if (!in.take("<plist version=\"1.0\">")) {
        return std::nullopt;
    }
    in.skipSpace();
    std::optional<PlistValue> root = value(in, 0);
    in.skipSpace();
    if (!root || !in.take("</plist>")) {
        return std::nullopt;
    }
    in.skipSpace();
    return in.atEnd() ? root : std::nullopt;
}
