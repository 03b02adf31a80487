#include "VTToolPaths.h"

#include "platform/Bundle.h"
#include "platform/Environment.h"
#include "platform/FileNames.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace {

// A program installed beside the application: next to the running executable, else in the
// main bundle, else on the PATH.
QString besideTheApplication(const QString &name)
{
    const QString beside = VTToolPaths::executableFolder() + QLatin1Char('/') + name;
    if (FileNames::isExecutable(beside)) {
        return beside;
    }
    if (auto main = Bundle::mainBundle()) {
        const QString inBundle = main->bundlePath() + QStringLiteral("/Contents/MacOS/") + name;
        if (FileNames::isExecutable(inBundle)) {
            return inBundle;
        }
    }
    const QString onPath = QStandardPaths::findExecutable(name);
    return onPath.isEmpty() ? beside : onPath;
}

} // namespace

QString VTToolPaths::executableFolder()
{
    return QFileInfo(FileNames::canonicalPath(QStringLiteral("/proc/self/exe"))).absolutePath();
}

QString VTToolPaths::launchctl()
{
    if (auto custom = Environment::value("VT_LAUNCHCTL"); custom && !custom->isEmpty()) {
        return *custom;
    }
    return besideTheApplication(QStringLiteral("kairo-launchctl"));
}

QString VTToolPaths::privilegedHelper()
{
    return besideTheApplication(QStringLiteral("kairo-helper"));
}

QString VTToolPaths::alertProgram()
{
    return besideTheApplication(QStringLiteral("kairo-alert"));
}

QString VTToolPaths::elevate()
{
    if (auto custom = Environment::value("VT_ELEVATE"); custom && !custom->isEmpty()) {
        return *custom;
    }
    return QStringLiteral("pkexec");
}
