#include "WindowedApplication.h"

#include "AppController.h"
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

} // namespace

int WindowedApplication::run(int argc, char **argv)
{
    QApplication app(argc, argv);
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
