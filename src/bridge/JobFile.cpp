#include "JobFile.h"

#include "platform/FileNames.h"
#include "platform/PropertyList.h"

#include <QDir>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/stat.h>

// The messages for job files that cannot be loaded follow launchctl's own:
//   launchctl: Couldn't stat("PATH"): No such file or directory
//   launchctl: no plist was returned for: PATH            (unreadable, malformed, no dictionary)
//   launchctl: missing the Label key: PATH                (absent, not a string, or empty)
//   launchctl: missing the Program and ProgramArguments keys: PATH
//   launchctl: invalid Program "NAME": PATH               (one systemd cannot run)
// The caller adds launchctl's closing "nothing found to load" or "nothing found to unload".

namespace {

// launchd hands every string to C, so a NUL ends it.
QString cString(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(0));
    return nul < 0 ? text : text.left(nul);
}

std::optional<bool> boolean(const PlistDict &dict, const QString &key, QStringList *warnings)
{
    const PlistValue value = dict.value(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    if (!value.isBoolean()) {
        warnings->append(QStringLiteral("%1 is not a boolean and is ignored").arg(key));
        return std::nullopt;
    }
    return value.boolValue();
}

std::optional<qint64> integer(const PlistDict &dict, const QString &key, QStringList *warnings)
{
    const PlistValue value = dict.value(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    if (!value.isInteger()) {
        warnings->append(QStringLiteral("%1 is not an integer and is ignored").arg(key));
        return std::nullopt;
    }
    return value.integerValue();
}

// A string array; other elements are left out with a warning, and a value that is no array
// gives no value.
std::optional<QStringList> strings(const PlistDict &dict, const QString &key, QStringList *warnings)
{
    const PlistValue value = dict.value(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    if (!value.isArray()) {
        warnings->append(QStringLiteral("%1 is not an array and is ignored").arg(key));
        return std::nullopt;
    }
    QStringList list;
    for (const PlistValue &item : value.array()) {
        if (item.isString()) {
            list.append(cString(item.string()));
        } else {
            warnings->append(
                QStringLiteral("an element of %1 is not a string and is ignored").arg(key));
        }
    }
    return list;
}

// systemd takes an absolute path or a plain command name (looked up in its fixed search
// path, as launchd looks a name up in PATH), without control characters; a leading "-",
// "@", ":", "+", "!" or "|" would be read as one of its ExecStart= prefixes.
bool usableProgram(const QString &program)
{
    if (program.isEmpty()) {
        return false;
    }
    for (const QChar c : program) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
            return false;
        }
    }
    if (program.startsWith(QLatin1Char('/'))) {
        return true;
    }
    return !program.contains(QLatin1Char('/')) && !QStringLiteral("-@:+!|").contains(program.at(0));
}

} // namespace

std::optional<JobFile> JobFile::read(const QString &path, QString *message)
{
    struct stat info;
    if (::stat(FileNames::encode(path).constData(), &info) != 0) {
        const int error = errno;
        *message = QStringLiteral("launchctl: Couldn't stat(\"%1\"): %2")
                       .arg(path, QString::fromLocal8Bit(std::strerror(error)));
        return std::nullopt;
    }
    const std::optional<PlistDict> dict = PropertyList::readDictionary(path);
    if (!dict) {
        *message = QStringLiteral("launchctl: no plist was returned for: %1").arg(path);
        return std::nullopt;
    }
    return fromDictionary(*dict, path, message);
}

