#include "BridgeTesting.h"

#include "JobLister.h"
#include "JobLoader.h"

#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <QDateTime>

#include <ctime>

namespace {

// Fri 2011-03-04 12:00:00 UTC.
constexpr qint64 kBase = 1299240000;

const auto calendar = &BridgeTesting::calendar;

class JobListerTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    BridgeTesting::StandIn systemctl{sandbox};
    BridgeTesting::TimeZone zone{QStringLiteral("Europe/Berlin")};

    void load(const QString &label, const PlistDict &schedule, bool disabled = false,
              bool daemon = false)
    {
        const QString path = BridgeTesting::job(sandbox, label, schedule, disabled, daemon);
        ASSERT_EQ(JobLoader(QStringLiteral("/opt/kairo-launchctl")).load(path), 0);
    }
};

} // namespace

TEST_F(JobListerTest, WithoutSystemdTheNextRunComesFromTheUnitsThemselves)
{
    load(QStringLiteral("com.vantreel.ScheduledTask0"), {{"RunAtLoad", true}});
    load(QStringLiteral("com.vantreel.ScheduledTask3"), calendar({{{"Hour", 7}, {"Minute", 0}}}));
    load(QStringLiteral("com.vantreel.ScheduledTask4"), calendar({{{"Hour", 7}, {"Minute", 0}}}),
         true);
    load(QStringLiteral("com.vantreel.ScheduledTask6"), {{"StartInterval", 300}});
    // The application's calendar form is one event: 2:30 every day.
    load(QStringLiteral("com.vantreel.ScheduledTask7"),
         calendar({{{"Minute", 30}}, {{"Hour", 2}}}));
    load(QStringLiteral("com.vantreel.ScheduledTask8"), {{"WatchPaths", QStringList{"/srv"}}});
    load(QStringLiteral("com.vantreel.ScheduledTask9"), calendar({}));
    identity->uid = 0;
    load(QStringLiteral("com.vantreel.RootScheduledTask1"),
         calendar({{{"Day", 1}, {"Hour", 7}, {"Minute", 0}}}), false, true);
    systemctl.fail(QStringLiteral("show"), 1);

    // Base 13:00 in Berlin.
    EXPECT_EQ(JobLister(false, kBase).text(),
              "com.vantreel.ScheduledTask0\tyes\t-\t-\n"
              "com.vantreel.ScheduledTask3\tyes\t2011-03-05T07:00:00+01:00\t-\n"
              "com.vantreel.ScheduledTask4\tno\t-\t-\n"
              "com.vantreel.ScheduledTask6\tyes\t2011-03-04T13:05:00+01:00\t-\n"
              "com.vantreel.ScheduledTask7\tyes\t2011-03-05T02:30:00+01:00\t-\n"
              "com.vantreel.ScheduledTask8\tyes\t-\t-\n"
              "com.vantreel.ScheduledTask9\tyes\t-\t-\n");
    // The system's jobs too; summer time has begun by the first of April.
    EXPECT_EQ(JobLister(true, kBase).text().split('\n').first(),
              "com.vantreel.RootScheduledTask1\tyes\t2011-04-01T07:00:00+02:00\t-");
}

TEST_F(JobListerTest, WhenSystemdAnswersItsStatesAreShown)
{
    load(QStringLiteral("com.vantreel.ScheduledTask3"), calendar({{{"Hour", 7}, {"Minute", 0}}}));
    load(QStringLiteral("com.vantreel.ScheduledTask6"), {{"StartInterval", 3600}});
    load(QStringLiteral("com.vantreel.ScheduledTask7"), calendar({{{"Minute", 0}}}));
    systemctl.clearCalls();
    timespec monotonic{};
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    systemctl.answerShow(
        QStringLiteral(
            "Id=com.vantreel.ScheduledTask3.service\nResult=exit-code\nExecMainExitTimestamp=@"
            "1299230000\nExecMainCode=1\nExecMainStatus=3\n"
            "UnitFileState=static\n\n"
            // systemctl prints the next elapse as a local date whatever --timestamp says.
            "Id=com.vantreel.ScheduledTask3.timer\nUnitFileState=enabled\nNextElapseUSecRealtime="
            "Sat 2011-03-05 07:00:00 CET\n"
            "NextElapseUSecMonotonic=0\n\n"
            "Id=com.vantreel.ScheduledTask6.service\nResult=success\nExecMainExitTimestamp=\n\n"
            "Id=com.vantreel.ScheduledTask6.timer\nUnitFileState=enabled\nNextElapseUSecRealtime=\n"
            "NextElapseUSecMonotonic=%1\n\n"
            "Id=com.vantreel.ScheduledTask7.service\nResult=success\nExecMainExitTimestamp=@"
            "1299239000\n\n"
            "Id=com.vantreel.ScheduledTask7.timer\nUnitFileState=disabled\nNextElapseUSecRealtime="
            "\n"
            "NextElapseUSecMonotonic=infinity\n")
            .arg(QStringLiteral("%1min %2.5s")
                     .arg((monotonic.tv_sec + 3600) / 60)
                     .arg((monotonic.tv_sec + 3600) % 60)));

    const std::vector<JobLister::Row> rows = JobLister(false, kBase).rows();
    EXPECT_EQ(systemctl.calls(),
              QStringList{"--user show --timestamp=unix -p "
                          "Id,UnitFileState,NextElapseUSecRealtime,NextElapseUSecMonotonic,Result,"
                          "ExecMainExitTimestamp,ExecMainCode,ExecMainStatus "
                          "com.vantreel.ScheduledTask3.service "
                          "com.vantreel.ScheduledTask3.timer com.vantreel.ScheduledTask6.service "
                          "com.vantreel.ScheduledTask6.timer com.vantreel.ScheduledTask7.service "
                          "com.vantreel.ScheduledTask7.timer"});
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].nextRun, 1299304800);
    EXPECT_EQ(rows[0].lastResult, QStringLiteral("failed (exit status 3)"));
    // An interval timer's next run is on the monotonic clock: an hour from now.
    ASSERT_TRUE(rows[1].nextRun);
    EXPECT_NEAR(static_cast<double>(*rows[1].nextRun),
                static_cast<double>(QDateTime::currentSecsSinceEpoch() + 3600), 3);
    EXPECT_EQ(rows[1].lastResult, QStringLiteral("never run"));
    EXPECT_FALSE(rows[2].enabled);
    EXPECT_FALSE(rows[2].nextRun);
    EXPECT_EQ(rows[2].lastResult, QStringLiteral("success"));
}

TEST_F(JobListerTest, LabelsStayOnOneLine)
{
    load(QStringLiteral("evil\nlabel\tx"), {{"RunAtLoad", true}});
    systemctl.fail(QStringLiteral("show"), 1);
    EXPECT_EQ(JobLister(false, kBase).text(), "evil\\nlabel\\tx\tyes\t-\t-\n");
}
