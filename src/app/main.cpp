#include "CommandLine.h"
#include "WindowPlugIn.h"

int main(int argc, char **argv)
{
    return CommandLine::main(argc, argv, &WindowPlugIn::run);
}
