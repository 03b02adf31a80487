#include "VTFormat.h"

#include "platform/PlistValue.h"

#include <cstdio>

VTFormatArg::VTFormatArg(const PlistValue &value)
{
    switch (value.type()) {
    case PlistValue::Type::String:
        m_value = value.string();
        break;
    case PlistValue::Type::Integer:
    case PlistValue::Type::Boolean:
        m_value = static_cast<long long>(value.integerValue());
        break;
    case PlistValue::Type::Real:
        m_value = value.doubleValue();
        break;
    default:
        m_value = value.description();
    }
}

QString VTFormatArg::text() const
{
    if (const auto *s = std::get_if<QString>(&m_value)) {
        return *s;
    }
    if (const auto *i = std::get_if<long long>(&m_value)) {
        return QString::number(*i);
    }
    if (const auto *u = std::get_if<unsigned long long>(&m_value)) {
        return QString::number(*u);
    }
    return QString::number(std::get<double>(m_value), 'g', QLocale::FloatingPointShortest);
}

long long VTFormatArg::toInteger() const
{
    if (const auto *i = std::get_if<long long>(&m_value)) {
        return *i;
    }
    if (const auto *u = std::get_if<unsigned long long>(&m_value)) {
        return static_cast<long long>(*u);
    }
    if (const auto *d = std::get_if<double>(&m_value)) {
        return static_cast<long long>(*d);
    }
    return PlistValue(std::get<QString>(m_value)).integerValue();
}

unsigned long long VTFormatArg::toUnsigned() const
{
    if (const auto *u = std::get_if<unsigned long long>(&m_value)) {
        return *u;
    }
    return static_cast<unsigned long long>(toInteger());
}

double VTFormatArg::toDouble() const
{
    if (const auto *d = std::get_if<double>(&m_value)) {
        return *d;
    }
    if (const auto *s = std::get_if<QString>(&m_value)) {
        return PlistValue(*s).doubleValue();
    }
    return static_cast<double>(toInteger());
}

namespace {

QString printfNumber(const QByteArray &directive, const char *length, char conversion,
                     const VTFormatArg &arg)
{
    const QByteArray fmt = directive + length + conversion;
    char buffer[512];
    int n = 0;
    switch (conversion) {
    case 'd':
    case 'i':
        n = std::snprintf(buffer, sizeof buffer, fmt.constData(), arg.toInteger());
        break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
        n = std::snprintf(buffer, sizeof buffer, fmt.constData(), arg.toUnsigned());
        break;
    default:
        n = std::snprintf(buffer, sizeof buffer, fmt.constData(), arg.toDouble());
    }
    if (n < 0) {
        return QString();
    }
    return QString::fromLatin1(buffer, std::min<int>(n, static_cast<int>(sizeof buffer) - 1));
}

QString pad(const QString &text, int width, bool left)
{
    if (width <= text.size()) {
        return text;
    }
    const QString fill(width - text.size(), QLatin1Char(' '));
    return left ? text + fill : fill + text;
}

} // namespace

QString VTFormat::format(const QString &format, std::initializer_list<VTFormatArg> args)
{
    QString out;
    out.reserve(format.size() + 32);
    auto next = args.begin();
    const int n = format.size();
    for (int i = 0; i < n; ++i) {
        const QChar c = format[i];
        if (c != QLatin1Char('%')) {
            out += c;
            continue;
        }
        const int start = i;
        int j = i + 1;
        QByteArray directive("%");
        bool leftAlign = false;
        while (j < n && QByteArrayView("-+ #0").contains(static_cast<char>(format[j].unicode()))) {
            leftAlign = leftAlign || format[j] == QLatin1Char('-');
            directive += static_cast<char>(format[j].unicode());
            ++j;
        }
        int width = 0;
        while (j < n && format[j].isDigit() && format[j].unicode() < 128) {
            width = std::min(width * 10 + (format[j].unicode() - '0'), 4096);
            directive += static_cast<char>(format[j].unicode());
            ++j;
        }
        int precision = -1;
        if (j < n && format[j] == QLatin1Char('.')) {
            directive += '.';
            ++j;
            precision = 0;
            while (j < n && format[j].isDigit() && format[j].unicode() < 128) {
                precision = std::min(precision * 10 + (format[j].unicode() - '0'), 4096);
                directive += static_cast<char>(format[j].unicode());
                ++j;
            }
        }
        while (j < n &&
               QByteArrayView("hlqLzjt").contains(static_cast<char>(format[j].unicode()))) {
            ++j;
        }
        if (j >= n) {
            out += format.mid(start);
            break;
        }
        const char conversion =
            format[j].unicode() < 128 ? static_cast<char>(format[j].unicode()) : '\0';
        if (conversion == '%') {
            out += QLatin1Char('%');
            i = j;
            continue;
        }
        const bool known =
            conversion != '\0' && QByteArrayView("@sdiuxXocfFeEgGaA").contains(conversion);
        if (!known || next == args.end()) {
            // Unknown directives and directives without an argument stay as written.
            out += format.mid(start, j - start + 1);
            i = j;
            continue;
        }
        const VTFormatArg &arg = *next++;
        switch (conversion) {
        case '@':
            out += arg.text();
            break;
        case 's': {
            QString text = arg.text();
            if (precision >= 0) {
                text.truncate(precision);
            }
            out += pad(text, width, leftAlign);
            break;
        }
        case 'c':
            out += pad(QString(QChar(static_cast<char16_t>(arg.toInteger()))), width, leftAlign);
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            out += printfNumber(directive, "ll", conversion, arg);
            break;
        default:
            out += printfNumber(directive, "", conversion, arg);
        }
        i = j;
    }
    return out;
}
