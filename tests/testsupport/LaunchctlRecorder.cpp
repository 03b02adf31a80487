#include "LaunchctlRecorder.h"

#include "Sandbox.h"
#include "TestFiles.h"

#include <QFile>

LaunchctlRecorder::LaunchctlRecorder(Sandbox &sandbox)
    : m_script(sandbox.file(QStringLiteral("bin/launchctl"))),
      m_log(sandbox.file(QStringLiteral("launchctl.log")))
{
    TestFiles::writeScript(m_script, QStringLiteral("printf '%s\\n' \"$*\" >> '") + m_log +
                                         QStringLiteral("'"));
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
