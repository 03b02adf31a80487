#include "JobFileWriter.h"

#include "JobWriteAhead.h"
#include "VTScheduledTask.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "support/VTAuthorization.h"
#include "support/VTException.h"
#include "support/VTFormat.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "support/VTReport.h"
#include "support/VTTask.h"
#include "support/VTToolPaths.h"

#include <unistd.h>

namespace {

using namespace std::chrono_literals;

PlistDict calendarEntry(std::initializer_list<std::pair<const char *, int>> keys)
{
    PlistDict entry;
    for (const auto &[key, value] : keys) {
        entry.insert(QLatin1String(key), PlistValue(value));
    }
    return entry;
}

[[noreturn]] void nilValue(const char *key)
{
    throw VTException(
        QStringLiteral("NSInvalidArgumentException"),
        VTFormat::string(QStringLiteral("*** setObjectForKey: object cannot be nil (key: %s)"),
                         key));
}

} // namespace

QString JobFileWriter::programPath(const QString &appPath)
{
    return appPath + QStringLiteral("/Contents/MacOS/") +
           PathString::deletingPathExtension(PathString::lastPathComponent(appPath));
}

std::optional<PlistDict> JobFileWriter::jobDictionary(const VTScheduledTask &task,
                                                      const QString &appPath)
{
    const QString program = programPath(appPath);
    QStringList programArguments{
        PathString::deletingPathExtension(PathString::lastPathComponent(program))};
    programArguments += task.taskArguments().value_or(QStringList());

    PlistDict job;
    job.insert(QStringLiteral("Label"),
               PathString::deletingPathExtension(
                   PathString::lastPathComponent(task.filename().value_or(QString()))));
    job.insert(QStringLiteral("Program"), program);
    job.insert(QStringLiteral("ProgramArguments"), PlistValue(programArguments));
    job.insert(QStringLiteral("LowPriorityIO"), true);
    job.insert(QStringLiteral("Nice"), 15);

    PlistArray calendar;
    switch (task.scheduleType().value_or(0)) {
    case ScheduleAtStartup:
        job.insert(QStringLiteral("RunAtLoad"), true);
        break;
    case ScheduleOnMount:
        job.insert(QStringLiteral("StartOnMount"), true);
        break;
    case ScheduleHourly:
        calendar.emplace_back(calendarEntry({{"Minute", 0}}));
        break;
    case ScheduleDaily:
        calendar.emplace_back(calendarEntry({{"Hour", 7}, {"Minute", 0}}));
        break;
    case ScheduleWeekly:
        calendar.emplace_back(calendarEntry({{"Weekday", 1}, {"Hour", 7}, {"Minute", 0}}));
        break;
    case ScheduleMonthly:
        calendar.emplace_back(calendarEntry({{"Day", 1}, {"Hour", 7}, {"Minute", 0}}));
        break;
    case ScheduleCalendar:
        // One single-key dictionary per key, in the interval's own order; the reader merges
        // them back, and the two must stay symmetric.
        for (const auto &entry : task.interval().value_or(PlistDict())) {
            PlistDict element;
            element.insert(entry.key, entry.value);
            calendar.emplace_back(std::move(element));
        }
        break;
    case ScheduleEverySeconds:
        if (!task.intervalSeconds()) {
            nilValue("StartInterval");
        }
        job.insert(QStringLiteral("StartInterval"), PlistValue(*task.intervalSeconds()));
        break;
    case ScheduleWatchDirectory:
        if (!task.intervalDirectory()) {
            nilValue("WatchPaths");
        }
        job.insert(QStringLiteral("WatchPaths"),
                   PlistValue(QStringList{*task.intervalDirectory()}));
        break;
    default:
        return std::nullopt;
    }
    const qint64 type = task.scheduleType().value_or(0);
    if (type == ScheduleHourly || type == ScheduleDaily || type == ScheduleWeekly ||
        type == ScheduleMonthly || type == ScheduleCalendar) {
        job.insert(QStringLiteral("StartCalendarInterval"), PlistValue(std::move(calendar)));
    }

    if (!task.enabled().value_or(false)) {
        job.insert(QStringLiteral("Disabled"), true);
    }

    PlistDict environment;
    environment.insert(QStringLiteral("VTAppBundleID"), task.taskBundleID().value_or(QString()));
    if (task.taskID()) {
        environment.insert(QStringLiteral("VTCommandID"), *task.taskID());
    }
    job.insert(QStringLiteral("EnvironmentVariables"), PlistValue(std::move(environment)));
    return job;
}

