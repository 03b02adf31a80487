#pragma once

// Readable failure messages for Qt strings in GoogleTest assertions.
#include <QString>
#include <QStringList>

#include <ostream>

inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

inline void PrintTo(const QStringList &list, std::ostream *os)
{
    *os << '{';
    for (qsizetype i = 0; i < list.size(); ++i) {
        *os << (i ? ", " : "") << '"' << list[i].toStdString() << '"';
    }
    *os << '}';
}

#include <QDateTime>

inline void PrintTo(const QDateTime &date, std::ostream *os)
{
    *os << date.toString(Qt::ISODateWithMs).toStdString();
}
