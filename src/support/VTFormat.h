#pragma once

#include <QString>
#include <QStringList>

#include <initializer_list>
#include <variant>

class PlistValue;

// One argument of a message format.
class VTFormatArg
{
public:
    VTFormatArg(const QString &string) : m_value(string) {}
    VTFormatArg(const char *utf8) : m_value(QString::fromUtf8(utf8)) {}
    VTFormatArg(QLatin1String latin1) : m_value(QString(latin1)) {}
    VTFormatArg(int number) : m_value(static_cast<long long>(number)) {}
    VTFormatArg(long number) : m_value(static_cast<long long>(number)) {}
    VTFormatArg(long long number) : m_value(number) {}
    VTFormatArg(unsigned number) : m_value(static_cast<unsigned long long>(number)) {}
    VTFormatArg(unsigned long number) : m_value(static_cast<unsigned long long>(number)) {}
    VTFormatArg(unsigned long long number) : m_value(number) {}
    VTFormatArg(double number) : m_value(number) {}
    VTFormatArg(bool boolean) : m_value(static_cast<long long>(boolean ? 1 : 0)) {}
    VTFormatArg(const PlistValue &value);

    // The text that %@ and %s insert.
    QString text() const;
    long long toInteger() const;
    unsigned long long toUnsigned() const;
    double toDouble() const;

private:
    std::variant<QString, long long, unsigned long long, double> m_value;
};

// printf-style message formats with %@ for objects, as the system's messages are written:
// %@ %s %d %i %u %ld %lld %x %X %o %c %f %e %g with flags, width and precision, and %%.
// A directive without an argument is left in the text as it stands.
class VTFormat
{
public:
    static QString format(const QString &format, std::initializer_list<VTFormatArg> args);

    template <typename... Args>
    static QString string(const QString &fmt, const Args &...args)
    {
        return format(fmt, {VTFormatArg(args)...});
    }
};
