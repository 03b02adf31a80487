#include "Poll.h"

#include <QCoreApplication>
#include <QThread>

#include <thread>

bool Poll::until(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        QCoreApplication *app = QCoreApplication::instance();
        if (app && QThread::currentThread() == app->thread()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}
