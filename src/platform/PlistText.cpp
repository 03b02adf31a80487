#include "PlistText.h"

#include "PlistDict.h"

#include <QTimeZone>

#include <algorithm>

namespace {

QString indent(int level)
{
    return QString(level * 4, QLatin1Char(' '));
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
    if (isPlainWord(string)) {
        return string;
    }
    QString out;
    out.reserve(string.size() + 2);
    out += QLatin1Char('"');
    for (QChar c : string) {
        const char16_t u = c.unicode();
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
        default:
            if (u < 0x20 || u >= 0x7f) {
                out += QStringLiteral("\\U%1").arg(static_cast<uint>(u), 4, 16, QLatin1Char('0'));
            } else {
                out += c;
            }
        }
    }
    out += QLatin1Char('"');
    return out;
}

void PlistText::append(QString &out, const PlistValue &value, int level)
{
    switch (value.type()) {
    case PlistValue::Type::None:
        out += QLatin1String("(null)");
        break;
    case PlistValue::Type::String:
        out += quoted(value.string());
        break;
    case PlistValue::Type::Integer:
    case PlistValue::Type::Boolean:
        out += QString::number(value.integerValue());
        break;
    case PlistValue::Type::Real:
        out += QString::number(value.doubleValue(), 'g', QLocale::FloatingPointShortest);
        break;
    case PlistValue::Type::Date:
        out += quoted(dateText(value.date()));
        break;
    case PlistValue::Type::Data:
        out += QLatin1Char('<') + QString::fromLatin1(value.data().toHex()) + QLatin1Char('>');
        break;
    case PlistValue::Type::Array: {
        out += QLatin1String("(\n");
        const PlistArray &array = value.array();
        for (size_t i = 0; i < array.size(); ++i) {
            out += indent(level + 1);
            // A nested container is set off by its own indentation here as well.
            if (array[i].isArray() || array[i].isDictionary()) {
                out += indent(level + 1);
            }
            append(out, array[i], level + 1);
            out += i + 1 < array.size() ? QLatin1String(",\n") : QLatin1String("\n");
        }
        out += indent(level) + QLatin1Char(')');
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
            out += indent(level + 1) + quoted(entry->key) + QLatin1String(" = ");
            // Nested containers start on the same line, set off by their own indentation,
            // the way a dictionary has always described itself.
            if (entry->value.isArray() || entry->value.isDictionary()) {
                out += indent(level + 1);
            }
            append(out, entry->value, level + 1);
            out += QLatin1String(";\n");
        }
        out += indent(level) + QLatin1Char('}');
        break;
    }
    }
}

QString PlistText::render(const PlistValue &value)
{
    QString out;
    append(out, value, 0);
    return out;
}
