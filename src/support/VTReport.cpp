#include "VTReport.h"

#include "VTTaskNotification.h"
#include "platform/Console.h"

void VTReport::report(const QString &message)
{
    report(message, message);
}

void VTReport::report(const QString &message, const QString &consoleMessage)
{
    VTTaskNotification::postTaskErrorString(QStringLiteral("Kairo Planner: ") + message);
    Console::log(consoleMessage);
}
