#include "BridgeTesting.h"

#include "CalendarEvent.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QTimeZone>

namespace {

qint64 utc(const char *text)
{
    QDateTime time = QDateTime::fromString(QString::fromLatin1(text), "yyyy-MM-dd HH:mm:ss");
    time.setTimeZone(QTimeZone::utc());
    return time.toSecsSinceEpoch();
}

QStringList linesOf(const PlistDict &element, QStringList *warnings)
{
    QStringList lines;
    for (const CalendarEvent &event : CalendarEvent::fromLaunchd(element, warnings)) {
        lines.append(event.toString());
    }
    return lines;
}

// Every form the bridge writes: each of weekday, month, day, hour and minute given or not,
// plus values that fall on the awkward days and hours.
QStringList allForms()
{
    QStringList lines;
    for (int mask = 0; mask < 32; ++mask) {
        PlistDict element;
        const std::pair<const char *, int> keys[] = {
            {"Minute", 30}, {"Hour", 2}, {"Day", 27}, {"Weekday", 0}, {"Month", 10}};
        for (int bit = 0; bit < 5; ++bit) {
            if (mask & (1 << bit)) {
                element.insert(QLatin1String(keys[bit].first), keys[bit].second);
            }
        }
        QStringList warnings;
        for (const QString &line : linesOf(element, &warnings)) {
            if (!lines.contains(line)) {
                lines.append(line);
            }
        }
    }
    lines += QStringLiteral("*-*-31 *:*:00|*-02-29 00:00:00|*-02-30 07:00:00|*-04-31 07:00:00|"
                            "*-12-31 23:59:00|*-*-* 00:00:00|*-*-* 00:*:00|*-*-* 01:30:00|"
                            "*-*-* 02:00:00|*-*-* 03:00:00|*-*-* 23:00:00|Sun *-*-* 00:00:00|"
                            "Sat *-03-* 02:30:00|Fri *-*-13 *:00:00|*-10-16 00:*:00|"
                            "*-02-26 23:30:00")
                 .split('|');
    return lines;
}

struct Zone
{
    const char *zone;
    // Base times: plain days and the hours around the changes of daylight saving time.
    std::vector<qint64> bases;
};

} // namespace

TEST(CalendarEventTest, LaunchdElementsBecomeTheLinesSystemdNeeds)
{
    QStringList warnings;
    // Missing keys are "any"; launchd's Sunday is 0 or 7 (the comparison with systemd
    // below reaches every other combination of keys).
    EXPECT_EQ(linesOf({}, &warnings), QStringList{"*-*-* *:*:00"});
    EXPECT_EQ(linesOf({{"Weekday", 7}, {"Hour", 18}}, &warnings), QStringList{"Sun *-*-* 18:*:00"});
    // Day and Weekday together: launchd fires when either matches.
    EXPECT_EQ(linesOf({{"Month", 2}, {"Day", 14}, {"Weekday", 3}, {"Hour", 9}, {"Minute", 45}},
                      &warnings),
              (QStringList{"*-02-14 09:45:00", "Wed *-02-* 09:45:00"}));
    EXPECT_TRUE(warnings.isEmpty()) << warnings.join("; ").toStdString();

    // Values that can never match leave the element out, with a reason.
    for (const PlistDict &never :
         {PlistDict{{"Minute", 60}}, PlistDict{{"Hour", 24}}, PlistDict{{"Day", 0}},
          PlistDict{{"Day", 32}}, PlistDict{{"Weekday", 8}}, PlistDict{{"Month", 13}},
          PlistDict{{"Minute", -1}}, PlistDict{{"Hour", "7"}}, PlistDict{{"Minute", 1.5}}}) {
        warnings.clear();
        EXPECT_TRUE(linesOf(never, &warnings).isEmpty()) << never.keys().join(",").toStdString();
        EXPECT_EQ(warnings.size(), 1);
    }
    // An unknown key is only ignored.
    warnings.clear();
    EXPECT_EQ(linesOf({{"Second", 5}, {"Hour", 1}}, &warnings), QStringList{"*-*-* 01:*:00"});
    EXPECT_EQ(warnings.size(), 1);
}

TEST(CalendarEventTest, ParsesOnlyItsOwnForms)
{
    for (const char *line :
         {"*-*-* *:*:00", "Mon *-*-* 07:00:00", "*-12-31 23:59:00", "Sun *-02-* *:05:00"}) {
        const std::optional<CalendarEvent> event = CalendarEvent::parse(QString::fromLatin1(line));
        ASSERT_TRUE(event) << line;
        EXPECT_EQ(event->toString(), QString::fromLatin1(line));
    }
    for (const char *line : {"daily", "Mon,Tue *-*-* 07:00:00", "*-*-* 07:00", "2011-*-* 07:00:00",
                             "*-13-* 07:00:00", "*-*-* 24:00:00", "*-*-00 07:00:00",
                             "*-*-* 07:00:30", "*-*-* 7:00:00", "*-*/2-* 07:00:00"}) {
        EXPECT_FALSE(CalendarEvent::parse(QString::fromLatin1(line))) << line;
    }
}

// The list computes next runs itself when systemd is not running; the times must be the
// ones systemd would use, in every time zone, across the changes of daylight saving time.
TEST(CalendarEventTest, AgreesWithSystemdAnalyzeCalendar)
{
    const QStringList lines = allForms();
    const std::vector<Zone> zones{
        {"UTC", {utc("2011-03-04 12:00:00"), utc("2012-02-28 23:59:59")}},
        // Summer time starts at 02:00 on 27 March 2011 and ends at 03:00 on 30 October.
        {"Europe/Berlin",
         {utc("2011-03-26 23:10:00"), utc("2011-10-29 23:45:00"), utc("2011-10-30 00:30:00")}},
        // Summer time started at midnight: 16 October 2011 had no 00:00.
        {"America/Sao_Paulo", {utc("2011-10-15 02:30:00"), utc("2012-02-26 01:30:00")}},
        // Half an hour of summer time.
        {"Australia/Lord_Howe", {utc("2011-10-01 15:00:00"), utc("2011-04-02 14:00:00")}},
    };
    constexpr int kIterations = 4;
    for (const Zone &zone : zones) {
        const BridgeTesting::TimeZone tz(QString::fromLatin1(zone.zone));
        for (const qint64 base : zone.bases) {
            QStringList normalized;
            const auto systemd = BridgeTesting::systemdFirings(
                lines, base, kIterations, QString::fromLatin1(zone.zone), &normalized);
            ASSERT_EQ(systemd.size(), static_cast<size_t>(lines.size()));
            EXPECT_EQ(normalized, lines);
            for (qsizetype i = 0; i < lines.size(); ++i) {
                const CalendarEvent event = *CalendarEvent::parse(lines.at(i));
                std::vector<qint64> ours;
                qint64 after = base;
                while (ours.size() < kIterations) {
                    const std::optional<qint64> next = event.nextAfter(after);
                    if (!next) {
                        break;
                    }
                    ours.push_back(*next);
                    after = *next;
                }
                EXPECT_EQ(ours, systemd.at(static_cast<size_t>(i)))
                    << zone.zone << " base " << base << ": " << lines.at(i).toStdString();
            }
        }
    }
}
