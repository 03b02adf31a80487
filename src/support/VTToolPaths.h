#pragma once

#include <QString>
#include <QStringList>

// The programs the system starts by path.
class VTToolPaths
{
public:
    // The launchctl tool: VT_LAUNCHCTL, else the bridge installed beside the application.
    static QString launchctl();
    // The privileged helper installed beside the application.
    static QString privilegedHelper();
    // The small program that shows one alert window for the headless mode.
    static QString alertProgram();
    // The elevation program: VT_ELEVATE, else pkexec.
    static QString elevate();

    static QString chmod() { return QStringLiteral("/bin/chmod"); }
    static QString chown() { return QStringLiteral("/bin/chown"); }
    static QString cp() { return QStringLiteral("/bin/cp"); }
    static QString mv() { return QStringLiteral("/bin/mv"); }
    static QString rm() { return QStringLiteral("/bin/rm"); }
    static QString mkdir() { return QStringLiteral("/bin/mkdir"); }

    // The folder of the running executable.
    static QString executableFolder();
};
