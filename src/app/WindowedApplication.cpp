#include "WindowedApplication.h"

#include "AppController.h"
#include "platform/Console.h"
#include "platform/Environment.h"
#include "platform/PlistValue.h"
#include "support/VTAlert.h"
#include "ui/MainWindow.h"
#include "ui/TaskEditorSheet.h"
#include "ui/TaskTableModel.h"
#include "ui/VTImages.h"
#include "ui/VTMessageBoxPresenter.h"

#include <QApplication>
#include <QDir>
#include <QTableView>
#include <QTimer>

#include <unistd.h>

namespace {

// KAIRO_SCREENSHOTS=FOLDER: once the window is up and the applications are found, the
// application saves main-window.png and task-sheet.png there, as it draws them, and quits.
void takeScreenshots(MainWindow &window, const QString &folder)
{
    QDir().mkpath(folder);
    auto *poll = new QTimer(&window);
    poll->setInterval(100);
    QObject::connect(poll, &QTimer::timeout, &window, [&window, folder, poll] {
        if (window.controller()->isDiscovering()) {
            return;
        }
        poll->stop();
        poll->deleteLater();
        // The calendar task, when there is one, shows the most of the sheet.
        QTableView *table = window.tableView();
        TaskTableModel *model = window.taskModel();
        int row = model->rowCount() > 0 ? 0 : -1;
        for (int r = 0; r < model->rowCount(); ++r) {
            if (model->taskAt(r)->scheduleType().value_or(0) == ScheduleCalendar) {
                row = r;
                break;
            }
        }
        if (row >= 0) {
            table->selectRow(row);
        }
        QTimer::singleShot(300, &window, [&window, folder, row] {
            window.grab().save(folder + QStringLiteral("/main-window.png"));
            if (row >= 0) {
                window.editTask();
            } else {
                window.newTask();
            }
            QTimer::singleShot(600, &window, [&window, folder] {
                window.taskWindow()->grab().save(folder + QStringLiteral("/task-sheet.png"));
                window.taskWindow()->cancelNewTask();
                QCoreApplication::quit();
            });
        });
    });
    poll->start();
}

const char kNoDisplay[] = "No display to open the window on";

bool isSet(const char *name)
{
    const auto value = Environment::value(name);
    return value && !value->isEmpty();
}

// Qt gives up on a display it cannot reach with a fatal message and an abort, which the
// crash handler would keep as a crash: while the application starts, a fatal message ends
// the process with the one line instead.
void startupMessageHandler(QtMsgType type, const QMessageLogContext &, const QString &)
{
    if (type == QtFatalMsg) {
        Console::log(QLatin1String(kNoDisplay));
        ::_exit(1);
    }
}

} // namespace

int WindowedApplication::run(int argc, char **argv)
{
    // A platform named outright (offscreen, for instance) needs no display variable.
    if (!isSet("QT_QPA_PLATFORM") && !isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) {
        Console::log(QLatin1String(kNoDisplay));
        return 1;
    }
    const QtMessageHandler previous = qInstallMessageHandler(startupMessageHandler);
    QApplication app(argc, argv);
    qInstallMessageHandler(previous);
    QApplication::setApplicationName(QStringLiteral(KAIRO_APP_NAME));
    QApplication::setApplicationVersion(QStringLiteral(KAIRO_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Vantreel"));
    QApplication::setWindowIcon(VTImages::applicationIcon());
    VTAlert::setPresenter(std::make_shared<VTMessageBoxPresenter>());

    MainWindow window;
    if (!window.awakeFromNib()) {
        return 0;
    }
    window.applicationDidFinishLaunching();
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &window,
                     [&window] { window.applicationWillTerminate(); });
    if (const auto folder = Environment::value("KAIRO_SCREENSHOTS"); folder && !folder->isEmpty()) {
        takeScreenshots(window, *folder);
    }
    return app.exec();
}
