#include "VTBugReporter.h"

#include "CrashSignalHandler.h"
#include "VTException.h"
#include "VTLocalPaths.h"
#include "VTLog.h"
#include "VTTask.h"
#include "VTToolPaths.h"
#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kLaunch = QStringLiteral("launch");
const QString kExit = QStringLiteral("exit");
const QString kReporterIdentifier = QStringLiteral("com.vantreel.BugReporter");
// The parent of homes on this platform.
const QString kHomes = QStringLiteral("home");

// The crash log folders, in the order they are searched.
QStringList crashLogFolders()
{
    QStringList folders;
    for (const bool user : {true, false}) {
        const std::optional<QString> logs = VTLocalPaths::logDirectory(user);
        if (!logs) {
            continue;
        }
        for (const char *name : {"CrashReporter", "DiagnosticReports"}) {
            folders.append(VTLocalPaths::appendPathComponent(*logs, QLatin1String(name)));
        }
    }
    return folders;
}

// The last crash log of the application in the folder's own listing order; crash log
// names carry their date, so no sorting is done.
std::optional<QString> lastCrashLog(const QString &folder, const QString &appName)
{
    const QString prefix = appName + QLatin1Char('_');
    std::optional<QString> last;
    DIR *dir = ::opendir(FileNames::encode(folder).constData());
    if (!dir) {
        return std::nullopt;
    }
    while (const dirent *entry = ::readdir(dir)) {
        const QString name = FileNames::decode(QByteArray(entry->d_name));
        if (name.startsWith(prefix, Qt::CaseInsensitive) &&
            !FileNames::isDirectory(folder + QLatin1Char('/') + name)) {
            last = name;
        }
    }
    ::closedir(dir);
    if (!last) {
        return std::nullopt;
    }
    return folder + QLatin1Char('/') + *last;
}

QDateTime modified(const QString &path)
{
    struct stat st
    {};
    if (::stat(FileNames::encode(path).constData(), &st) != 0) {
        return QDateTime();
    }
    return QDateTime::fromMSecsSinceEpoch(qint64(st.st_mtim.tv_sec) * 1000 +
                                          st.st_mtim.tv_nsec / 1000000);
}

bool crashReporterDisabled()
{
    const std::optional<QString> prefs = VTLocalPaths::prefsDirectory(true);
    if (!prefs) {
        return false;
    }
    const std::optional<PlistDict> global = PropertyList::readDictionary(
        VTLocalPaths::appendPathComponent(*prefs, QStringLiteral("com.vantreel.global.plist")));
    return global && global->value(QStringLiteral("disable-crash-reporter")).isSwitchOn();
}

void openInReporter(const QString &crashLog)
{
    if (const std::optional<Bundle> main = Bundle::mainBundle()) {
        if (const std::optional<QString> reporter =
                main->pathForResource(QStringLiteral("Bug Reporter"), QStringLiteral("app"))) {
            Workspace::openFile(crashLog, *reporter);
            return;
        }
    }
    if (const std::optional<QString> reporter =
            Workspace::absolutePathForAppBundleWithIdentifier(kReporterIdentifier)) {
        Workspace::openFile(crashLog, *reporter);
    }
}

void tellDelegate(VTBugReporterDelegate *delegate, const QString &crashLog)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        delegate->applicationDidCrashWithLog(crashLog);
        return;
    }
    QMetaObject::invokeMethod(
        app, [delegate, crashLog] { delegate->applicationDidCrashWithLog(crashLog); },
        Qt::QueuedConnection);
}

// Writes the current date under the key, into the file or the user defaults.
void recordDate(const std::optional<QString> &plistPath, const QString &key)
{
    const QDateTime now = Clock::current().now();
    if (!plistPath) {
        UserDefaults &defaults = UserDefaults::standardUserDefaults();
        defaults.setObject(PlistValue(now), key);
        defaults.synchronize();
        return;
    }
    std::optional<PlistDict> values = PropertyList::readDictionaryToUpdate(*plistPath);
    if (!values) {
        return;
    }
    values->insert(key, PlistValue(now));
    // A fresh home has no Library/Preferences yet.
    PosixFile::makeFolders(QFileInfo(*plistPath).absolutePath());
    PropertyList::writeXml(PlistValue(std::move(*values)), *plistPath);
    VTBugReporter::chownPlist(*plistPath);
}

QString mainBundleName()
{
    if (const std::optional<Bundle> main = Bundle::mainBundle()) {
        return main->objectForInfoDictionaryKey(QStringLiteral("CFBundleName")).string();
    }
    return QString();
}

} // namespace

VTBugReporterDelegate::~VTBugReporterDelegate() = default;

