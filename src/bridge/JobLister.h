#pragma once

#include "ManagerScope.h"

#include <QString>

#include <optional>
#include <vector>

// "kairo-launchctl list": one line per job the bridge loaded,
//
//   LABEL <tab> ENABLED <tab> NEXT <tab> LAST
//
// ENABLED is "yes" or "no"; NEXT the next run as local ISO 8601 time with its offset
// (2011-03-04T12:30:00+01:00) or "-"; LAST the outcome of the last run as systemd recorded
// it: "success", "failed (exit status 1)", "failed (signal 9)", "failed (timeout)" (systemd's
// reason), or "never run". Control characters in a label are
// shown as C escapes, so every job is one line.
//
// When systemd answers, the states are its own. When it does not (no manager running, or
// nothing said about the job), ENABLED says whether the job was loaded without Disabled,
// NEXT is computed from the timer's calendar lines and intervals (an interval counted from
// the base time), and LAST is "-": not known.
class JobLister
{
public:
    struct Row
    {
        QString label;
        bool enabled = false;
        std::optional<qint64> nextRun;
        QString lastResult;
    };

    // The user's jobs, and with includeSystem the system's too. baseTime (seconds since the
    // epoch) stands for now.
    JobLister(bool includeSystem, qint64 baseTime);

    std::vector<Row> rows() const;
    // The lines of the listing.
    QString text() const;

    // "2011-03-04T12:30:00+01:00" in the process's time zone.
    static QString isoTime(qint64 time);

private:
    std::vector<Row> rowsOf(const ManagerScope &scope) const;

    bool m_includeSystem;
    qint64 m_baseTime;
};
