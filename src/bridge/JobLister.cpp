#include "JobLister.h"

#include "CalendarEvent.h"
#include "SystemdManager.h"
#include "UnitFolder.h"
#include "UnitName.h"
#include "UnitQuoting.h"

#include <QDateTime>
#include <QHash>
#include <QRegularExpression>
#include <QTimeZone>

#include <algorithm>
#include <ctime>

namespace {

using Properties = QHash<QString, QString>;

// The blocks of "systemctl show", one per unit, by unit name.
QHash<QString, Properties> parseShow(const QString &output)
{
    QHash<QString, Properties> units;
    Properties block;
    const auto finish = [&]() {
        if (block.contains(QStringLiteral("Id"))) {
            units.insert(block.value(QStringLiteral("Id")), block);
        }
        block.clear();
    };
    for (const QString &line : output.split(QLatin1Char('\n'))) {
        if (line.isEmpty()) {
            finish();
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals > 0) {
            block.insert(line.left(equals), line.mid(equals + 1));
        }
    }
    finish();
    return units;
}

// "@1299241800" as --timestamp=unix prints it; empty or zero is no time.
std::optional<qint64> unixTime(const QString &value)
{
    bool ok = false;
    const qint64 seconds = value.startsWith(QLatin1Char('@')) ? value.mid(1).toLongLong(&ok) : 0;
    if (!ok || seconds <= 0) {
        return std::nullopt;
    }
    return seconds;
}

// A timer's next elapse. systemctl prints it as a date in the local zone whatever
// --timestamp says ("Sat 2011-03-05 07:00:00 CET"), in UTC when the zone is UTC.
std::optional<qint64> elapseTime(const QString &value)
{
    if (value.startsWith(QLatin1Char('@'))) {
        return unixTime(value);
    }
    static const QRegularExpression form(
        QStringLiteral("^\\S+ (\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)(?: (\\S+))?$"));
    const QRegularExpressionMatch match = form.match(value.trimmed());
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    QDateTime time =
        QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    if (match.captured(2) == QLatin1String("UTC")) {
        time.setTimeZone(QTimeZone::utc());
    }
    if (!time.isValid()) {
        return std::nullopt;
    }
    return time.toSecsSinceEpoch();
}

// A systemd time span such as "1d 2h 3min 4.5s", in microseconds.
std::optional<qint64> timespan(const QString &value)
{
    static const QRegularExpression part(
        QStringLiteral("(\\d+(?:\\.\\d+)?)\\s*(y|month|w|d|h|min|s|ms|us|μs)(?![a-z])"));
    static const QHash<QString, double> usec{
        {QStringLiteral("y"), 31557600e6}, {QStringLiteral("month"), 2629800e6},
        {QStringLiteral("w"), 604800e6},   {QStringLiteral("d"), 86400e6},
        {QStringLiteral("h"), 3600e6},     {QStringLiteral("min"), 60e6},
        {QStringLiteral("s"), 1e6},        {QStringLiteral("ms"), 1e3},
        {QStringLiteral("us"), 1},         {QStringLiteral("μs"), 1}};
    double total = 0;
    bool any = false;
    QRegularExpressionMatchIterator it = part.globalMatch(value);
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        total += match.captured(1).toDouble() * usec.value(match.captured(2));
        any = true;
    }
    if (!any || total <= 0) {
        return std::nullopt;
    }
    return static_cast<qint64>(total);
}

std::optional<qint64> earlier(const std::optional<qint64> &a, const std::optional<qint64> &b)
{
    if (!a) {
        return b;
    }
    if (!b) {
        return a;
    }
    return std::min(*a, *b);
}

// The next run as the timer's own lines give it, with intervals counted from the base time.
std::optional<qint64> computedNextRun(const QString &timerText, qint64 base)
{
    std::optional<qint64> next;
    for (const QString &line : timerText.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("OnCalendar="))) {
            if (const std::optional<CalendarEvent> event = CalendarEvent::parse(
                    line.mid(static_cast<qsizetype>(qstrlen("OnCalendar="))))) {
                next = earlier(next, event->nextAfter(base));
            }
        } else if (line.startsWith(QLatin1String("OnUnitActiveSec="))) {
            bool ok = false;
            const qint64 seconds = line.mid(line.indexOf(QLatin1Char('=')) + 1).toLongLong(&ok);
            if (ok && seconds > 0) {
                next = earlier(next, base + seconds);
            }
        }
    }
    return next;
}

// The last run as systemd recorded it: "success", "failed (...)" with the exit status, the
// signal or systemd's reason, or "never run".
QString lastResult(const Properties &service)
{
    if (!unixTime(service.value(QStringLiteral("ExecMainExitTimestamp")))) {
        return QStringLiteral("never run");
    }
    const QString result = service.value(QStringLiteral("Result"));
    if (result == QLatin1String("success")) {
        return result;
    }
    const QString status = service.value(QStringLiteral("ExecMainStatus"));
    // ExecMainCode is the child's si_code: 1 exited, 2 killed, 3 dumped core.
    const int code = service.value(QStringLiteral("ExecMainCode")).toInt();
    if (code == 1 && !status.isEmpty() && status != QLatin1String("0")) {
        return QStringLiteral("failed (exit status %1)").arg(status);
    }
    if ((code == 2 || code == 3) && !status.isEmpty()) {
        return QStringLiteral("failed (signal %1)").arg(status);
    }
    return QStringLiteral("failed (%1)").arg(result.isEmpty() ? QStringLiteral("unknown") : result);
}

