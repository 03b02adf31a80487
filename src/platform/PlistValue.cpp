#include "PlistValue.h"

#include "PlistDict.h"
#include "PlistText.h"

#include <cmath>

namespace {

const PlistArray &emptyArray()
{
    static const PlistArray empty;
    return empty;
}

const PlistDict &emptyDict()
{
    static const PlistDict empty;
    return empty;
}

// Foundation's intValue of a string: leading blanks, an optional sign, then digits up to
// the first non-digit; no digits give 0. Saturates instead of overflowing.
qint64 leadingInteger(const QString &text)
{
    int i = 0;
    const int n = text.size();
    while (i < n && (text[i] == QLatin1Char(' ') || text[i] == QLatin1Char('\t') ||
                     text[i] == QLatin1Char('\n') || text[i] == QLatin1Char('\r'))) {
        ++i;
    }
    bool negative = false;
    if (i < n && (text[i] == QLatin1Char('-') || text[i] == QLatin1Char('+'))) {
        negative = text[i] == QLatin1Char('-');
        ++i;
    }
    qint64 value = 0;
    for (; i < n && text[i].isDigit() && text[i].unicode() < 128; ++i) {
        const int digit = text[i].unicode() - '0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10) {
            return negative ? std::numeric_limits<qint64>::min()
                            : std::numeric_limits<qint64>::max();
        }
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

} // namespace

PlistValue::PlistValue(const QString &string) : m_value(string) {}
PlistValue::PlistValue(const char *utf8) : m_value(QString::fromUtf8(utf8)) {}
PlistValue::PlistValue(int integer) : m_value(static_cast<qint64>(integer)) {}
PlistValue::PlistValue(qint64 integer) : m_value(integer) {}
PlistValue::PlistValue(quint64 integer) : m_value(static_cast<qint64>(integer)) {}
PlistValue::PlistValue(double real) : m_value(real) {}
PlistValue::PlistValue(bool boolean) : m_value(boolean) {}
PlistValue::PlistValue(const QDateTime &date) : m_value(date) {}
PlistValue::PlistValue(const QByteArray &data) : m_value(data) {}
PlistValue::PlistValue(const PlistArray &array) : m_value(std::make_shared<PlistArray>(array)) {}
PlistValue::PlistValue(PlistArray &&array) : m_value(std::make_shared<PlistArray>(std::move(array)))
{}
PlistValue::PlistValue(const PlistDict &dict) : m_value(std::make_shared<PlistDict>(dict)) {}
PlistValue::PlistValue(PlistDict &&dict) : m_value(std::make_shared<PlistDict>(std::move(dict))) {}

PlistValue::PlistValue(const QStringList &strings)
{
    PlistArray array;
    array.reserve(static_cast<size_t>(strings.size()));
    for (const QString &s : strings) {
        array.emplace_back(s);
    }
    m_value = std::make_shared<PlistArray>(std::move(array));
}

PlistValue::Type PlistValue::type() const
{
    return static_cast<Type>(m_value.index());
}

bool PlistValue::isNumber() const
{
    const Type t = type();
    return t == Type::Integer || t == Type::Real || t == Type::Boolean;
}

QString PlistValue::string() const
{
    if (const auto *s = std::get_if<QString>(&m_value)) {
        return *s;
    }
    return QString();
}

QDateTime PlistValue::date() const
{
    if (const auto *d = std::get_if<QDateTime>(&m_value)) {
        return *d;
    }
    return QDateTime();
}

QByteArray PlistValue::data() const
{
    if (const auto *d = std::get_if<QByteArray>(&m_value)) {
        return *d;
    }
    return QByteArray();
}

const PlistArray &PlistValue::array() const
{
    if (const auto *a = std::get_if<std::shared_ptr<PlistArray>>(&m_value)) {
        return **a;
    }
    return emptyArray();
}

const PlistDict &PlistValue::dict() const
{
    if (const auto *d = std::get_if<std::shared_ptr<PlistDict>>(&m_value)) {
        return **d;
    }
    return emptyDict();
}

PlistArray &PlistValue::mutableArray()
{
    auto *a = std::get_if<std::shared_ptr<PlistArray>>(&m_value);
    if (!a) {
        m_value = std::make_shared<PlistArray>();
        a = std::get_if<std::shared_ptr<PlistArray>>(&m_value);
    } else if (a->use_count() > 1) {
        *a = std::make_shared<PlistArray>(**a);
    }
    return **a;
}

PlistDict &PlistValue::mutableDict()
{
    auto *d = std::get_if<std::shared_ptr<PlistDict>>(&m_value);
    if (!d) {
        m_value = std::make_shared<PlistDict>();
        d = std::get_if<std::shared_ptr<PlistDict>>(&m_value);
    } else if (d->use_count() > 1) {
        *d = std::make_shared<PlistDict>(**d);
    }
    return **d;
}

qint64 PlistValue::integerValue() const
{
    switch (type()) {
    case Type::Integer:
        return std::get<qint64>(m_value);
    case Type::Real: {
        const double d = std::get<double>(m_value);
        if (std::isnan(d)) {
            return 0;
        }
        if (d >= 9.2233720368547758e18) {
            return std::numeric_limits<qint64>::max();
        }
        if (d <= -9.2233720368547758e18) {
            return std::numeric_limits<qint64>::min();
        }
        return static_cast<qint64>(d);
    }
    case Type::Boolean:
        return std::get<bool>(m_value) ? 1 : 0;
    case Type::String:
        return leadingInteger(std::get<QString>(m_value));
    default:
        return 0;
    }
}

double PlistValue::doubleValue() const
{
    switch (type()) {
    case Type::Integer:
        return static_cast<double>(std::get<qint64>(m_value));
    case Type::Real:
        return std::get<double>(m_value);
    case Type::Boolean:
        return std::get<bool>(m_value) ? 1.0 : 0.0;
    case Type::String: {
        bool ok = false;
        const double d = std::get<QString>(m_value).trimmed().toDouble(&ok);
        return ok ? d : static_cast<double>(integerValue());
    }
    default:
        return 0.0;
    }
}

bool PlistValue::boolValue() const
{
    switch (type()) {
    case Type::Boolean:
        return std::get<bool>(m_value);
    case Type::Integer:
        return std::get<qint64>(m_value) != 0;
    case Type::Real:
        return std::get<double>(m_value) != 0.0;
    case Type::String: {
        const QString s = std::get<QString>(m_value).trimmed();
        if (s.isEmpty()) {
            return false;
        }
        const QChar c = s.front();
        if (c == QLatin1Char('Y') || c == QLatin1Char('y') || c == QLatin1Char('T') ||
            c == QLatin1Char('t')) {
            return true;
        }
        return leadingInteger(s) != 0;
    }
    default:
        return false;
    }
}

bool PlistValue::isSwitchOn() const
{
    if (isString()) {
        return string() == QLatin1String("1");
    }
    return isNumber() && numberEquals(1);
}

QStringList PlistValue::stringList() const
{
    QStringList out;
    for (const PlistValue &v : array()) {
        if (v.isString()) {
            out.append(v.string());
        }
    }
    return out;
}

bool PlistValue::numberEquals(qint64 number) const
{
    switch (type()) {
    case Type::Integer:
        return std::get<qint64>(m_value) == number;
    case Type::Boolean:
        return (std::get<bool>(m_value) ? 1 : 0) == number;
    case Type::Real:
        return std::get<double>(m_value) == static_cast<double>(number);
    default:
        return false;
    }
}

QString PlistValue::description() const
{
    return PlistText::render(*this);
}

bool PlistValue::operator==(const PlistValue &other) const
{
    if (isNumber() && other.isNumber()) {
        if (isReal() || other.isReal()) {
            return doubleValue() == other.doubleValue();
        }
        return integerValue() == other.integerValue();
    }
    if (type() != other.type()) {
        return false;
    }
    switch (type()) {
    case Type::None:
        return true;
    case Type::String:
        return string() == other.string();
    case Type::Date:
        return date() == other.date();
    case Type::Data:
        return data() == other.data();
    case Type::Array:
        return array() == other.array();
    case Type::Dictionary:
        return dict() == other.dict();
    default:
        return false;
    }
}
