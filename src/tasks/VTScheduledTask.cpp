#include "VTScheduledTask.h"

#include "JobFileName.h"
#include "JobFileReader.h"
#include "JobFileWriter.h"
#include "TaskCatalogue.h"
#include "VTSchedule.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/PlistText.h"
#include "platform/PosixFile.h"
#include "platform/Workspace.h"
#include "support/VTException.h"
#include "support/VTLocalPaths.h"
#include "support/VTTaskNotification.h"

#include <QFileInfo>

namespace {

int ordering(int comparison)
{
    return comparison < 0 ? -1 : (comparison > 0 ? 1 : 0);
}

} // namespace

VTScheduledTask::VTScheduledTask()
    : m_filename(QString()), m_taskDescription(QString()), m_scheduleType(0), m_intervalSeconds(0),
      m_interval(PlistDict()), m_taskArguments(QStringList()), m_enabled(true),
      m_intervalDirectory(QString())
{}

bool VTScheduledTask::saveData()
{
    return saveData(true);
}

bool VTScheduledTask::saveData(bool authorize)
{
    // No guard of its own: an error inside reaches the caller's guard.
    return JobFileWriter::saveData(*this, authorize);
}

std::optional<QString> VTScheduledTask::descriptionFromArguments()
{
    return VTException::guard(VT_METHOD, std::optional<QString>(),
                              [&] { return TaskCatalogue::descriptionFromArguments(*this); });
}

void VTScheduledTask::setScheduleTypeFromString(const QString &type,
                                                const std::optional<QString> &intervalVal)
{
    VTException::guard(VT_METHOD, [&] {
        m_scheduleType = PlistValue(type).integerValue();
        // Exact strings only: "06" sets type 6 above but takes none of these branches.
        if (type == QLatin1String("6")) {
            if (intervalVal) {
                m_intervalSeconds = PlistValue(*intervalVal).integerValue();
                return;
            }
        } else if (type == QLatin1String("7")) {
            if (intervalVal) {
                m_interval = intervalDictionaryFromString(*intervalVal);
                return;
            }
        } else if (type == QLatin1String("8")) {
            m_intervalDirectory = intervalVal;
            return;
        } else {
            return;
        }
        VTTaskNotification::postTaskErrorString(QStringLiteral(
            "Kairo Planner: You must specify an interval value for this interval type"));
        Console::log(QStringLiteral("You must specify an interval value for this interval type"));
    });
}

QString VTScheduledTask::frequencyStringFromScheduleType() const
{
    return VTException::guard(VT_METHOD, QString(),
                              [&] { return VTSchedule::frequencyString(*this); });
}

int VTScheduledTask::descriptionCompare(const VTScheduledTask &other) const
{
    return ordering(QString::compare(m_taskDescription.value_or(QString()),
                                     other.m_taskDescription.value_or(QString()),
                                     Qt::CaseInsensitive));
}

int VTScheduledTask::enabledCompare(const VTScheduledTask &other) const
{
    const int mine = m_enabled.value_or(false) ? 1 : 0;
    const int theirs = other.m_enabled.value_or(false) ? 1 : 0;
    return ordering(mine - theirs);
}

int VTScheduledTask::frequencyCompare(const VTScheduledTask &other) const
{
    return ordering(QString::compare(frequencyStringFromScheduleType(),
                                     other.frequencyStringFromScheduleType(), Qt::CaseInsensitive));
}

PlistDict VTScheduledTask::descriptionDictionary() const
{
    return VTException::guard(VT_METHOD, PlistDict(), [&] {
        // Built from a key-value list that ends at the first unset value, so an unset
        // property drops its key and every key after it.
        std::pair<QString, std::optional<PlistValue>> entries[] = {
            {QStringLiteral("filename"),
             m_filename ? std::optional<PlistValue>(*m_filename) : std::nullopt},
            {QStringLiteral("taskDescription"),
             m_taskDescription ? std::optional<PlistValue>(*m_taskDescription) : std::nullopt},
            {QStringLiteral("taskBundleID"),
             m_taskBundleID ? std::optional<PlistValue>(*m_taskBundleID) : std::nullopt},
            {QStringLiteral("taskID"),
             m_taskID ? std::optional<PlistValue>(*m_taskID) : std::nullopt},
            {QStringLiteral("scheduleType"),
             m_scheduleType ? std::optional<PlistValue>(*m_scheduleType) : std::nullopt},
            {QStringLiteral("intervalSeconds"),
             m_intervalSeconds ? std::optional<PlistValue>(*m_intervalSeconds) : std::nullopt},
            {QStringLiteral("interval"),
             m_interval ? std::optional<PlistValue>(*m_interval) : std::nullopt},
            {QStringLiteral("taskArguments"),
             m_taskArguments ? std::optional<PlistValue>(*m_taskArguments) : std::nullopt},
            {QStringLiteral("enabled"),
             m_enabled ? std::optional<PlistValue>(*m_enabled) : std::nullopt},
            {QStringLiteral("root"), m_root ? std::optional<PlistValue>(*m_root) : std::nullopt},
            {QStringLiteral("intervalDirectory"),
             m_intervalDirectory ? std::optional<PlistValue>(*m_intervalDirectory) : std::nullopt},
            {QStringLiteral("frequencyDescription"),
             std::optional<PlistValue>(frequencyStringFromScheduleType())},
        };
        PlistDict dict;
        dict.reserve(static_cast<int>(std::size(entries)));
        // The keys are literals, so listing a thousand tasks allocates no key text.
        for (auto &[key, value] : entries) {
            if (!value) {
                break;
            }
            dict.insert(std::move(key), std::move(*value));
        }
        return dict;
    });
}

