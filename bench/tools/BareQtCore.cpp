// The floor of a headless command's start-up: a program that starts Qt Core's application
// object and ends, linked like the application is against Qt Core.
#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    return 0;
}