void VTBugReporter::startBugReporter(const std::optional<QString> &appName,
                                     const std::optional<QString> &plistPath,
                                     VTBugReporterDelegate *delegate)
{
    VTException::guard(VT_METHOD, [&] {
        const std::optional<QString> crashLog = checkForCrashes(appName, plistPath);
        if (crashLog && delegate) {
            tellDelegate(delegate, *crashLog);
        }
        recordDate(plistPath, kLaunch);
    });
}

void VTBugReporter::startBugReporter(const std::optional<QString> &appName,
                                     const std::optional<QString> &plistPath)
{
    startBugReporter(appName, plistPath, nullptr);
}

void VTBugReporter::startBugReporterWithDelegate(VTBugReporterDelegate *delegate)
{
    startBugReporter(std::nullopt, std::nullopt, delegate);
}

void VTBugReporter::startBugReporter()
{
    startBugReporter(std::nullopt, std::nullopt, nullptr);
}

void VTBugReporter::stopBugReporter(const std::optional<QString> &plistPath)
{
    VTException::guard(VT_METHOD, [&] { recordDate(plistPath, kExit); });
}

void VTBugReporter::stopBugReporter()
{
    stopBugReporter(std::nullopt);
}

std::optional<QString> VTBugReporter::checkForCrashes(const std::optional<QString> &appName,
                                                      const std::optional<QString> &plistPath)
{
    return VTException::guard(VT_METHOD, std::optional<QString>(), [&]() -> std::optional<QString> {
        const PlistDict stored =
            plistPath ? PropertyList::readDictionary(*plistPath).value_or(PlistDict())
                      : PlistDict();
        const auto value = [&](const QString &key) {
            return plistPath ? stored.value(key)
                             : UserDefaults::standardUserDefaults().objectForKey(key);
        };

        const PlistValue launch = value(kLaunch);
        if (!launch.isDate()) {
            return std::nullopt; // first run
        }
        const QString name = appName ? *appName : mainBundleName();
        const PlistValue exit = value(kExit);
        if (exit.isDate() && launch.date().msecsTo(exit.date()) >= 0) {
            return std::nullopt; // the last run ended in order
        }

        for (const QString &folder : crashLogFolders()) {
            const std::optional<QString> crashLog = lastCrashLog(folder, name);
            if (!crashLog || modified(*crashLog) <= launch.date()) {
                continue;
            }
            VTLog::appendLog(QStringLiteral("Application crashed on last launch"));
            if (crashReporterDisabled()) {
                Console::log(QStringLiteral("Crash reporter disabled"));
                VTLog::appendLog(QStringLiteral("Crash reporter disabled"));
                return crashLog;
            }
            openInReporter(*crashLog);
            return crashLog;
        }
        return std::nullopt;
    });
}

std::optional<QString> VTBugReporter::checkForCrashes()
{
    return checkForCrashes(std::nullopt, std::nullopt);
}

void VTBugReporter::chownPlist(const QString &path)
{
    VTException::guard(VT_METHOD, [&] {
        const QStringList components = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        const qsizetype homes = components.indexOf(kHomes);
        if (homes < 0 || homes == components.size() - 1) {
            return;
        }
        // A link standing there is left alone, and chown does not follow one that appears.
        if (FileNames::isSymbolicLink(path)) {
            return;
        }
        VTTask::runTask(VTToolPaths::chown(),
                        {QStringLiteral("-h"), components.at(homes + 1), path});
    });
}

void VTBugReporter::installCrashHandler(const QString &appName)
{
    VTException::guard(VT_METHOD, [&] {
        const std::optional<QString> logs = VTLocalPaths::logDirectory(true);
        if (!logs) {
            return; // nobody at the console of a root process: no user to report to
        }
        const QString folder =
            VTLocalPaths::appendPathComponent(*logs, QStringLiteral("DiagnosticReports"));
        if (!PosixFile::makeFolders(folder)) {
            Console::log(VTFormat::string(QStringLiteral("Unable to create folder %@."), folder));
            return;
        }
        QString name = appName.isEmpty() ? mainBundleName() : appName;
        if (name.isEmpty()) {
            name = Console::processName();
        }
        name.replace(QLatin1Char('/'), QLatin1Char('_'));

        char hostBuffer[256] = {};
        gethostname(hostBuffer, sizeof hostBuffer - 1);
        QString host = QString::fromLocal8Bit(hostBuffer).section(QLatin1Char('.'), 0, 0);
        host.replace(QLatin1Char('/'), QLatin1Char('_'));
        if (host.isEmpty()) {
            host = QStringLiteral("localhost");
        }

        const int offset = QDateTime::currentDateTime().offsetFromUtc();
        if (!CrashSignalHandler::install(folder, name, host, offset)) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to install the crash handler for %@"), name));
        }
    });
}
