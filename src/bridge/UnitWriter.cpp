#include "UnitWriter.h"

#include "CalendarEvent.h"
#include "UnitHeader.h"
#include "UnitName.h"
#include "UnitQuoting.h"

#include <QDir>
#include <QRegularExpression>

namespace {

const QLatin1String kWatcherName("kairo-mount-watcher.service");

bool isEnvironmentName(const QString &name)
{
    static const QRegularExpression valid(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*$"));
    return valid.match(name).hasMatch();
}

QString section(const QString &name, const QStringList &lines)
{
    return QLatin1Char('[') + name + QStringLiteral("]\n") + lines.join(QLatin1Char('\n')) +
           QLatin1Char('\n');
}

QString unitSection(const QString &label)
{
    return section(QStringLiteral("Unit"),
                   {QStringLiteral("Description=") + UnitQuoting::description(label)});
}

QString installSection(const QString &target)
{
    return section(QStringLiteral("Install"), {QStringLiteral("WantedBy=") + target});
}

// The calendar events of StartCalendarInterval. The application writes one calendar
// interval as one element per key ({Minute: 30}, {Hour: 2}) and means one event (2:30
// every day), so elements of exactly one key each, no key twice, are merged; any other
// array keeps launchd's reading, one event per element.
std::vector<PlistDict> calendarEvents(const std::vector<PlistDict> &elements)
{
    PlistDict merged;
    for (const PlistDict &element : elements) {
        if (element.size() != 1 || merged.contains(element.at(0).key)) {
            return elements;
        }
        merged.insert(element.at(0).key, element.at(0).value);
    }
    return elements.size() > 1 ? std::vector<PlistDict>{merged} : elements;
}

} // namespace

std::optional<QStringList> UnitWriter::unitNames(const QString &label)
{
    // ".service" is the longest suffix.
    const std::optional<QString> service = UnitName::forLabel(label, QStringLiteral("service"));
    if (!service) {
        return std::nullopt;
    }
    return QStringList{*service, UnitName::escape(label) + QStringLiteral(".timer"),
                       UnitName::escape(label) + QStringLiteral(".path")};
}

bool UnitWriter::systemdRunsProgram(const QString &program)
{
    return !program.contains(QLatin1Char('\'')) && !program.contains(QLatin1Char('"')) &&
           !program.contains(QLatin1Char('\\'));
}

std::optional<UnitWriter> UnitWriter::forJob(const JobFile &job, const ManagerScope &scope,
                                             QString *message, const QString &bridgePath)
{
    if (!systemdRunsProgram(job.program()) &&
        (bridgePath.isEmpty() || !systemdRunsProgram(bridgePath))) {
        *message = QStringLiteral("kairo-launchctl: systemd cannot run the program \"%1\" of %2")
                       .arg(UnitQuoting::cEscape(job.program()), job.path());
        return std::nullopt;
    }
    // systemd reads no assignment that is not UTF-8 and unescapes neither paths to watch nor
    // environment values, so a file name in them that is not UTF-8 has no form it takes.
    for (const QString &watched : job.watchPaths()) {
        if (!watched.isValidUtf16()) {
            *message = QStringLiteral("kairo-launchctl: systemd cannot watch \"%1\" of %2: the "
                                      "path is not UTF-8")
                           .arg(UnitQuoting::cEscape(watched), job.path());
            return std::nullopt;
        }
    }
    for (const auto &[name, value] : job.environment()) {
        if (!value.isValidUtf16()) {
            *message = QStringLiteral("kairo-launchctl: systemd cannot pass the environment "
                                      "variable \"%1\" of %2: its value is not UTF-8")
                           .arg(UnitQuoting::cEscape(name), job.path());
            return std::nullopt;
        }
    }
    const std::optional<QStringList> names = unitNames(job.label());
    if (!names) {
        *message = QStringLiteral("kairo-launchctl: the label of %1 is too long for a systemd unit")
                       .arg(job.path());
        return std::nullopt;
    }
    if (names->first() == kWatcherName) {
        *message =
            QStringLiteral("kairo-launchctl: the label of %1 is reserved for the mount watcher")
                .arg(job.path());
        return std::nullopt;
    }

    UnitWriter writer;
    writer.m_serviceName = names->at(0);
    writer.m_warnings = job.warnings();
    writer.m_units.emplace_back(writer.m_serviceName, writer.serviceText(job, scope, bridgePath));
    if (const std::optional<QString> timer = writer.timerText(job)) {
        writer.m_units.emplace_back(names->at(1), *timer);
        writer.m_triggers.append(names->at(1));
    }
    if (const std::optional<QString> path = writer.pathText(job)) {
        writer.m_units.emplace_back(names->at(2), *path);
        writer.m_triggers.append(names->at(2));
    }
    if (job.runAtLoad()) {
        writer.m_triggers.append(writer.m_serviceName);
    }
    return writer;
}

QString UnitWriter::serviceText(const JobFile &job, const ManagerScope &scope,
                                const QString &bridgePath)
{
    QStringList exec;
    if (systemdRunsProgram(job.program())) {
        exec.append(QLatin1Char('@') + UnitQuoting::execWord(job.program()));
    } else {
        exec.append(UnitQuoting::execWord(bridgePath));
        exec.append(UnitQuoting::execWord(QStringLiteral("exec")));
        exec.append(UnitQuoting::execWord(job.program()));
    }
    for (const QString &argument : job.arguments()) {
        exec.append(UnitQuoting::execWord(argument));
    }
    QStringList service{QStringLiteral("Type=oneshot"),
                        QStringLiteral("ExecStart=") + exec.join(QLatin1Char(' '))};
    if (job.nice()) {
        service.append(QStringLiteral("Nice=%1").arg(*job.nice()));
    }
    if (job.lowPriorityIO()) {
        service.append(QStringLiteral("IOSchedulingClass=idle"));
    }
    for (const auto &[name, value] : job.environment()) {
        if (isEnvironmentName(name)) {
            service.append(QStringLiteral("Environment=") +
                           UnitQuoting::assignment(name + QLatin1Char('=') + value));
        } else {
            m_warnings.append(QStringLiteral("EnvironmentVariables: \"%1\" is no variable name "
                                             "systemd accepts and is left out")
                                  .arg(UnitQuoting::cEscape(name)));
        }
    }

    QString text = UnitHeader::forJob(job.path(), job.label(), job.startOnMount(), job.disabled()) +
                   unitSection(job.label()) + QLatin1Char('\n') +
                   section(QStringLiteral("Service"), service);
    if (job.runAtLoad()) {
        text += QLatin1Char('\n') + installSection(scope.startupTarget());
    }
    return text;
}

std::optional<QString> UnitWriter::timerText(const JobFile &job)
{
    QStringList timer;
    for (const PlistDict &element : calendarEvents(job.calendarIntervals())) {
        for (const CalendarEvent &event : CalendarEvent::fromLaunchd(element, &m_warnings)) {
            timer.append(QStringLiteral("OnCalendar=") + event.toString());
        }
    }
    const bool calendar = !timer.isEmpty();
    if (job.startInterval()) {
        timer.append(QStringLiteral("OnActiveSec=%1").arg(*job.startInterval()));
        timer.append(QStringLiteral("OnUnitActiveSec=%1").arg(*job.startInterval()));
    }
    if (timer.isEmpty()) {
        return std::nullopt;
    }
    if (calendar) {
        // A run missed while the machine was off happens at the next start, as with launchd.
        timer.append(QStringLiteral("Persistent=true"));
    }
    timer.append(QStringLiteral("AccuracySec=1s"));
    return UnitHeader::forJob(job.path()) + unitSection(job.label()) + QLatin1Char('\n') +
           section(QStringLiteral("Timer"), timer) + QLatin1Char('\n') +
           installSection(QStringLiteral("timers.target"));
}

std::optional<QString> UnitWriter::pathText(const JobFile &job)
{
    QStringList paths;
    for (const QString &watched : job.watchPaths()) {
        if (watched.isEmpty()) {
            continue;
        }
        // systemd wants normalized paths; lexically they mean the same.
        const std::optional<QString> value = QDir::isAbsolutePath(watched)
                                                 ? UnitQuoting::path(QDir::cleanPath(watched))
                                                 : std::nullopt;
        if (!value) {
            m_warnings.append(
                QStringLiteral("WatchPaths: \"%1\" cannot be watched by systemd and is left out")
                    .arg(UnitQuoting::cEscape(watched)));
            continue;
        }
        paths.append(QStringLiteral("PathModified=") + *value);
    }
    if (paths.isEmpty()) {
        return std::nullopt;
    }
    return UnitHeader::forJob(job.path()) + unitSection(job.label()) + QLatin1Char('\n') +
           section(QStringLiteral("Path"), paths) + QLatin1Char('\n') +
           installSection(QStringLiteral("paths.target"));
}

QString UnitWriter::mountWatcherName()
{
    return kWatcherName;
}

QString UnitWriter::mountWatcherUnit(const QString &bridgePath, const ManagerScope &scope)
{
    QString exec = UnitQuoting::execWord(bridgePath) + QLatin1Char(' ') +
                   UnitQuoting::execWord(QStringLiteral("watch-mounts"));
    if (scope.isSystem()) {
        exec += QLatin1Char(' ') + UnitQuoting::execWord(QStringLiteral("--system"));
    }
    return UnitHeader::forMountWatcher() +
           section(
               QStringLiteral("Unit"),
               {QStringLiteral(
                   "Description=Starts the Kairo Planner jobs that run when a disk is mounted")}) +
           QLatin1Char('\n') +
           section(QStringLiteral("Service"),
                   {QStringLiteral("Type=simple"), QStringLiteral("ExecStart=") + exec,
                    QStringLiteral("Restart=on-failure")}) +
           QLatin1Char('\n') + installSection(scope.startupTarget());
}
