// kairo-alert: shows one alert window for a process that has none of its own, and exits
// with the button chosen (1 default, 2 alternate, 3 other).
#include "ui/VTMessageBoxPresenter.h"

#include <QApplication>
#include <QCommandLineParser>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption message(QStringLiteral("message"), QString(), QStringLiteral("text"));
    const QCommandLineOption informative(QStringLiteral("informative"), QString(),
                                         QStringLiteral("text"));
    const QCommandLineOption defaultButton(QStringLiteral("default"), QString(),
                                           QStringLiteral("title"));
    const QCommandLineOption alternateButton(QStringLiteral("alternate"), QString(),
                                             QStringLiteral("title"));
    const QCommandLineOption otherButton(QStringLiteral("other"), QString(),
                                         QStringLiteral("title"));
    parser.addOptions({message, informative, defaultButton, alternateButton, otherButton});
    parser.process(app);

    VTAlertRequest request;
    request.messageText = parser.value(message);
    request.informativeText = parser.value(informative);
    request.defaultButton = parser.value(defaultButton);
    request.alternateButton = parser.value(alternateButton);
    request.otherButton = parser.value(otherButton);
    switch (VTMessageBoxPresenter().runModal(request)) {
    case VTAlert::DefaultReturn:
        return 1;
    case VTAlert::AlternateReturn:
        return 2;
    default:
        return 3;
    }
}
