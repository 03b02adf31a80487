#include "TaskCatalogue.h"

#include "VTScheduledTask.h"
#include "platform/PlistFileCache.h"
#include "platform/Workspace.h"
#include "support/VTFormat.h"
#include "support/VTReport.h"

namespace {

// The number of elements of a collection value; no value for anything else.
std::optional<int> elementCount(const PlistValue &value)
{
    if (value.isArray()) {
        return static_cast<int>(value.array().size());
    }
    if (value.isDictionary()) {
        return value.dict().size();
    }
    return std::nullopt;
}

// Element by element, as strings compare.
bool sameArguments(const PlistArray &command, const QStringList &arguments)
{
    if (command.size() != static_cast<size_t>(arguments.size())) {
        return false;
    }
    for (size_t i = 0; i < command.size(); ++i) {
        if (!command[i].isString() || command[i].string() != arguments[static_cast<qsizetype>(i)]) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<PlistDict> TaskCatalogue::read(const QString &bundlePath)
{
    if (auto tasks = PlistFileCache::readDictionary(bundlePath +
                                                    QStringLiteral("/Contents/VTTasks.plist"))) {
        return tasks;
    }
    return PlistFileCache::readDictionary(bundlePath + QStringLiteral("/Contents/Info.plist"));
}

QString TaskCatalogue::oldFormatKey(const QStringList &arguments)
{
    return arguments.join(QStringLiteral(" ### "));
}

std::optional<QStringList> TaskCatalogue::argumentsFromTaskID(const QString &taskID,
                                                              const QString &bundleID)
{
    const auto appPath = Workspace::absolutePathForAppBundleWithIdentifier(bundleID);
    if (!appPath) {
        VTReport::report(VTFormat::string(
            QStringLiteral("Unable to get path for application with bundle ID %@"), bundleID));
        return std::nullopt;
    }
    const auto catalogue = read(*appPath);
    if (!catalogue) {
        VTReport::report(QStringLiteral("Unable to load application information"));
        return std::nullopt;
    }
    const PlistValue tasks = catalogue->value(QStringLiteral("VTTasks"));
    const auto count = elementCount(tasks);
    if (!count || *count == 0) {
        VTReport::report(QStringLiteral("No tasks found in application"));
        return std::nullopt;
    }

    // The old form's elements are its keys, which are strings: refused at once.
    PlistArray elements;
    if (tasks.isDictionary()) {
        for (const QString &key : tasks.dict().keys()) {
            elements.emplace_back(key);
        }
    } else {
        elements = tasks.array();
    }
    const PlistValue *match = nullptr;
    for (const PlistValue &element : elements) {
        if (element.isString()) {
            VTReport::report(QStringLiteral("Unable to create task - application uses old task "
                                            "format. Please update this application."));
            return std::nullopt;
        }
        const PlistValue id = element.dict().value(QStringLiteral("id"));
        if (id.isString() && id.string() == taskID) {
            match = &element;
            break;
        }
    }
    if (match) {
        const PlistValue command = match->dict().value(QStringLiteral("command"));
        if (command.isArray() && !command.array().empty()) {
            return command.stringList();
        }
    }
    // The notification says "task ID", the console "task id".
    VTReport::report(
        VTFormat::string(QStringLiteral("Unable to find task with task ID %@"), taskID),
        VTFormat::string(QStringLiteral("Unable to find task with task id %@"), taskID));
    return std::nullopt;
}

std::optional<QString> TaskCatalogue::descriptionFromArguments(VTScheduledTask &task)
{
    const auto &arguments = task.taskArguments();
    if (!arguments || arguments->isEmpty() || !task.taskBundleID()) {
        return std::nullopt;
    }
    const auto appPath = Workspace::absolutePathForAppBundleWithIdentifier(*task.taskBundleID());
    if (!appPath) {
        return std::nullopt;
    }
    const auto catalogue = read(*appPath);
    if (!catalogue) {
        return std::nullopt;
    }
    const PlistValue tasks = catalogue->value(QStringLiteral("VTTasks"));
    if (tasks.isDictionary()) {
        const PlistValue description = tasks.dict().value(oldFormatKey(*arguments));
        if (description.isString()) {
            return description.string();
        }
        return std::nullopt;
    }
    if (!tasks.isArray()) {
        return std::nullopt;
    }
    for (const PlistValue &entry : tasks.array()) {
        const PlistValue command = entry.dict().value(QStringLiteral("command"));
        if (command.isArray() && sameArguments(command.array(), *arguments)) {
            const PlistValue id = entry.dict().value(QStringLiteral("id"));
            if (id.isString()) {
                task.setTaskID(id.string());
            } else if (id.isValid()) {
                task.setTaskID(id.description());
            } else {
                task.setTaskID(std::nullopt);
            }
            const PlistValue description = entry.dict().value(QStringLiteral("description"));
            if (description.isString()) {
                return description.string();
            }
            return std::nullopt;
        }
    }
    return std::nullopt;
}

bool TaskCatalogue::isRootTask(const QString &bundleID, const QString &taskID)
{
    const auto appPath = Workspace::absolutePathForAppBundleWithIdentifier(bundleID);
    if (!appPath) {
        return false;
    }
    const auto tasks =
        PlistFileCache::readDictionary(*appPath + QStringLiteral("/Contents/VTTasks.plist"));
    if (!tasks) {
        return false;
    }
    for (const PlistValue &entry : tasks->value(QStringLiteral("VTTasks")).array()) {
        const PlistValue id = entry.dict().value(QStringLiteral("id"));
        if (id.isString() && id.string() == taskID) {
            return entry.dict().value(QStringLiteral("root")).boolValue();
        }
    }
    return false;
}
