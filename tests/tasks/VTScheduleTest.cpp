#include "tasks/VTScheduledTask.h"
#include "testsupport/FakeIdentity.h"

#include <gtest/gtest.h>

namespace {

PlistDict interval(std::initializer_list<std::pair<const char *, int>> keys)
{
    PlistDict d;
    for (const auto &[k, v] : keys) {
        d.insert(QLatin1String(k), v);
    }
    return d;
}

QString friendly(const char *minute, const char *hour, const char *day, const char *weekday,
                 const char *month)
{
    return VTScheduledTask::friendlyIntervalDescription(
        QString::fromUtf8(minute), QString::fromUtf8(hour), QString::fromUtf8(day),
        QString::fromUtf8(weekday), QString::fromUtf8(month));
}

} // namespace

// No wildcard syntax: an asterisk or a letter stores 0, nothing is range checked, extra
// fields are ignored and keys keep the expression's order; fewer than five fields raise.
TEST(IntervalExpressionTest, FieldsAreMinuteHourDayWeekdayMonth)
{
    const std::pair<const char *, PlistDict> cases[] = {
        {"30,2,,,", interval({{"Minute", 30}, {"Hour", 2}})},
        {",,,,3", interval({{"Month", 3}})},
        {",,,,", PlistDict()},
        {"(null),5,(null),(null),(null)", interval({{"Hour", 5}})},
        {"1,2,3,4,5,6",
         interval({{"Minute", 1}, {"Hour", 2}, {"Day", 3}, {"Weekday", 4}, {"Month", 5}})},
        {"*,x,75, 7b,-3",
         interval({{"Minute", 0}, {"Hour", 0}, {"Day", 75}, {"Weekday", 7}, {"Month", -3}})},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(VTScheduledTask::intervalDictionaryFromString(text), expected) << text;
    }
    EXPECT_EQ(VTScheduledTask::intervalDictionaryFromString("15,,1,,12").keys(),
              QStringList({"Minute", "Day", "Month"}));
    // The guard names the error (see the schedule-from-string test).
    EXPECT_THROW(VTScheduledTask::intervalDictionaryFromString("1,2,3"), std::exception);
    EXPECT_THROW(VTScheduledTask::intervalDictionaryFromString(""), std::exception);
}

TEST(FriendlyIntervalTest, TheSentencesOfEachCombination)
{
    EXPECT_EQ(friendly("30", "", "", "", ""), "Every hour at minute 30");
    EXPECT_EQ(friendly("", "7", "", "", ""), "Every day at 7:00");
    EXPECT_EQ(friendly("15", "9", "", "1", ""), "Every Monday at 9:15");
    EXPECT_EQ(friendly("", "", "", "", "3"), "Every March Every hour at minute 00");
    EXPECT_EQ(friendly("", "", "15", "", ""), "Every month on day 15 Every hour at minute 00");
    EXPECT_EQ(friendly("0", "18", "", "5", "12"), "Every December on every Friday at 18:00");
    EXPECT_EQ(friendly("45", "", "", "3", ""), "Every Wednesday Every hour at minute 45");
    EXPECT_EQ(friendly("1", "6", "2", "4", "11"), "Every November on day 2 at 6:01");
    EXPECT_EQ(friendly("", "", "", "", ""), "");
    EXPECT_EQ(friendly("0", "8", "", "0", ""), "Every Sunday at 8:00");
    EXPECT_EQ(friendly("0", "8", "", "9", ""), "Every Unknown at 8:00");
    EXPECT_EQ(friendly("0", "8", "", "", "13"), "Every Unknown on every day at 8:00");
    // The hour is never padded; the minute always is.
    EXPECT_EQ(friendly("7", "3", "", "", ""), "Every day at 3:07");
}

class FrequencyTextTest : public ::testing::Test
{
protected:
    FakeIdentity::Scoped identity;
    VTScheduledTask task;

    QString textFor(qint64 type)
    {
        task.setScheduleType(type);
        return task.frequencyStringFromScheduleType();
    }
};

TEST_F(FrequencyTextTest, SecondsCalendarAndFolderSchedules)
{
    for (const auto &[count, text] :
         {std::pair(1, "Every 1 second"), std::pair(0, "Every 0 seconds")}) {
        task.setIntervalSeconds(count);
        EXPECT_EQ(textFor(6), text);
    }
    task.setInterval(PlistDict());
    EXPECT_EQ(textFor(7), "");
    task.setInterval(interval({{"Hour", 14}, {"Minute", 0}}));
    EXPECT_EQ(textFor(7), "Every day at 14:00");

    identity->home = "/home/anna";
    task.setIntervalDirectory("/home/anna/Documents/Inbox");
    EXPECT_EQ(textFor(8), "Whenever ~/Documents/Inbox changes");
    task.setIntervalDirectory("/srv/share");
    EXPECT_EQ(textFor(8), "Whenever /srv/share changes");
    task.setIntervalDirectory("/home/annabel/x");
    EXPECT_EQ(textFor(8), "Whenever /home/annabel/x changes");
}
