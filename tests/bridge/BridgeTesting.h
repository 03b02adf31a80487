#pragma once

#include "platform/PlistDict.h"

#include <QString>
#include <QStringList>

#include <map>
#include <optional>
#include <vector>

class Sandbox;

// What the bridge's tests share: the real program, a stand-in systemctl that records its
// calls, job files as the application writes them, and the offline checks of systemd.
class BridgeTesting
{
public:
    struct Run
    {
        int status = -1;
        QString out;
        QString err;
    };

    // The built kairo-launchctl.
    static QString bridgeBinary();
    // Runs a program with the test's environment plus the given variables; waits for it.
    static Run run(const QString &program, const QStringList &arguments,
                   const std::map<QString, QString> &environment = {});
    static Run bridge(const QStringList &arguments,
                      const std::map<QString, QString> &environment = {});

    // Installs a systemctl stand-in through VT_SYSTEMCTL. Each call is recorded as one line
    // (its arguments joined by blanks). The first argument that is no option is the verb:
    // with a file "fail-VERB" in folder() the call fails with the status in that file, and
    // "show" prints the file "show" when there is one.
    class StandIn
    {
    public:
        explicit StandIn(Sandbox &sandbox);
        QString folder() const { return m_folder; }
        QStringList calls() const;
        void clearCalls() const;
        void fail(const QString &verb, int status) const;
        void answerShow(const QString &output) const;

    private:
        QString m_folder;
    };

    // A job dictionary as the application's writer makes it for one schedule: Label,
    // Program, ProgramArguments (the program's name, then arguments), LowPriorityIO, Nice,
    // then the schedule's keys, then EnvironmentVariables.
    static PlistDict writerJob(const QString &label, const QString &program,
                               const QStringList &arguments, const PlistDict &schedule,
                               bool disabled = false);
    // Writes the job to FOLDER/LABEL.plist and an executable program where it points.
    static QString writeJob(const QString &folder, const PlistDict &job);
    // The writer's job for Foo.app with -backup, written to the sandbox's agents (or, for a
    // daemon, the system's job folder); its path.
    static QString job(const Sandbox &sandbox, const QString &label, const PlistDict &schedule,
                       bool disabled = false, bool daemon = false);
    // StartCalendarInterval with one element per dictionary; daily() is 7:00 every day.
    static PlistDict calendar(std::initializer_list<PlistDict> elements);
    static PlistDict daily();

    // Sets TZ for the process (and so for mktime and QDateTime) until it goes away.
    class TimeZone
    {
    public:
        explicit TimeZone(const QString &zone);
        ~TimeZone();
        TimeZone(const TimeZone &) = delete;
        TimeZone &operator=(const TimeZone &) = delete;

    private:
        std::optional<QByteArray> m_old;
    };

    // systemd-analyze verify of unit files: true when it passes and says nothing about them
    // (*report holds what it said).
    static bool verify(const QStringList &unitFiles, bool userUnits, const QString &runtimeDir,
                       QString *report);
    // The firing times (seconds since the epoch) that systemd-analyze calendar gives for each
    // line, after base, in the given time zone; an empty list for "never". *normalized gets
    // each line's normalized form.
    static std::vector<std::vector<qint64>> systemdFirings(const QStringList &lines, qint64 base,
                                                           int iterations, const QString &zone,
                                                           QStringList *normalized = nullptr);
};
