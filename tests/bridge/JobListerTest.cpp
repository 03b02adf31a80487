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
    BridgeTesting::TimeZone zone{"Europe/Berlin"};

    void load(const QString &label, const PlistDict &schedule, bool disabled = false,
              bool daemon = false)
    {
        const QString path = BridgeTesting::job(sandbox, label, schedule, disabled, daemon);
        ASSERT_EQ(JobLoader("/opt/kairo-launchctl").load(path), 0);
    }
};

} // namespace

TEST_F(JobListerTest, WithoutSystemdTheNextRunComesFromTheUnitsThemselves)
{
    load("Task0", {{"RunAtLoad", true}});
    load("Task3", calendar({{{"Hour", 7}, {"Minute", 0}}}));
    load("Task4", calendar({{{"Hour", 7}, {"Minute", 0}}}), true);
    load("Task6", {{"StartInterval", 300}});
    // The application's calendar form is one event: 2:30 every day.
    load("Task7", calendar({{{"Minute", 30}}, {{"Hour", 2}}}));
    load("Task8", {{"WatchPaths", QStringList{"/srv"}}});
    load("Task9", calendar({}));
    // Labels stay on one line.
    load("evil\nlabel\tx", {{"RunAtLoad", true}});
    identity->uid = 0;
    load("RootTask1", calendar({{{"Day", 1}, {"Hour", 7}, {"Minute", 0}}}), false, true);
    systemctl.fail("show", 1);

    // Base 13:00 in Berlin.
    EXPECT_EQ(JobLister(false, kBase).text(),
              "Task0\tyes\t-\t-\nTask3\tyes\t2011-03-05T07:00:00+01:00\t-\nTask4\tno\t-\t-"
              "\nTask6\tyes\t2011-03-04T13:05:00+01:00\t-\nTask7\tyes\t2011-03-05T02:30:00+01:00\t-"
              "\nTask8\tyes\t-\t-\nTask9\tyes\t-\t-\nevil\\nlabel\\tx\tyes\t-\t-\n");
    // The system's jobs too; summer time has begun by the first of April.
    EXPECT_EQ(JobLister(true, kBase).text().split('\n').first(),
              "RootTask1\tyes\t2011-04-01T07:00:00+02:00\t-");
}

TEST_F(JobListerTest, WhenSystemdAnswersItsStatesAreShown)
{
    load("Task3", calendar({{{"Hour", 7}, {"Minute", 0}}}));
    load("Task6", {{"StartInterval", 3600}});
    load("Task7", calendar({{{"Minute", 0}}}));
    systemctl.clearCalls();
    timespec monotonic{};
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    systemctl.answerShow(
        QStringLiteral(
            "Id=Task3.service\nResult=exit-code\nExecMainExitTimestamp=@1299230000\nExecMainCode="
            "1\nExecMainStatus=3\nUnitFileState=static\n\n"
            // systemctl prints the next elapse as a local date whatever --timestamp says.
            "Id=Task3.timer\nUnitFileState=enabled\nNextElapseUSecRealtime=Sat 2011-03-05 07:00:00 "
            "CET\nNextElapseUSecMonotonic=0\n\nId=Task6.service\nResult="
            "success\nExecMainExitTimestamp=\n\nId=Task6.timer\nUnitFileState="
            "enabled\nNextElapseUSecRealtime=\nNextElapseUSecMonotonic=%1\n\nId=Task7."
            "service\nResult=success\nExecMainExitTimestamp=@1299239000\n\nId=Task7."
            "timer\nUnitFileState=disabled\nNextElapseUSecRealtime=\nNextElapseUSecMonotonic="
            "infinity\n")
            .arg(QString("%1min %2.5s")
                     .arg((monotonic.tv_sec + 3600) / 60)
                     .arg((monotonic.tv_sec + 3600) % 60)));

    const std::vector<JobLister::Row> rows = JobLister(false, kBase).rows();
    EXPECT_EQ(systemctl.calls(),
              QStringList{"--user show --timestamp=unix -p "
                          "Id,UnitFileState,NextElapseUSecRealtime,NextElapseUSecMonotonic,Result,"
                          "ExecMainExitTimestamp,ExecMainCode,ExecMainStatus Task3.service "
                          "Task3.timer Task6.service Task6.timer Task7.service Task7.timer"});
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].nextRun, 1299304800);
    EXPECT_EQ(rows[0].lastResult, "failed (exit status 3)");
    // An interval timer's next run is on the monotonic clock: an hour from now.
    ASSERT_TRUE(rows[1].nextRun);
    EXPECT_NEAR(static_cast<double>(*rows[1].nextRun),
                static_cast<double>(QDateTime::currentSecsSinceEpoch() + 3600), 3);
    EXPECT_EQ(rows[1].lastResult, "never run");
    EXPECT_FALSE(rows[2].enabled);
    EXPECT_FALSE(rows[2].nextRun);
    EXPECT_EQ(rows[2].lastResult, "success");
}
