// Installs the crash handler and dies: CrashingProgram NAME raise|fault|abort.
#include "support/VTBugReporter.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>

// Exported (the program is linked with -rdynamic) so that the backtrace names it.
extern "C" __attribute__((noinline)) void kairoCrashHere(const char *how)
{
    if (std::strcmp(how, "fault") == 0) {
        volatile int *invalid = reinterpret_cast<volatile int *>(16);
        *invalid = 1;
    } else if (std::strcmp(how, "abort") == 0) {
        std::abort();
    }
    std::raise(SIGSEGV);
}

int main(int argc, char **argv)
{
    // A crash on purpose leaves no core file behind.
    const struct rlimit none
    {
        0, 0
    };
    setrlimit(RLIMIT_CORE, &none);
    VTBugReporter::installCrashHandler(QString::fromLocal8Bit(argc > 1 ? argv[1] : "Crashing"));
    kairoCrashHere(argc > 2 ? argv[2] : "raise");
    return 0;
}