QString VTScheduledTask::description() const
{
    return PlistText::render(PlistValue(descriptionDictionary()));
}

VTScheduledTask::Ptr VTScheduledTask::taskWithBundleID(const QString &bundleID,
                                                       const std::optional<QStringList> &arguments,
                                                       const std::optional<qint64> &scheduleType,
                                                       const std::optional<qint64> &intervalSeconds,
                                                       const std::optional<PlistDict> &intervalDict,
                                                       const std::optional<bool> &root)
{
    return VTException::guard(VT_METHOD, Ptr(), [&]() -> Ptr {
        auto task = std::make_shared<VTScheduledTask>();
        task->setTaskBundleID(bundleID.isNull() ? std::nullopt : std::optional<QString>(bundleID));
        task->setTaskArguments(arguments);
        task->setScheduleType(scheduleType);
        task->setIntervalSeconds(intervalSeconds);
        task->setInterval(intervalDict);
        task->setTaskDescription(task->descriptionFromArguments());
        task->setEnabled(true);
        task->setIntervalDirectory(QString());
        task->setRoot(root);

        const bool isRoot = root.value_or(false);
        const auto library = VTLocalPaths::libraryDirectory(!isRoot);
        if (!library) {
            return nullptr;
        }
        const QString folder = *library + (isRoot ? QStringLiteral("/LaunchDaemons")
                                                  : QStringLiteral("/LaunchAgents"));
        if (!FileNames::isDirectory(folder) && !PosixFile::makeFolders(folder)) {
            return nullptr;
        }
        const std::optional<QString> appPath =
            bundleID.isNull() ? std::nullopt
                              : Workspace::absolutePathForAppBundleWithIdentifier(bundleID);
        const JobFileName::Claim claim =
            JobFileName::claim(folder, isRoot, [&](const QString &path) {
                std::optional<PlistDict> job;
                if (!appPath || !task->taskArguments() || !task->scheduleType()) {
                    return job;
                }
                task->setFilename(path);
                // What cannot be built here is left for the save to report.
                try {
                    job = JobFileWriter::jobDictionary(*task, *appPath);
                } catch (...) {
                }
                return job;
            });
        task->setFilename(claim.path);
        bool saved = false;
        try {
            saved = task->saveData();
        } catch (...) {
            JobFileName::release(claim);
            throw;
        }
        if (!saved) {
            JobFileName::release(claim);
            return nullptr;
        }
        return task;
    });
}

VTScheduledTask::Ptr VTScheduledTask::taskWithBundleID(const QString &bundleID,
                                                       const QString &taskID,
                                                       const QString &scheduleType,
                                                       const std::optional<QString> &intervalVal,
                                                       const std::optional<bool> &root)
{
    return VTException::guard(VT_METHOD, Ptr(), [&]() -> Ptr {
        if (bundleID.isNull() || taskID.isNull() || scheduleType.isNull()) {
            return nullptr;
        }
        const auto arguments = argumentsFromTaskID(taskID, bundleID);
        if (!arguments) {
            return nullptr;
        }
        std::optional<qint64> seconds = 0;
        std::optional<PlistDict> interval;
        if (scheduleType == QLatin1String("6") || scheduleType == QLatin1String("7")) {
            if (!intervalVal) {
                Console::log(
                    QStringLiteral("You must specify an interval value for this interval type"));
                return nullptr;
            }
            if (scheduleType == QLatin1String("6")) {
                seconds = PlistValue(*intervalVal).integerValue();
            } else {
                interval = intervalDictionaryFromString(*intervalVal);
            }
        }
        Ptr task = taskWithBundleID(bundleID, arguments, PlistValue(scheduleType).integerValue(),
                                    seconds, interval, root);
        if (!task) {
            return nullptr;
        }
        if (scheduleType == QLatin1String("8")) {
            task->setIntervalDirectory(intervalVal);
        }
        task->setTaskID(taskID);
        // Written a second time so that the file carries the watched folder and the task ID.
        task->saveData();
        return task;
    });
}

std::optional<QStringList> VTScheduledTask::argumentsFromTaskID(const QString &taskID,
                                                                const QString &bundleID)
{
    return VTException::guard(VT_METHOD, std::optional<QStringList>(),
                              [&] { return TaskCatalogue::argumentsFromTaskID(taskID, bundleID); });
}

VTScheduledTask::Ptr VTScheduledTask::taskWithFilename(const QString &path)
{
    // No guard of its own: an error inside reaches the caller's guard.
    return JobFileReader::taskWithFilename(path);
}

PlistDict VTScheduledTask::intervalDictionaryFromString(const QString &expression)
{
    return VTSchedule::intervalDictionaryFromString(expression);
}

QString VTScheduledTask::friendlyIntervalDescription(const QString &minute, const QString &hour,
                                                     const QString &day, const QString &weekday,
                                                     const QString &month)
{
    return VTException::guard(VT_METHOD, QString(), [&] {
        return VTSchedule::friendlyIntervalDescription(minute, hour, day, weekday, month);
    });
}
