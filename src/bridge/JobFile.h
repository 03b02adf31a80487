#pragma once

#include "platform/PlistDict.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <utility>
#include <vector>

// A launchd job file as the bridge reads it. Only the keys the bridge translates are kept;
// a key of the wrong type is ignored with a warning, as launchd ignores it.
class JobFile
{
public:
    // The job at path, or no value with launchctl's message for a missing, unreadable or
    // invalid job file in *message.
    static std::optional<JobFile> read(const QString &path, QString *message);
    // The job of an already parsed dictionary read from path.
    static std::optional<JobFile> fromDictionary(const PlistDict &dict, const QString &path,
                                                 QString *message);

    // The absolute path of the job file (messages use the path as given).
    const QString &path() const { return m_path; }
    const QString &label() const { return m_label; }
    // Program, else the first element of ProgramArguments.
    const QString &program() const { return m_program; }
    // argv[0] and the rest: ProgramArguments, else Program alone.
    const QStringList &arguments() const { return m_arguments; }
    bool lowPriorityIO() const { return m_lowPriorityIO; }
    std::optional<int> nice() const { return m_nice; }
    bool runAtLoad() const { return m_runAtLoad; }
    bool startOnMount() const { return m_startOnMount; }
    // The elements of StartCalendarInterval (a lone dictionary counts as one element).
    const std::vector<PlistDict> &calendarIntervals() const { return m_calendar; }
    // StartInterval when it is a positive number of seconds; launchd ignores zero.
    std::optional<qint64> startInterval() const { return m_startInterval; }
    const QStringList &watchPaths() const { return m_watchPaths; }
    bool disabled() const { return m_disabled; }
    const std::vector<std::pair<QString, QString>> &environment() const { return m_environment; }
    // What was ignored, one sentence each.
    const QStringList &warnings() const { return m_warnings; }

private:
    JobFile() = default;

    QString m_path;
    QString m_label;
    QString m_program;
    QStringList m_arguments;
    bool m_lowPriorityIO = false;
    std::optional<int> m_nice;
    bool m_runAtLoad = false;
    bool m_startOnMount = false;
    std::vector<PlistDict> m_calendar;
    std::optional<qint64> m_startInterval;
    QStringList m_watchPaths;
    bool m_disabled = false;
    std::vector<std::pair<QString, QString>> m_environment;
    QStringList m_warnings;
};