std::optional<JobFile> JobFile::fromDictionary(const PlistDict &dict, const QString &path,
                                               QString *message)
{
    JobFile job;
    // Messages name the path as the caller gave it, as launchctl's do.
    job.m_path = FileNames::absolutePath(path);
    QStringList *warnings = &job.m_warnings;

    const PlistValue label = dict.value(QStringLiteral("Label"));
    if (!label.isString() || cString(label.string()).isEmpty()) {
        *message = QStringLiteral("launchctl: missing the Label key: %1").arg(path);
        return std::nullopt;
    }
    job.m_label = cString(label.string());

    const PlistValue program = dict.value(QStringLiteral("Program"));
    if (program.isValid() && !program.isString()) {
        warnings->append(QStringLiteral("Program is not a string and is ignored"));
    }
    const std::optional<QStringList> arguments =
        strings(dict, QStringLiteral("ProgramArguments"), warnings);
    if (program.isString()) {
        job.m_program = cString(program.string());
        job.m_arguments =
            arguments && !arguments->isEmpty() ? *arguments : QStringList{job.m_program};
    } else if (arguments && !arguments->isEmpty()) {
        job.m_program = arguments->first();
        job.m_arguments = *arguments;
    } else {
        *message = QStringLiteral("launchctl: missing the Program and ProgramArguments keys: %1")
                       .arg(path);
        return std::nullopt;
    }
    if (!usableProgram(job.m_program)) {
        *message = QStringLiteral("launchctl: invalid Program \"%1\": %2").arg(job.m_program, path);
        return std::nullopt;
    }
    if (job.m_program.startsWith(QLatin1Char('/'))) {
        // systemd refuses paths that are not normalized; "//" and "/./" mean the same anyway.
        job.m_program = QDir::cleanPath(job.m_program);
    }

    job.m_lowPriorityIO = boolean(dict, QStringLiteral("LowPriorityIO"), warnings).value_or(false);
    if (const std::optional<qint64> nice = integer(dict, QStringLiteral("Nice"), warnings)) {
        // The kernel clamps a nice value the same way.
        job.m_nice = static_cast<int>(std::clamp<qint64>(*nice, -20, 19));
    }
    job.m_runAtLoad = boolean(dict, QStringLiteral("RunAtLoad"), warnings).value_or(false);
    job.m_startOnMount = boolean(dict, QStringLiteral("StartOnMount"), warnings).value_or(false);
    job.m_disabled = boolean(dict, QStringLiteral("Disabled"), warnings).value_or(false);

    const PlistValue calendar = dict.value(QStringLiteral("StartCalendarInterval"));
    if (calendar.isDictionary()) {
        job.m_calendar.push_back(calendar.dict());
    } else if (calendar.isArray()) {
        for (const PlistValue &element : calendar.array()) {
            if (element.isDictionary()) {
                job.m_calendar.push_back(element.dict());
            } else {
                warnings->append(QStringLiteral(
                    "an element of StartCalendarInterval is not a dictionary and is ignored"));
            }
        }
    } else if (calendar.isValid()) {
        warnings->append(QStringLiteral("StartCalendarInterval is neither a dictionary nor an "
                                        "array and is ignored"));
    }

    if (const std::optional<qint64> interval =
            integer(dict, QStringLiteral("StartInterval"), warnings)) {
        // systemd keeps times in microseconds below 2^64 - 1 and refuses a timer it cannot
        // parse: a job that asks for a longer interval cannot be run as asked.
        constexpr qint64 kLongestInterval =
            static_cast<qint64>(std::numeric_limits<quint64>::max() / 1000000 - 1);
        if (*interval > kLongestInterval) {
            *message = QStringLiteral("launchctl: StartInterval %1 is longer than systemd can "
                                      "wait (%2 seconds at most): %3")
                           .arg(*interval)
                           .arg(kLongestInterval)
                           .arg(path);
            return std::nullopt;
        }
        if (*interval > 0) {
            job.m_startInterval = *interval;
        } else {
            warnings->append(QStringLiteral("StartInterval is not positive and is ignored"));
        }
    }

    job.m_watchPaths =
        strings(dict, QStringLiteral("WatchPaths"), warnings).value_or(QStringList());

    const PlistValue environment = dict.value(QStringLiteral("EnvironmentVariables"));
    if (environment.isDictionary()) {
        for (const PlistDict::Entry &entry : environment.dict()) {
            if (entry.value.isString()) {
                job.m_environment.emplace_back(cString(entry.key), cString(entry.value.string()));
            } else {
                warnings->append(QStringLiteral("EnvironmentVariables: %1 is not a string and "
                                                "is ignored")
                                     .arg(entry.key));
            }
        }
    } else if (environment.isValid()) {
        warnings->append(QStringLiteral("EnvironmentVariables is not a dictionary and is ignored"));
    }
    return job;
}
