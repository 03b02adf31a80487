#pragma once

#include "platform/PlistDict.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// One OnCalendar= line of the forms the bridge writes, "[WEEKDAY ]*-MM-DD HH:MM:00" with
// "*" for any month, day, hour or minute, and the time of its next firing, computed the way
// systemd computes it (local time, with its handling of missing and repeated hours).
class CalendarEvent
{
public:
    // One element of launchd's StartCalendarInterval as calendar lines: usually one; two
    // when it has both Day and Weekday, since launchd then fires when either matches; none
    // when a value is outside launchd's ranges and so can never match. Every problem is
    // added to *warnings.
    static std::vector<CalendarEvent> fromLaunchd(const PlistDict &element, QStringList *warnings);
    // A line of the bridge's own forms; no value for anything else.
    static std::optional<CalendarEvent> parse(const QString &line);

    QString toString() const;
    // The first firing strictly after the given time (seconds since the epoch) in the
    // process's time zone; no value when it never fires (such as on 31 February).
    std::optional<qint64> nextAfter(qint64 time) const;

    bool operator==(const CalendarEvent &other) const = default;

private:
    // tm_wday numbering: 0 is Sunday.
    std::optional<int> m_weekday;
    std::optional<int> m_month;
    std::optional<int> m_day;
    std::optional<int> m_hour;
    std::optional<int> m_minute;
};
