#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include <memory>
#include <variant>
#include <vector>

class PlistDict;
class PlistValue;
using PlistArray = std::vector<PlistValue>;

// One property-list value: string, integer, real, boolean, date, data, array or dictionary.
// A default-constructed value is "no value". Arrays and dictionaries are shared until one
// copy is changed, so passing values around is cheap.
class PlistValue
{
public:
    enum class Type
    {
        None,
        String,
        Integer,
        Real,
        Boolean,
        Date,
        Data,
        Array,
        Dictionary
    };

    PlistValue() = default;
    PlistValue(const QString &string);
    PlistValue(const char *utf8);
    PlistValue(int integer);
    PlistValue(qint64 integer);
    PlistValue(quint64 integer);
    PlistValue(double real);
    PlistValue(bool boolean);
    PlistValue(const QDateTime &date);
    PlistValue(const QByteArray &data);
    PlistValue(const PlistArray &array);
    PlistValue(PlistArray &&array);
    PlistValue(const PlistDict &dict);
    PlistValue(PlistDict &&dict);
    PlistValue(const QStringList &strings);

    Type type() const;
    bool isValid() const { return type() != Type::None; }
    bool isString() const { return type() == Type::String; }
    bool isInteger() const { return type() == Type::Integer; }
    bool isReal() const { return type() == Type::Real; }
    bool isBoolean() const { return type() == Type::Boolean; }
    // A number object: integer, real or boolean.
    bool isNumber() const;
    bool isDate() const { return type() == Type::Date; }
    bool isData() const { return type() == Type::Data; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }

    // Exact accessors: the stored value, or an empty one of the asked type.
    QString string() const;
    QDateTime date() const;
    QByteArray data() const;
    const PlistArray &array() const;
    const PlistDict &dict() const;
    PlistArray &mutableArray();
    PlistDict &mutableDict();

    // Number-object and string conversions with Foundation's rules: intValue of a string
    // reads an optional sign and digits after leading blanks; boolValue of a string is true
    // for a leading Y, y, T, t or a non-zero integer.
    qint64 integerValue() const;
    double doubleValue() const;
    bool boolValue() const;
    // "The string '1' or the boolean true": the rule of the maker's global switches.
    bool isSwitchOn() const;
    // A string array's strings; non-strings are skipped.
    QStringList stringList() const;
    // Number equality as number objects compare (1 equals YES), otherwise exact equality.
    bool numberEquals(qint64 number) const;

    // Text of the value as a message inserts it for %@ (the old-style description).
    QString description() const;

    bool operator==(const PlistValue &other) const;
    bool operator!=(const PlistValue &other) const { return !(*this == other); }

private:
    using Storage =
        std::variant<std::monostate, QString, qint64, double, bool, QDateTime, QByteArray,
                     std::shared_ptr<PlistArray>, std::shared_ptr<PlistDict>>;
    Storage m_value;
};
