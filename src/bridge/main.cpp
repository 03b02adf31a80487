#include "BridgeCommand.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return BridgeCommand::run(arguments, QCoreApplication::applicationFilePath());
}
