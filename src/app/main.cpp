#include "CommandLine.h"
#include "WindowedApplication.h"

int main(int argc, char **argv)
{
    return CommandLine::main(argc, argv, &WindowedApplication::run);
}
