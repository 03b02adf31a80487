#include "JobFileReader.h"

#include "TaskCatalogue.h"
#include "platform/Bundle.h"
#include "platform/FileNames.h"
#include "platform/LookupSnapshot.h"
#include "platform/PathString.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "support/VTAlert.h"
#include "support/VTAuthorization.h"
#include "support/VTException.h"
#include "support/VTFormat.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {

// The first ".app" and everything before it; a path without one cannot be cut.
QString applicationPathOf(const QString &program)
{
    const int at = program.indexOf(QLatin1String(".app"));
    if (at < 0) {
        throw VTException(
            QStringLiteral("NSRangeException"),
            VTFormat::string(QStringLiteral("*** substringToIndex: index beyond end of \"%@\""),
                             program));
    }
    return program.left(at + 4);
}

bool hasNumber(const PlistDict &dict, const char *key, qint64 number)
{
    const PlistValue *v = dict.find(QLatin1String(key));
    return v && v->isNumber() && v->numberEquals(number);
}

// Deleting an entry takes write access to its folder.
bool mayDelete(const QString &path)
{
    const QString folder = PathString::deletingLastPathComponent(path);
    return ::access(FileNames::encode(folder.isEmpty() ? QStringLiteral(".") : folder).constData(),
                    W_OK | X_OK) == 0;
}

} // namespace

VTScheduledTask::Ptr JobFileReader::taskWithFilename(const QString &path)
{
    auto task = std::make_shared<VTScheduledTask>();
    // A missing file reads as no dictionary: both give no task, without a message.
    const auto job = PropertyList::readDictionary(path);
    if (!job) {
        return nullptr;
    }
    task->setFilename(path);

    const PlistDict environment = job->value(QStringLiteral("EnvironmentVariables")).dict();
    const PlistValue program = job->value(QStringLiteral("Program"));
    std::optional<QString> appPath;
    std::optional<QString> executable;
    if (const PlistValue *bundleID = environment.find(QStringLiteral("VTAppBundleID"))) {
        // The recorded program path is not trusted: a moved application is found again.
        task->setTaskBundleID(bundleID->isString() ? bundleID->string() : bundleID->description());
        appPath = Workspace::absolutePathForAppBundleWithIdentifier(*task->taskBundleID());
        if (appPath) {
            const QString name = program.isString()
                                     ? PathString::deletingPathExtension(
                                           PathString::lastPathComponent(program.string()))
                                     : QStringLiteral("(null)");
            executable = *appPath + QStringLiteral("/Contents/MacOS/") + name;
        }
    } else if (program.isString()) {
        // Files of earlier versions carry no bundle identifier.
        executable = program.string();
        appPath = applicationPathOf(program.string());
        if (auto bundle = Bundle::atPath(*appPath)) {
            task->setTaskBundleID(bundle->bundleIdentifier());
        }
    }

    LookupSnapshot *snapshot = LookupSnapshot::current();
    if (!executable ||
        !(snapshot ? snapshot->fileExists(*executable) : FileNames::exists(*executable))) {
        offerRemoval(path, executable, task->taskBundleID());
        return nullptr;
    }

    task->setIcon(Workspace::iconForFile(*appPath, QSize(18, 18)));

    const PlistArray programArguments = job->value(QStringLiteral("ProgramArguments")).array();
    if (programArguments.size() > 1) {
        QStringList arguments;
        for (size_t i = 1; i < programArguments.size(); ++i) {
            arguments.append(programArguments[i].isString() ? programArguments[i].string()
                                                            : programArguments[i].description());
        }
        task->setTaskArguments(arguments);
        task->setTaskDescription(task->descriptionFromArguments());
    }
    if (const PlistValue *commandID = environment.find(QStringLiteral("VTCommandID"))) {
        task->setTaskID(commandID->isString() ? commandID->string() : commandID->description());
    }

    task->setIntervalSeconds(10);
    task->setScheduleType(classify(*job, *task));
    task->setEnabled(!job->contains(QStringLiteral("Disabled")));
    return task;
}

qint64 JobFileReader::classify(const PlistDict &job, VTScheduledTask &task)
{
    // Presence of a key counts, not its value.
    if (job.contains(QStringLiteral("RunAtLoad"))) {
        return ScheduleAtStartup;
    }
    if (job.contains(QStringLiteral("StartOnMount"))) {
        return ScheduleOnMount;
    }
    if (const PlistValue *seconds = job.find(QStringLiteral("StartInterval"))) {
        // Read back as a calendar task, not as "every N seconds": saving it again writes an
        // empty calendar. Kept so, symmetric with what earlier versions read.
        task.setIntervalSeconds(seconds->integerValue());
        return ScheduleCalendar;
    }
    if (const PlistValue *paths = job.find(QStringLiteral("WatchPaths"))) {
        const PlistArray &list = paths->array();
        if (list.empty()) {
            return ScheduleUnknown;
        }
        task.setIntervalDirectory(list.front().isString() ? list.front().string()
                                                          : list.front().description());
        return ScheduleWatchDirectory;
    }
    const PlistValue *calendar = job.find(QStringLiteral("StartCalendarInterval"));
    if (!calendar || calendar->array().empty()) {
        return ScheduleUnknown;
    }
    // Only the first element decides between the fixed schedules.
    const PlistDict first = calendar->array().front().dict();
    if (hasNumber(first, "Day", 1)) {
        return ScheduleMonthly;
    }
    if (hasNumber(first, "Weekday", 1)) {
        return ScheduleWeekly;
    }
    if (hasNumber(first, "Hour", 7)) {
        return ScheduleDaily;
    }
    if (hasNumber(first, "Minute", 0)) {
        return ScheduleHourly;
    }
    PlistDict merged;
    for (const PlistValue &element : calendar->array()) {
        const PlistDict &entry = element.dict();
        if (!entry.isEmpty()) {
            merged.insert(entry.at(0).key, entry.at(0).value);
        }
    }
    task.setInterval(merged);
    return ScheduleCalendar;
}

void JobFileReader::offerRemoval(const QString &path, const std::optional<QString> &executable,
                                 const std::optional<QString> &bundleID)
{
    QString name;
    if (executable) {
        name = *executable;
    } else if (bundleID && !bundleID->isEmpty()) {
        name = bundleID->split(QLatin1Char('.')).last();
    } else {
        name = QStringLiteral("Unknown Application");
    }
    VTAlertRequest question;
    question.messageText = QStringLiteral("Unable to locate executable file");
    question.informativeText = VTFormat::string(
        QStringLiteral(
            "Kairo Planner cannot find %@.\n\nThis task is invalid - would you like to remove it?"),
        name);
    question.defaultButton = QStringLiteral("Remove Task");
    question.alternateButton = QStringLiteral("Ignore");
    if (VTAlert::runModal(question) != VTAlert::DefaultReturn) {
        return;
    }
    // The job is not unloaded first.
    if (mayDelete(path)) {
        if (::unlink(FileNames::encode(path).constData()) != 0) {
            VTAlertRequest failure;
            failure.messageText = QStringLiteral("Unable to remove file.");
            failure.informativeText = QString::fromLocal8Bit(std::strerror(errno));
            failure.defaultButton = QStringLiteral("OK");
            VTAlert::runModal(failure);
        }
        return;
    }
    VTAuthorization::sharedController().authTrashFile(path);
}
