#include "CalendarEvent.h"

#include <QRegularExpression>

#include <ctime>

namespace {

const char *const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// systemd stops searching at this year, so "*-02-31" ends instead of looping for ever.
constexpr int kLastYear = 2199;

struct LaunchdKey
{
    const char *name;
    int low;
    int high;
};

// launchd's calendar keys and the values that can match.
const LaunchdKey kLaunchdKeys[] = {
    {"Minute", 0, 59}, {"Hour", 0, 23}, {"Day", 1, 31}, {"Weekday", 0, 7}, {"Month", 1, 12}};

QString field(const std::optional<int> &value)
{
    return value ? QStringLiteral("%1").arg(*value, 2, 10, QLatin1Char('0')) : QStringLiteral("*");
}

std::optional<int> parseField(const QString &text)
{
    if (text == QLatin1String("*")) {
        return std::nullopt;
    }
    return text.toInt();
}

// Whether the fields are a real local time as they stand. If not, they are replaced by
// their normalized form (31 April becomes 1 May, a missing hour the one after it) and the
// search starts over from there. The fields carry tm_isdst -1, so the time zone decides.
bool isRealTime(std::tm &tm)
{
    std::tm copy = tm;
    std::mktime(&copy);
    const bool same = copy.tm_year == tm.tm_year && copy.tm_mon == tm.tm_mon &&
                      copy.tm_mday == tm.tm_mday && copy.tm_hour == tm.tm_hour &&
                      copy.tm_min == tm.tm_min && copy.tm_sec == tm.tm_sec;
    if (!same) {
        tm = copy;
    }
    return same;
}

// Moves *current to the wanted value if that is still ahead; false when it has passed.
// *changed tells whether the field moved, so the smaller fields start from their lowest.
bool advanceTo(const std::optional<int> &wanted, int *current, bool *changed)
{
    *changed = false;
    if (!wanted) {
        return true;
    }
    if (*wanted < *current) {
        return false;
    }
    *changed = *wanted != *current;
    *current = *wanted;
    return true;
}

} // namespace

std::vector<CalendarEvent> CalendarEvent::fromLaunchd(const PlistDict &element,
                                                      QStringList *warnings)
{
    std::optional<int> values[5];
    bool usable = true;
    for (const PlistDict::Entry &entry : element) {
        int index = -1;
        for (int i = 0; i < 5; ++i) {
            if (entry.key == QLatin1String(kLaunchdKeys[i].name)) {
                index = i;
            }
        }
        if (index < 0) {
            warnings->append(
                QStringLiteral("StartCalendarInterval: unknown key %1 is ignored").arg(entry.key));
            continue;
        }
        const LaunchdKey &key = kLaunchdKeys[index];
        const qint64 value = entry.value.integerValue();
        if (!entry.value.isInteger() || value < key.low || value > key.high) {
            warnings->append(QStringLiteral("StartCalendarInterval: %1 %2 can never match; the "
                                            "element is left out")
                                 .arg(entry.key, entry.value.description()));
            usable = false;
            continue;
        }
        values[index] = static_cast<int>(value);
    }
    if (!usable) {
        return {};
    }

    CalendarEvent event;
    event.m_minute = values[0];
    event.m_hour = values[1];
    event.m_month = values[4];
    const std::optional<int> day = values[2];
    // launchd's Sunday is 0 or 7.
    const std::optional<int> weekday =
        values[3] ? std::optional<int>(*values[3] % 7) : std::nullopt;

    std::vector<CalendarEvent> events;
    if (day && weekday) {
        // systemd would need both to match; launchd fires on either.
        CalendarEvent onDay = event;
        onDay.m_day = day;
        CalendarEvent onWeekday = event;
        onWeekday.m_weekday = weekday;
        events = {onDay, onWeekday};
    } else {
        event.m_day = day;
        event.m_weekday = weekday;
        events = {event};
    }
    return events;
}

