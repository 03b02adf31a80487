#include "PlistText.h"

#include "PlistDict.h"

#include <QTimeZone>

#include <algorithm>

namespace {

// Characters gathered before a piece goes to the sink: large enough that the pieces cost
// few writes, small enough to stay in cache.
constexpr qsizetype kPieceSize = 16 * 1024;

void flushPiece(QString &out, const PlistText::Sink *sink)
{
    if (sink && out.size() >= kPieceSize) {
        (*sink)(out);
        out.resize(0); // keeps the buffer for the next piece
    }
}

void appendIndent(QString &out, int level)
{
    for (int i = 0; i < level; ++i) {
        out += QLatin1String("    ");
    }
}

// Characters that may stand unquoted in old-style text.
bool isPlainWord(const QString &s)
{
    if (s.isEmpty()) {
        return false;
    }
    for (QChar c : s) {
        const char16_t u = c.unicode();
        const bool ok = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') ||
                        (u >= '0' && u <= '9') || u == '_' || u == '$' || u == '.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

QString dateText(const QDateTime &date)
{
    return date.toTimeZone(QTimeZone::utc()).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) +
           QStringLiteral(" +0000");
}

} // namespace

QString PlistText::quoted(const QString &string)
{
    QString out;
    appendQuoted(out, string);
    return out;
}

void PlistText::appendQuoted(QString &out, const QString &string)
{
    if (isPlainWord(string)) {
        out += string;
        return;
    }
    out += QLatin1Char('"');
    // Runs of characters that need no escape are copied whole: paths are long and plain.
    const QChar *data = string.constData();
    const qsizetype size = string.size();
    qsizetype run = 0;
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t u = data[i].unicode();
        if (u >= 0x20 && u < 0x7f && u != '"' && u != '\\') {
            continue;
        }
        out.append(data + run, i - run);
        run = i + 1;
        switch (u) {
        case '"':
            out += QLatin1String("\\\"");
            break;
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        default: {
            static const char hex[] = "0123456789abcdef";
            out += QLatin1String("\\U");
            for (int shift = 12; shift >= 0; shift -= 4) {
                out += QLatin1Char(hex[(u >> shift) & 0xf]);
            }
        }
        }
    }
    out.append(data + run, size - run);
    out += QLatin1Char('"');
}

void PlistText::append(QString &out, const PlistValue &value, int level, const Sink *sink)
{
    switch (value.type()) {
    case PlistValue::Type::None:
        out += QLatin1String("(null)");
        break;
    case PlistValue::Type::String:
        appendQuoted(out, value.string());
        break;
    case PlistValue::Type::Integer:
    case PlistValue::Type::Boolean:
        out += QString::number(value.integerValue());
        break;
    case PlistValue::Type::Real:
        out += QString::number(value.doubleValue(), 'g', QLocale::FloatingPointShortest);
        break;
    case PlistValue::Type::Date:
        appendQuoted(out, dateText(value.date()));
        break;
    case PlistValue::Type::Data:
        out += QLatin1Char('<') + QString::fromLatin1(value.data().toHex()) + QLatin1Char('>');
        break;
    case PlistValue::Type::Array: {
        out += QLatin1String("(\n");
        const PlistArray &array = value.array();
        for (size_t i = 0; i < array.size(); ++i) {
            appendIndent(out, level + 1);
            // A nested container is set off by its own indentation here as well.
            if (array[i].isArray() || array[i].isDictionary()) {
                appendIndent(out, level + 1);
            }
            append(out, array[i], level + 1, nullptr);
            out += i + 1 < array.size() ? QLatin1String(",\n") : QLatin1String("\n");
            flushPiece(out, sink);
        }
        appendIndent(out, level);
        out += QLatin1Char(')');
        break;
    }
    case PlistValue::Type::Dictionary: {
        const PlistDict &dict = value.dict();
        std::vector<const PlistDict::Entry *> sorted;
        sorted.reserve(static_cast<size_t>(dict.size()));
        for (const auto &entry : dict) {
            sorted.push_back(&entry);
        }
        std::sort(
            sorted.begin(), sorted.end(),
            [](const PlistDict::Entry *a, const PlistDict::Entry *b) { return a->key < b->key; });
        out += QLatin1String("{\n");
        for (const PlistDict::Entry *entry : sorted) {
            appendIndent(out, level + 1);
            appendQuoted(out, entry->key);
            out += QLatin1String(" = ");
            // Nested containers start on the same line, set off by their own indentation,
            // the way a dictionary has always described itself.
            if (entry->value.isArray() || entry->value.isDictionary()) {
                appendIndent(out, level + 1);
            }
            append(out, entry->value, level + 1, nullptr);
            out += QLatin1String(";\n");
            flushPiece(out, sink);
        }
        appendIndent(out, level);
        out += QLatin1Char('}');
        break;
    }
    }
}

QString PlistText::render(const PlistValue &value)
{
    QString out;
    out.reserve(4096);
    append(out, value, 0, nullptr);
    return out;
}

void PlistText::write(const PlistValue &value, const Sink &sink)
{
    QString out;
    out.reserve(kPieceSize + 4096);
    append(out, value, 0, &sink);
    if (!out.isEmpty()) {
        sink(out);
    }
}