bool isEnabledState(const QString &state)
{
    return state == QLatin1String("enabled") || state == QLatin1String("enabled-runtime");
}

} // namespace

JobLister::JobLister(bool includeSystem, qint64 baseTime)
    : m_includeSystem(includeSystem), m_baseTime(baseTime)
{}

QString JobLister::isoTime(qint64 time)
{
    const QDateTime local = QDateTime::fromSecsSinceEpoch(time);
    const int offset = local.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return local.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")) +
           (offset < 0 ? QLatin1Char('-') : QLatin1Char('+')) +
           QStringLiteral("%1:%2")
               .arg(minutes / 60, 2, 10, QLatin1Char('0'))
               .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

std::vector<JobLister::Row> JobLister::rows() const
{
    std::vector<Row> rows = rowsOf(ManagerScope::user());
    if (m_includeSystem) {
        const std::vector<Row> system = rowsOf(ManagerScope::system());
        rows.insert(rows.end(), system.begin(), system.end());
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row &a, const Row &b) { return a.label < b.label; });
    return rows;
}

std::vector<JobLister::Row> JobLister::rowsOf(const ManagerScope &scope) const
{
    const std::optional<QString> path = scope.unitFolder();
    if (!path) {
        return {};
    }
    const UnitFolder folder(*path);
    struct Job
    {
        UnitHeader header;
        QString service;
        QString timer;
        QString trigger;
    };
    std::vector<Job> jobs;
    QStringList units;
    for (const QString &service : folder.jobServices()) {
        Job job{*folder.header(service), service, QString(), QString()};
        const QString base = UnitName::escape(job.header.label());
        const QString timer = base + QStringLiteral(".timer");
        const QString pathUnit = base + QStringLiteral(".path");
        if (folder.state(timer) == UnitFolder::State::Ours) {
            job.timer = timer;
            job.trigger = timer;
        } else if (folder.state(pathUnit) == UnitFolder::State::Ours) {
            job.trigger = pathUnit;
        } else if (folder.text(service).contains(QLatin1String("\n[Install]\n"))) {
            job.trigger = service;
        }
        units.append(service);
        if (!job.trigger.isEmpty() && job.trigger != service) {
            units.append(job.trigger);
        }
        jobs.push_back(job);
    }
    if (jobs.empty()) {
        return {};
    }

    const std::optional<QString> shown = SystemdManager(scope).show(
        {QStringLiteral("Id"), QStringLiteral("UnitFileState"),
         QStringLiteral("NextElapseUSecRealtime"), QStringLiteral("NextElapseUSecMonotonic"),
         QStringLiteral("Result"), QStringLiteral("ExecMainExitTimestamp"),
         QStringLiteral("ExecMainCode"), QStringLiteral("ExecMainStatus")},
        units);
    // A job systemd says nothing about is described by its units alone.
    const QHash<QString, Properties> state =
        shown ? parseShow(*shown) : QHash<QString, Properties>();

    std::vector<Row> rows;
    for (const Job &job : jobs) {
        Row row;
        row.label = job.header.label();
        row.lastResult = QStringLiteral("-");
        if (!state.contains(job.service)) {
            row.enabled = !job.header.disabled();
            if (row.enabled && !job.timer.isEmpty()) {
                row.nextRun = computedNextRun(folder.text(job.timer), m_baseTime);
            }
            rows.push_back(row);
            continue;
        }
        const Properties service = state.value(job.service);
        const Properties trigger = state.value(job.trigger);
        row.enabled = job.trigger.isEmpty()
                          ? !job.header.disabled()
                          : isEnabledState(trigger.value(QStringLiteral("UnitFileState")));
        if (!job.timer.isEmpty()) {
            row.nextRun = elapseTime(trigger.value(QStringLiteral("NextElapseUSecRealtime")));
            if (const std::optional<qint64> monotonic =
                    timespan(trigger.value(QStringLiteral("NextElapseUSecMonotonic")))) {
                timespec now{};
                clock_gettime(CLOCK_MONOTONIC, &now);
                const qint64 nowUsec = qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
                row.nextRun = earlier(row.nextRun, QDateTime::currentSecsSinceEpoch() +
                                                       (*monotonic - nowUsec) / 1000000);
            }
        }
        row.lastResult = lastResult(service);
        rows.push_back(row);
    }
    return rows;
}

QString JobLister::text() const
{
    QString text;
    for (const Row &row : rows()) {
        text += UnitQuoting::cEscape(row.label) + QLatin1Char('\t') +
                (row.enabled ? QStringLiteral("yes") : QStringLiteral("no")) + QLatin1Char('\t') +
                (row.nextRun ? isoTime(*row.nextRun) : QStringLiteral("-")) + QLatin1Char('\t') +
                row.lastResult + QLatin1Char('\n');
    }
    return text;
}
