#include "WindowedApplication.h"

#include "AppController.h"
#include "ui/VTMessageBoxPresenter.h"

#include <QApplication>
#include <QMainWindow>

int WindowedApplication::run(int argc, char **argv)
{
    QApplication app(argc, argv);
    VTAlert::setPresenter(std::make_shared<VTMessageBoxPresenter>());
    auto controller = AppController::init(nullptr);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Kairo Planner"));
    window.show();
    return app.exec();
}
