#pragma once

#include "platform/PlistDict.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

// The schedule types; client applications pass these numbers on the command line.
enum VTScheduleType : int
{
    ScheduleUnknown = -1,
    ScheduleAtStartup = 0,
    ScheduleOnMount = 1,
    ScheduleHourly = 2,
    ScheduleDaily = 3,
    ScheduleWeekly = 4,
    ScheduleMonthly = 5,
    ScheduleEverySeconds = 6,
    ScheduleCalendar = 7,
    ScheduleWatchDirectory = 8,
};

// One scheduled task: one launchd job file that runs a command of a client application.
// Every property may be unset, which is distinct from every value.
class VTScheduledTask
{
public:
    using Ptr = std::shared_ptr<VTScheduledTask>;

    // The defaults: empty file name, description and folder, type 0, 0 seconds, an empty
    // interval and argument list, enabled; bundle, task ID, root and icon unset.
    VTScheduledTask();

    const std::optional<QString> &filename() const { return m_filename; }
    void setFilename(const std::optional<QString> &value) { m_filename = value; }
    const std::optional<QString> &taskDescription() const { return m_taskDescription; }
    void setTaskDescription(const std::optional<QString> &value) { m_taskDescription = value; }
    const std::optional<QString> &taskBundleID() const { return m_taskBundleID; }
    void setTaskBundleID(const std::optional<QString> &value) { m_taskBundleID = value; }
    const std::optional<QString> &taskID() const { return m_taskID; }
    void setTaskID(const std::optional<QString> &value) { m_taskID = value; }
    const std::optional<qint64> &scheduleType() const { return m_scheduleType; }
    void setScheduleType(const std::optional<qint64> &value) { m_scheduleType = value; }
    const std::optional<qint64> &intervalSeconds() const { return m_intervalSeconds; }
    void setIntervalSeconds(const std::optional<qint64> &value) { m_intervalSeconds = value; }
    const std::optional<PlistDict> &interval() const { return m_interval; }
    void setInterval(const std::optional<PlistDict> &value) { m_interval = value; }
    const std::optional<QStringList> &taskArguments() const { return m_taskArguments; }
    void setTaskArguments(const std::optional<QStringList> &value) { m_taskArguments = value; }
    const std::optional<bool> &enabled() const { return m_enabled; }
    void setEnabled(const std::optional<bool> &value) { m_enabled = value; }
    const std::optional<bool> &root() const { return m_root; }
    void setRoot(const std::optional<bool> &value) { m_root = value; }
    const std::optional<QString> &intervalDirectory() const { return m_intervalDirectory; }
    void setIntervalDirectory(const std::optional<QString> &value) { m_intervalDirectory = value; }
    // A QImage from the workspace's icon provider; none in headless commands.
    const QVariant &icon() const { return m_icon; }
    void setIcon(const QVariant &value) { m_icon = value; }

    // Writes the job file and reloads the job, asking for administrator rights when needed.
    bool saveData();
    // Without authorization a file that cannot be written is skipped quietly.
    bool saveData(bool authorize);

    // The catalogue description of the task's arguments; sets taskID when found.
    std::optional<QString> descriptionFromArguments();
    void setScheduleTypeFromString(const QString &type, const std::optional<QString> &intervalVal);
    QString frequencyStringFromScheduleType() const;

    // Ordering for the table: negative, zero or positive.
    int descriptionCompare(const VTScheduledTask &other) const;
    int enabledCompare(const VTScheduledTask &other) const;
    int frequencyCompare(const VTScheduledTask &other) const;

    // Every property by name, ending at the first unset one.
    PlistDict descriptionDictionary() const;
    QString description() const;

    // Creates, names and saves a new task; null when its folder cannot be made or the
    // save fails.
    static Ptr taskWithBundleID(const QString &bundleID,
                                const std::optional<QStringList> &arguments,
                                const std::optional<qint64> &scheduleType,
                                const std::optional<qint64> &intervalSeconds,
                                const std::optional<PlistDict> &intervalDict,
                                const std::optional<bool> &root);
    // The command line's factory: a task from a catalogue entry and a schedule given as text.
    static Ptr taskWithBundleID(const QString &bundleID, const QString &taskID,
                                const QString &scheduleType,
                                const std::optional<QString> &intervalVal,
                                const std::optional<bool> &root);
    static std::optional<QStringList> argumentsFromTaskID(const QString &taskID,
                                                          const QString &bundleID);
    // Reads a job file; null when it is missing, unreadable or its application is gone.
    static Ptr taskWithFilename(const QString &path);

    // Five comma-separated fields: minute, hour, day, weekday, month. Fewer than five
    // fields raise an out-of-range error to the caller.
    static PlistDict intervalDictionaryFromString(const QString &expression);
    static QString friendlyIntervalDescription(const QString &minute, const QString &hour,
                                               const QString &day, const QString &weekday,
                                               const QString &month);

private:
    std::optional<QString> m_filename;
    std::optional<QString> m_taskDescription;
    std::optional<QString> m_taskBundleID;
    std::optional<QString> m_taskID;
    std::optional<qint64> m_scheduleType;
    std::optional<qint64> m_intervalSeconds;
    std::optional<PlistDict> m_interval;
    std::optional<QStringList> m_taskArguments;
    std::optional<bool> m_enabled;
    std::optional<bool> m_root;
    std::optional<QString> m_intervalDirectory;
    QVariant m_icon;
};
