#include "WindowedApplication.h"

#include "AppController.h"
#include "platform/Console.h"
#include "platform/Environment.h"
#include "platform/PlistValue.h"
#include "platform/WorkspaceIcons.h"
#include "support/VTAlert.h"
#include "ui/MainWindow.h"
#include "ui/PreferencesWindow.h"
#include "ui/TaskEditorSheet.h"
#include "ui/TaskTableModel.h"
#include "ui/VTImages.h"
#include "ui/VTMessageBoxPresenter.h"
#include "ui/VTProgressSpinner.h"

#include <QApplication>
#include <QDir>
#include <QTableView>
#include <QTimer>

#include <functional>
#include <unistd.h>
#include <vector>

namespace {

// Runs each step after the one before it, with the given pause before each.
void runSteps(QObject *context, std::vector<std::pair<int, std::function<void()>>> steps)
{
    if (steps.empty()) {
        return;
    }
    auto [delay, step] = steps.front();
    steps.erase(steps.begin());
    QTimer::singleShot(delay, context, [context, step, steps = std::move(steps)]() mutable {
        step();
        runSteps(context, std::move(steps));
    });
}

int firstRowOfType(TaskTableModel *model, qint64 type)
{
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->taskAt(row)->scheduleType().value_or(0) == type) {
            return row;
        }
    }
    return -1;
}

// KAIRO_SCREENSHOTS=FOLDER: the application saves what it draws there, as PNG files, and
// quits: the sheet while the applications are looked for (when that lasts), the main
// window, the sheet on the calendar task with the grid focused, the sheet on a task of no
// known schedule, the sheet for a new task, an alert about a missing executable with a
// long path, and the preferences.
void takeScreenshots(MainWindow &window, const QString &folder)
{
    QDir().mkpath(folder);
    const auto save = [folder](QWidget *widget, const QString &name) {
        widget->grab().save(folder + QLatin1Char('/') + name + QStringLiteral(".png"));
    };
    if (window.controller()->isDiscovering()) {
        // The sheet as soon as the search has started, while it lasts.
        window.newTask();
        const auto *spinner = window.taskWindow()->findChild<VTProgressSpinner *>();
        for (int i = 0; i < 100 && spinner && !spinner->isAnimating(); ++i) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        if (window.controller()->isDiscovering()) {
            save(window.taskWindow(), QStringLiteral("task-sheet-looking"));
        }
        window.taskWindow()->cancelNewTask();
    }
    auto *poll = new QTimer(&window);
    poll->setInterval(100);
    QObject::connect(poll, &QTimer::timeout, &window, [&window, save, poll] {
        if (window.controller()->isDiscovering() || window.taskWindow()->isVisible()) {
            return;
        }
        poll->stop();
        poll->deleteLater();
        QTableView *table = window.tableView();
        TaskTableModel *model = window.taskModel();
        const int calendar = firstRowOfType(model, ScheduleCalendar);
        const int unknown = firstRowOfType(model, ScheduleUnknown);
        std::vector<std::pair<int, std::function<void()>>> steps;
        if (calendar >= 0) {
            table->selectRow(calendar);
        }
        steps.emplace_back(300, [&window, save] { save(&window, QStringLiteral("main-window")); });
        if (calendar >= 0) {
            steps.emplace_back(0, [&window] {
                window.editTask();
                window.taskWindow()
                    ->findChild<QWidget *>(QStringLiteral("taskCollectionView"))
                    ->setFocus(Qt::TabFocusReason);
            });
            steps.emplace_back(600, [&window, save] {
                save(window.taskWindow(), QStringLiteral("task-sheet"));
                window.taskWindow()->cancelNewTask();
            });
        }
        if (unknown >= 0) {
            steps.emplace_back(100, [&window, table, unknown] {
                table->selectRow(unknown);
                window.editTask();
            });
            steps.emplace_back(600, [&window, save] {
                save(window.taskWindow(), QStringLiteral("task-sheet-unknown"));
                window.taskWindow()->cancelNewTask();
            });
        }
        steps.emplace_back(100, [&window] { window.newTask(); });
        steps.emplace_back(600, [&window, save] {
            save(window.taskWindow(), QStringLiteral("task-sheet-new"));
            window.taskWindow()->cancelNewTask();
        });
        steps.emplace_back(100, [&window, save] {
            QTimer::singleShot(400, &window, [save] {
                if (QWidget *alert = QApplication::activeModalWidget()) {
                    save(alert, QStringLiteral("alert-missing-executable"));
                    alert->close();
                }
            });
            VTAlertRequest question;
            question.messageText = QStringLiteral("Unable to locate executable file");
            question.informativeText = QStringLiteral(
                "Kairo Planner cannot find /home/anna/Applications/Vantreel Suite/Utilities/"
                "Tessel Catalogue Maintenance.app/Contents/MacOS/Tessel Catalogue Maintenance."
                "\n\nThis task is invalid - would you like to remove it?");
            question.defaultButton = QStringLiteral("Remove Task");
            question.alternateButton = QStringLiteral("Ignore");
            VTAlert::runModal(question);
        });
        steps.emplace_back(100, [&window] { window.showPreferences(); });
        steps.emplace_back(400, [&window, save] {
            save(window.preferencesWindow(), QStringLiteral("preferences"));
            window.preferencesWindow()->close();
            QCoreApplication::quit();
        });
        runSteps(&window, std::move(steps));
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
    WorkspaceIcons::install();
    // The screenshots of a dark desktop: a palette derived from a dark button colour.
    if (Environment::value("KAIRO_SCREENSHOTS_PALETTE") == QStringLiteral("dark")) {
        QApplication::setPalette(QPalette(QColor(53, 53, 53)));
    }
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
