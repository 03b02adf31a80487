#include "CommandLine.h"

#include "AppController.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "platform/LookupSnapshot.h"
#include "platform/PlistText.h"
#include "support/VTBugReporter.h"
#include "support/VTException.h"
#include "support/VTFormat.h"
#include "support/VTLog.h"
#include "support/VTReport.h"
#include "support/VTTask.h"
#include "support/VTToolPaths.h"
#include "tasks/JobWriteAhead.h"
#include "tasks/TaskCatalogue.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {

const QStringList kSwitches{QStringLiteral("-tasks"),  QStringLiteral("-add"),
                            QStringLiteral("-edit"),   QStringLiteral("-remove"),
                            QStringLiteral("-enable"), QStringLiteral("-disable")};

// The first user account of a default system; the second pass of enable or disable all
// takes this identity, not the caller's or the console user's.
constexpr uid_t kFirstUserID = 1000;

void becomeUser(uid_t uid)
{
    // A refused change is ignored: without rights the command goes on as the caller.
    Identity::current().setUserId(uid);
}

QString at(const QStringList &arguments, int position)
{
    return position < arguments.size() ? arguments[position] : QString();
}

} // namespace

bool CommandLine::isSwitch(const QString &argument)
{
    return kSwitches.contains(argument);
}

int CommandLine::main(int argc, char **argv, const WindowedApplication &windowed)
{
    VTBugReporter::installCrashHandler(QStringLiteral("Kairo Planner"));
    if (argc <= 1) {
        return windowed(argc, argv);
    }
    // Made before the switch is examined, so an unknown switch leaves it too.
    VTLog::createNewLog(QStringLiteral("Kairo Planner.task"));
    const QString first = FileNames::decode(QByteArray(argv[1]));
    if (!isSwitch(first)) {
        return windowed(argc, argv);
    }
    QCoreApplication app(argc, argv);
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        // Paths are handed on to the system as the bytes they were, UTF-8 or not.
        arguments << FileNames::decode(QByteArray(argv[i]));
    }
    const int status = run(arguments);
    VTLog::finishWriting();
    return status;
}

int CommandLine::run(const QStringList &arguments)
{
    try {
        const QString command = at(arguments, 1);
        if (command == QLatin1String("-tasks")) {
            return tasks(arguments);
        }
        if (command == QLatin1String("-add")) {
            return add(arguments);
        }
        if (command == QLatin1String("-edit")) {
            return edit(arguments);
        }
        if (command == QLatin1String("-remove")) {
            return remove(arguments);
        }
        return enableOrDisable(arguments, command == QLatin1String("-enable"));
    } catch (...) {
        // Whatever escapes a command ends it as a failure, never as a crash.
        VTException::logCurrentException(VT_METHOD);
        return 1;
    }
}

CommandLine::Tail CommandLine::parseTail(const QStringList &arguments)
{
    Tail tail;
    const int count = static_cast<int>(arguments.size());
    if (count <= 5) {
        return tail;
    }
    if (arguments[5] == QLatin1String("-enable")) {
        tail.enabled = count == 6 || at(arguments, 6) == QLatin1String("1");
        return tail;
    }
    tail.intervalValue = arguments[5];
    // Position 6 is looked at even when it is absent, which is simply no "-enable".
    if (at(arguments, 6) == QLatin1String("-enable") && count >= 8) {
        tail.enabled = arguments[7] == QLatin1String("1");
    }
    return tail;
}

int CommandLine::tasks(const QStringList &)
{
    auto controller = AppController::initWithoutGUI();
    if (!controller) {
        return 1;
    }
    VTLog::appendLog(QStringLiteral("Getting list of scheduled tasks..."));
    controller->populateScheduledTasks();
    PlistText::write(PlistValue(controller->dictionaryOfTasks()), &Console::print);
    return 0;
}

int CommandLine::add(const QStringList &arguments)
{
    if (arguments.size() <= 4) {
        VTLog::appendLog(QStringLiteral("Unable to add task - invalid argument count"));
        Console::log(QStringLiteral("Invalid argument count"));
        return 1;
    }
    VTLog::appendLog(QStringLiteral("Preparing to add task..."));
    becomeUser(0);
    const QString bundleID = arguments[2];
    const QString taskID = arguments[3];
    const QString type = arguments[4];
    VTLog::appendLog(QStringLiteral("Task bundle ID: %@..."), bundleID);
    VTLog::appendLog(QStringLiteral("Task ID: %@..."), taskID);
    VTLog::appendLog(QStringLiteral("Interval type: %@..."), type);
    const Tail tail = parseTail(arguments);

    auto controller = AppController::initWithoutGUI();
    if (!controller) {
        return 1;
    }
    const bool root = TaskCatalogue::isRootTask(bundleID, taskID);
    const VTScheduledTask::Ptr task =
        VTScheduledTask::taskWithBundleID(bundleID, taskID, type, tail.intervalValue, root);
    if (!task) {
        VTReport::report(QStringLiteral("Unable to create task"));
        return 1;
    }
    if (tail.enabled) {
        return 0;
    }
    task->setEnabled(false);
    if (!task->saveData()) {
        VTReport::report(QStringLiteral("Cannot disable task"));
        return 1;
    }
    return 0;
}

