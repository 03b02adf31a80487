// The entry point of the window plug-in, looked up by name from the executable.

#include "WindowedApplication.h"

extern "C" __attribute__((visibility("default"))) int kairoWindowedMain(int argc, char **argv)
{
    return WindowedApplication::run(argc, argv);
}
