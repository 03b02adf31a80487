#include "LaunchctlRecorder.h"

#include "Sandbox.h"
#include "TestFiles.h"

#include <QFile>

LaunchctlRecorder::LaunchctlRecorder(Sandbox &sandbox)
    : m_script(sandbox.file(QStringLiteral("bin/launchctl"))),
      m_log(sandbox.file(QStringLiteral("launchctl.log"))),
      m_list(sandbox.file(QStringLiteral("launchctl-list")))
{
    TestFiles::writeScript(m_script, QStringLiteral("if [ \"$1\" = list ]; then\n"
                                                    "    [ -f '%1' ] && . '%1'\n"
                                                    "    exit 0\n"
                                                    "fi\n"
                                                    "printf '%s\\n' \"$*\" >> '%2'")
                                         .arg(m_list, m_log));
    sandbox.setEnv("VT_LAUNCHCTL", m_script);
}

QStringList LaunchctlRecorder::calls() const
{
    return TestFiles::lines(m_log);
}

void LaunchctlRecorder::clear() const
{
    QFile::remove(m_log);
}

void LaunchctlRecorder::answerList(const QString &shellText) const
{
    TestFiles::write(m_list, shellText.toUtf8());
}
