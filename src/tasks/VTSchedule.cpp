#include "VTSchedule.h"

#include "VTScheduledTask.h"
#include "platform/PathString.h"
#include "support/VTException.h"
#include "support/VTFormat.h"

const QStringList &VTSchedule::intervalKeys()
{
    static const QStringList keys{QStringLiteral("Minute"), QStringLiteral("Hour"),
                                  QStringLiteral("Day"), QStringLiteral("Weekday"),
                                  QStringLiteral("Month")};
    return keys;
}

PlistDict VTSchedule::intervalDictionaryFromString(const QString &expression)
{
    const QStringList fields = expression.split(QLatin1Char(','));
    PlistDict interval;
    for (int i = 0; i < intervalKeys().size(); ++i) {
        // The fields are read by position and their number is not checked first: a short
        // expression raises out of here, to the caller's guard.
        if (i >= fields.size()) {
            throw VTException(
                QStringLiteral("NSRangeException"),
                VTFormat::string(QStringLiteral("*** index %d beyond bounds [0 .. %d]"), i,
                                 static_cast<int>(fields.size()) - 1));
        }
        const QString &field = fields[i];
        if (!field.isEmpty() && field != QLatin1String("(null)")) {
            interval.insert(intervalKeys()[i], PlistValue(PlistValue(field).integerValue()));
        }
    }
    return interval;
}

QString VTSchedule::monthName(qint64 month)
{
    static const char *const names[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
    if (month < 1 || month > 12) {
        return QStringLiteral("Unknown");
    }
    return QLatin1String(names[month - 1]);
}

QString VTSchedule::weekdayName(qint64 weekday)
{
    static const char *const names[] = {"Sunday",   "Monday", "Tuesday",  "Wednesday",
                                        "Thursday", "Friday", "Saturday", "Sunday"};
    if (weekday < 0 || weekday > 7) {
        return QStringLiteral("Unknown");
    }
    return QLatin1String(names[weekday]);
}

QString VTSchedule::friendlyIntervalDescription(const QString &minuteIn, const QString &hour,
                                                const QString &day, const QString &weekday,
                                                const QString &month)
{
    const bool hasHour = !hour.isEmpty();
    const bool hasDay = !day.isEmpty();
    const bool hasWeekday = !weekday.isEmpty();
    const bool hasMonth = !month.isEmpty();
    QString minute = minuteIn;
    if (minute.isEmpty() && !hasHour && !hasDay && !hasWeekday && !hasMonth) {
        return QString();
    }
    if (minute.isEmpty()) {
        minute = QStringLiteral("00");
    }
    if (minute.size() == 1) {
        minute.prepend(QLatin1Char('0'));
    }

    // The pieces carry their own trailing blanks, so a sentence may end with one.
    QString out;
    if (hasMonth) {
        out += VTFormat::string(QStringLiteral("Every %@ "),
                                monthName(PlistValue(month).integerValue()));
    } else if (hasDay) {
        out += QStringLiteral("Every month ");
    }

    if (hasDay) {
        out += VTFormat::string(QStringLiteral("on day %@ "), day);
    } else if (hasWeekday) {
        const QString name = weekdayName(PlistValue(weekday).integerValue());
        out += VTFormat::string(
            hasMonth ? QStringLiteral("on every %@ ") : QStringLiteral("Every %@ "), name);
    } else {
        if (!hasHour) {
            return out + VTFormat::string(QStringLiteral("Every hour at minute %@"), minute);
        }
        out += hasMonth ? QStringLiteral("on every day ") : QStringLiteral("Every day ");
        return out + VTFormat::string(QStringLiteral("at %@:%@"), hour, minute);
    }

    if (hasHour) {
        return out + VTFormat::string(QStringLiteral("at %@:%@"), hour, minute);
    }
    return out + VTFormat::string(QStringLiteral("Every hour at minute %@"), minute);
}

QString VTSchedule::frequencyString(const VTScheduledTask &task)
{
    switch (task.scheduleType().value_or(0)) {
    case ScheduleAtStartup:
        return QStringLiteral("Run at system startup");
    case ScheduleOnMount:
        return QStringLiteral("When a new disk is mounted");
    case ScheduleHourly:
        return QStringLiteral("Once an hour");
    case ScheduleDaily:
        return QStringLiteral("Once a day");
    case ScheduleWeekly:
        return QStringLiteral("Once a week");
    case ScheduleMonthly:
        return QStringLiteral("Once a month");
    case ScheduleEverySeconds: {
        const qint64 seconds = task.intervalSeconds().value_or(0);
        return VTFormat::string(QStringLiteral("Every %i second%@"), seconds,
                                seconds == 1 ? QString() : QStringLiteral("s"));
    }
    case ScheduleCalendar: {
        const PlistDict interval = task.interval().value_or(PlistDict());
        QString fields[5];
        for (int i = 0; i < 5; ++i) {
            if (const PlistValue *v = interval.find(intervalKeys()[i])) {
                fields[i] = QString::number(v->integerValue());
            }
        }
        return friendlyIntervalDescription(fields[0], fields[1], fields[2], fields[3], fields[4]);
    }
    case ScheduleWatchDirectory: {
        const auto &folder = task.intervalDirectory();
        return VTFormat::string(QStringLiteral("Whenever %@ changes"),
                                folder ? PathString::abbreviatingWithTildeInPath(*folder)
                                       : QStringLiteral("(null)"));
    }
    default:
        return QStringLiteral("Unknown");
    }
}
