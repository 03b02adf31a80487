#pragma once

#include <QString>
#include <QStringList>

class Sandbox;

// A stand-in launchctl that records each call as one line "ARG1 ARG2" and succeeds; set as
// VT_LAUNCHCTL for the life of the sandbox. "list" only asks and is not recorded: it prints
// nothing, or runs the shell text given to answerList.
class LaunchctlRecorder
{
public:
    explicit LaunchctlRecorder(Sandbox &sandbox);
    QString path() const { return m_script; }
    QStringList calls() const;
    void clear() const;
    void answerList(const QString &shellText) const;

private:
    QString m_script;
    QString m_log;
    QString m_list;
};