bool JobFileWriter::saveData(VTScheduledTask &task, bool authorize)
{
    if (!task.filename() || !task.taskArguments() || !task.taskBundleID() || !task.scheduleType()) {
        VTReport::report(QStringLiteral("Sanity check failed"));
        return false;
    }
    const auto appPath = Workspace::absolutePathForAppBundleWithIdentifier(*task.taskBundleID());
    if (!appPath) {
        VTReport::report(
            VTFormat::string(QStringLiteral("Unable to locate application with bundle ID %@"),
                             *task.taskBundleID()));
        return false;
    }
    const auto job = jobDictionary(task, *appPath);
    if (!job) {
        return false;
    }

    const QString filename = *task.filename();
    const QByteArray xml = PropertyList::toXml(PlistValue(*job));
    std::unique_ptr<PropertyList::StagedWrite> staged = JobWriteAhead::take(filename, xml);
    if (!staged) {
        // A file written ahead already stands in its folder; otherwise the folder may be new.
        PosixFile::makeFolders(PathString::deletingLastPathComponent(filename));
        staged = PropertyList::stageXml(xml, filename);
    }
    const bool written = staged && staged->commit();
    JobWriteAhead::retire(std::move(staged));
    if (!written) {
        // Without authorization this is the quiet rewrite after an upgrade: skip the file
        // and go on as if it had been written, never asking for a password.
        if (authorize && !writeWithAuthorization(*job, filename)) {
            return false;
        }
    }
    reload(task);
    return true;
}

bool JobFileWriter::writeWithAuthorization(const PlistDict &job, const QString &filename)
{
    const QString message =
        VTFormat::string(QStringLiteral("Unable to write to %@. Authorizing..."), filename);
    Console::log(message);
    VTLog::appendLog(message);

    const QString stage = PathString::appendingPathComponent(
        VTLocalPaths::tempDirectory(), PathString::lastPathComponent(filename));
    if (!PropertyList::writeXml(PlistValue(job), stage)) {
        VTReport::report(VTFormat::string(QStringLiteral("Unable to write file %@"), filename));
        return false;
    }
    VTAuthorization &auth = VTAuthorization::sharedController();
    // The waits give the privileged tool time to finish before the next step looks.
    if (FileNames::exists(filename)) {
        if (!auth.authRemoveFile(filename)) {
            VTReport::report(QStringLiteral("Unable to authenticate"));
            return false;
        }
        Clock::current().sleepFor(1s);
    }
    if (!auth.authMoveFile(stage, filename)) {
        VTReport::report(QStringLiteral("Unable to authenticate"));
        return false;
    }
    Clock::current().sleepFor(1s);
    if (!FileNames::exists(filename)) {
        VTReport::report(QStringLiteral("Unable to move file"));
        ::unlink(FileNames::encode(stage).constData());
        return false;
    }
    return true;
}

void JobFileWriter::reload(const VTScheduledTask &task)
{
    const QString filename = *task.filename();
    const QString launchctl = VTToolPaths::launchctl();
    // A job that runs at load would run at once; it waits for the next start instead.
    const bool load = task.scheduleType().value_or(0) != ScheduleAtStartup;

    VTTask::runTask(launchctl, {QStringLiteral("unload"), filename});
    VTTask::runTask(VTToolPaths::chmod(), {QStringLiteral("644"), filename});
    // The save stands either way; a job the tool refuses (one systemd could not run) is at
    // least told on the console and in the log.
    const auto reportRefusal = [&filename](qint64 status) {
        if (status != 0) {
            const QString message =
                VTFormat::string(QStringLiteral("launchctl refused to load %@ (status %lld)"),
                                 filename, static_cast<long long>(status));
            Console::log(message);
            VTLog::appendLog(QStringLiteral("%@"), message);
        }
    };
    if (!task.root().value_or(false)) {
        if (load) {
            reportRefusal(
                VTTask::terminationCodeFromTask(launchctl, {QStringLiteral("load"), filename}));
        }
        return;
    }
    VTAuthorization &auth = VTAuthorization::sharedController();
    auth.authExecTask(VTToolPaths::chown(), {QStringLiteral("root:root"), filename});
    if (load) {
        Clock::current().sleepFor(1s);
        reportRefusal(auth.authRunTask(launchctl, {QStringLiteral("load"), filename}));
    }
}
