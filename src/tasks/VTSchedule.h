#pragma once

#include "platform/PlistDict.h"

#include <QString>

class VTScheduledTask;

// The schedule vocabulary: interval expressions, the sentence that describes a calendar
// interval, and the text shown for each schedule type.
class VTSchedule
{
public:
    static PlistDict intervalDictionaryFromString(const QString &expression);
    static QString friendlyIntervalDescription(const QString &minute, const QString &hour,
                                               const QString &day, const QString &weekday,
                                               const QString &month);
    static QString frequencyString(const VTScheduledTask &task);

    // "January" to "December"; "Unknown" for any other number.
    static QString monthName(qint64 month);
    // 0 and 7 are "Sunday"; "Unknown" for any other number outside 0 to 7.
    static QString weekdayName(qint64 weekday);
    // The interval keys in the order of the expression's fields.
    static const QStringList &intervalKeys();
};