std::optional<CalendarEvent> CalendarEvent::parse(const QString &line)
{
    static const QRegularExpression form(
        QStringLiteral("^(?:(Sun|Mon|Tue|Wed|Thu|Fri|Sat) )?\\*-(\\*|\\d\\d)-(\\*|\\d\\d) "
                       "(\\*|\\d\\d):(\\*|\\d\\d):00$"));
    const QRegularExpressionMatch match = form.match(line.trimmed());
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    CalendarEvent event;
    if (match.capturedLength(1) > 0) {
        for (int i = 0; i < 7; ++i) {
            if (match.captured(1) == QLatin1String(kWeekdays[i])) {
                event.m_weekday = i;
            }
        }
    }
    event.m_month = parseField(match.captured(2));
    event.m_day = parseField(match.captured(3));
    event.m_hour = parseField(match.captured(4));
    event.m_minute = parseField(match.captured(5));
    const auto inRange = [](const std::optional<int> &v, int low, int high) {
        return !v || (*v >= low && *v <= high);
    };
    if (!inRange(event.m_month, 1, 12) || !inRange(event.m_day, 1, 31) ||
        !inRange(event.m_hour, 0, 23) || !inRange(event.m_minute, 0, 59)) {
        return std::nullopt;
    }
    return event;
}

QString CalendarEvent::toString() const
{
    QString line;
    if (m_weekday) {
        line = QLatin1String(kWeekdays[*m_weekday]) + QLatin1Char(' ');
    }
    return line + QStringLiteral("*-%1-%2 %3:%4:00")
                      .arg(field(m_month), field(m_day), field(m_hour), field(m_minute));
}

std::optional<qint64> CalendarEvent::nextAfter(qint64 time) const
{
    // The search walks the fields from the year down, as systemd's does: each field moves
    // to the next value that matches, resetting the smaller ones, and whenever a field has
    // no match left, or the result is no real local time, the larger field moves on and the
    // walk starts again. Every line fires at second 0, so "strictly after" means the
    // current second is already used up.
    std::tm c{};
    const time_t start = static_cast<time_t>(time);
    if (!localtime_r(&start, &c)) {
        return std::nullopt;
    }
    bool secondUsed = true;
    bool changed = false;
    const auto resetFrom = [&](int level) {
        // level: 1 month, 2 day, 3 hour, 4 minute, 5 second
        if (level <= 2) {
            c.tm_mday = 1;
        }
        if (level <= 3) {
            c.tm_hour = 0;
        }
        if (level <= 4) {
            c.tm_min = 0;
        }
        c.tm_sec = 0;
        secondUsed = false;
    };

    // glibc's mktime guesses the offset of a repeated hour from its previous call, so the
    // calls below come in the same order as systemd's, and the answers agree there too.
    for (;;) {
        std::mktime(&c);
        c.tm_isdst = -1;

        if (c.tm_year + 1900 > kLastYear || !isRealTime(c)) {
            return std::nullopt;
        }

        int month = c.tm_mon + 1;
        if (!advanceTo(m_month, &month, &changed)) {
            c.tm_year++;
            c.tm_mon = 0;
            resetFrom(2);
            continue;
        }
        c.tm_mon = month - 1;
        if (changed) {
            resetFrom(2);
        }
        if (!isRealTime(c)) {
            continue;
        }

        if (!advanceTo(m_day, &c.tm_mday, &changed)) {
            c.tm_mon++;
            resetFrom(2);
            continue;
        }
        if (changed) {
            resetFrom(3);
        }
        if (!isRealTime(c)) {
            continue;
        }

        if (m_weekday) {
            std::tm copy = c;
            std::mktime(&copy);
            if (copy.tm_wday != *m_weekday) {
                c.tm_mday++;
                resetFrom(3);
                continue;
            }
        }

        if (!advanceTo(m_hour, &c.tm_hour, &changed)) {
            c.tm_mday++;
            resetFrom(3);
            continue;
        }
        if (changed) {
            resetFrom(4);
        }
        if (!isRealTime(c)) {
            continue;
        }

        if (!advanceTo(m_minute, &c.tm_min, &changed)) {
            c.tm_hour++;
            resetFrom(4);
            continue;
        }
        if (changed) {
            resetFrom(5);
        }
        if (!isRealTime(c)) {
            continue;
        }

        if (c.tm_sec != 0 || secondUsed) {
            c.tm_min++;
            resetFrom(5);
            continue;
        }
        if (!isRealTime(c)) {
            continue;
        }
        std::tm result = c;
        return static_cast<qint64>(std::mktime(&result));
    }
}