int CommandLine::edit(const QStringList &arguments)
{
    if (arguments.size() <= 5) {
        Console::log(QStringLiteral("Invalid arguments"));
        return 1;
    }
    becomeUser(0);
    const QString filename = arguments[2];
    VTLog::appendLog(QStringLiteral("Preparing to edit task..."));
    VTLog::appendLog(QStringLiteral("Filename: %@..."), filename);
    VTLog::appendLog(QStringLiteral("Task bundle ID: %@..."), arguments[3]);
    VTLog::appendLog(QStringLiteral("Task ID: %@..."), arguments[4]);
    VTLog::appendLog(QStringLiteral("Interval type: %@..."), arguments[5]);
    // Position 5 is both the schedule type and, unless it is "-enable", the interval value.
    const Tail tail = parseTail(arguments);

    auto controller = AppController::initWithoutGUI();
    if (!controller) {
        return 1;
    }
    controller->populateScheduledTasks();
    for (const VTScheduledTask::Ptr &task : controller->dataArray()) {
        if (task->filename() != filename) {
            continue;
        }
        task->setTaskBundleID(arguments[3]);
        task->setTaskArguments(VTScheduledTask::argumentsFromTaskID(arguments[4], arguments[3]));
        task->setScheduleTypeFromString(arguments[5], tail.intervalValue);
        task->setEnabled(tail.enabled);
        if (!task->saveData()) {
            // Reported, yet the command counts as done: the only failure that exits with 0.
            VTReport::report(QStringLiteral("Unable to save task"));
        }
        return 0;
    }
    VTReport::report(VTFormat::string(QStringLiteral("Unable to find file %@"), filename));
    return 1;
}

int CommandLine::remove(const QStringList &arguments)
{
    if (arguments.size() == 2) {
        Console::log(QStringLiteral("Invalid arguments"));
        return 1;
    }
    const QString path = arguments[2];
    VTLog::appendLog(QStringLiteral("Preparing to remove %@..."), path);
    auto controller = AppController::initWithoutGUI();
    if (!controller) {
        return 1;
    }
    becomeUser(0);
    if (!FileNames::exists(path) && !FileNames::isSymbolicLink(path)) {
        return 0;
    }
    VTTask::runTask(VTToolPaths::launchctl(), {QStringLiteral("unload"), path});
    // Files only: a folder is never removed with its contents.
    if (FileNames::isDirectory(path) && !FileNames::isSymbolicLink(path)) {
        const QString error = QStringLiteral("Is a directory");
        VTReport::report(
            VTFormat::string(QStringLiteral("Error moving file %@: %@"), path, error),
            VTFormat::string(QStringLiteral("Error removing file %@: %@"), path, error));
        return 1;
    }
    if (::unlink(FileNames::encode(path).constData()) != 0) {
        const QString error = QString::fromLocal8Bit(std::strerror(errno));
        // The notification says "moving", the console "removing".
        VTReport::report(
            VTFormat::string(QStringLiteral("Error moving file %@: %@"), path, error),
            VTFormat::string(QStringLiteral("Error removing file %@: %@"), path, error));
        return 1;
    }
    return 0;
}

bool CommandLine::saveAll(AppController &controller, bool enable)
{
    // One look at each application for the whole pass, not one per job.
    const LookupSnapshot snapshot;
    return JobWriteAhead::saveInTurn(
        controller.dataArray(), [enable](VTScheduledTask &task) { task.setEnabled(enable); },
        [](VTScheduledTask &task) {
            if (!task.saveData()) {
                VTReport::report(QStringLiteral("Unable to save data"));
                return false;
            }
            return true;
        },
        true);
}

int CommandLine::enableOrDisable(const QStringList &arguments, bool enable)
{
    const bool all = arguments.size() == 2;
    if (all) {
        VTLog::appendLog(enable ? QStringLiteral("Preparing to enable all tasks...")
                                : QStringLiteral("Preparing to disable all tasks..."));
    } else {
        VTLog::appendLog(enable ? QStringLiteral("Preparing to enable %@...")
                                : QStringLiteral("Preparing to disable %@..."),
                         arguments[2]);
    }
    auto controller = AppController::initWithoutGUI();
    if (!controller) {
        return 1;
    }
    if (!all) {
        VTScheduledTask::Ptr task;
        try {
            task = VTScheduledTask::taskWithFilename(arguments[2]);
        } catch (...) {
            // A foreign file the reader cannot make sense of is unreadable task data.
            VTException::logCurrentException(VT_METHOD);
        }
        if (!task) {
            VTReport::report(QStringLiteral("Unable to load task data"));
            return 1;
        }
        task->setEnabled(enable);
        becomeUser(0);
        if (!task->saveData()) {
            VTReport::report(QStringLiteral("Unable to save data"));
            return 1;
        }
        return 0;
    }
    // User agents are saved twice, once as root and once as the first user account, which
    // cannot regain root afterwards.
    becomeUser(0);
    controller->populateScheduledTasks();
    if (!saveAll(*controller, enable)) {
        return 1;
    }
    becomeUser(kFirstUserID);
    controller->populateScheduledTasks(true);
    return saveAll(*controller, enable) ? 0 : 1;
}
