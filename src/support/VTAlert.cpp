#include "VTAlert.h"

#include "VTToolPaths.h"
#include "platform/Console.h"
#include "platform/Environment.h"

#include <QFileInfo>
#include <QProcess>
#include <QTextStream>

#include <cstdio>
#include <mutex>
#include <unistd.h>

namespace {

std::mutex g_mutex;
std::shared_ptr<VTAlertPresenter> g_presenter;

// Exit statuses of the alert program for each button.
constexpr int kExitDefault = 1;
constexpr int kExitAlternate = 2;
constexpr int kExitOther = 3;

int cautiousAnswer(const VTAlertRequest &request)
{
    return request.alternateButton.isEmpty() ? VTAlert::DefaultReturn : VTAlert::AlternateReturn;
}

} // namespace

VTAlertPresenter::~VTAlertPresenter() = default;

int VTAlert::runModal(const VTAlertRequest &request)
{
    std::shared_ptr<VTAlertPresenter> presenter;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (!g_presenter) {
            g_presenter = std::make_shared<VTHeadlessAlertPresenter>();
        }
        presenter = g_presenter;
    }
    return presenter->runModal(request);
}

void VTAlert::setPresenter(std::shared_ptr<VTAlertPresenter> presenter)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_presenter = std::move(presenter);
}

bool VTHeadlessAlertPresenter::displayAvailable()
{
    const auto x11 = Environment::value("DISPLAY");
    const auto wayland = Environment::value("WAYLAND_DISPLAY");
    return (x11 && !x11->isEmpty()) || (wayland && !wayland->isEmpty());
}

int VTHeadlessAlertPresenter::runModal(const VTAlertRequest &request)
{
    const QString program = VTToolPaths::alertProgram();
    if (displayAvailable() && QFileInfo(program).isExecutable()) {
        QStringList arguments{QStringLiteral("--message"),     request.messageText,
                              QStringLiteral("--informative"), request.informativeText,
                              QStringLiteral("--default"),     request.defaultButton};
        if (!request.alternateButton.isEmpty()) {
            arguments << QStringLiteral("--alternate") << request.alternateButton;
        }
        if (!request.otherButton.isEmpty()) {
            arguments << QStringLiteral("--other") << request.otherButton;
        }
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, arguments);
        if (process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit) {
            switch (process.exitCode()) {
            case kExitDefault:
                return VTAlert::DefaultReturn;
            case kExitAlternate:
                return VTAlert::AlternateReturn;
            case kExitOther:
                return VTAlert::OtherReturn;
            default:
                break;
            }
        }
    }
    if (isatty(STDIN_FILENO)) {
        return askOnTerminal(request);
    }
    Console::log(request.messageText + (request.informativeText.isEmpty()
                                            ? QString()
                                            : QStringLiteral(" ") + request.informativeText));
    return cautiousAnswer(request);
}

int VTHeadlessAlertPresenter::askOnTerminal(const VTAlertRequest &request)
{
    QTextStream err(stderr);
    err << request.messageText << '\n';
    if (!request.informativeText.isEmpty()) {
        err << request.informativeText << '\n';
    }
    if (request.alternateButton.isEmpty() && request.otherButton.isEmpty()) {
        err.flush();
        return VTAlert::DefaultReturn;
    }
    err << "[1] " << request.defaultButton << " (default)\n";
    err << "[2] " << request.alternateButton << '\n';
    if (!request.otherButton.isEmpty()) {
        err << "[3] " << request.otherButton << '\n';
    }
    err << "Choice: ";
    err.flush();
    char line[64] = {};
    if (!fgets(line, sizeof line, stdin)) {
        return cautiousAnswer(request);
    }
    const QString answer = QString::fromLocal8Bit(line).trimmed();
    if (answer == QLatin1String("2") ||
        answer.compare(request.alternateButton, Qt::CaseInsensitive) == 0) {
        return VTAlert::AlternateReturn;
    }
    if (!request.otherButton.isEmpty() &&
        (answer == QLatin1String("3") ||
         answer.compare(request.otherButton, Qt::CaseInsensitive) == 0)) {
        return VTAlert::OtherReturn;
    }
    return VTAlert::DefaultReturn;
}
