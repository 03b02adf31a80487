#include "HelperProtocol.h"
#include "PrivilegedHelper.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <signal.h>
#include <sys/syslog.h>
#include <unistd.h>

// kairo-helper: started through the elevation program (pkexec), it runs the system's
// standard tools as root for the application that started it, and nothing else.
int main(int argc, char **argv)
{
    bool allowUnprivileged = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], HelperProtocol::kAllowUnprivileged) == 0) {
            allowUnprivileged = true;
        } else {
            PrivilegedHelper::log(LOG_ERR, std::string("Unknown argument: ") + argv[i]);
            return 2;
        }
    }
    // Under pkexec the flag means nothing: only a stand-in elevation program may pass it.
    if (secure_getenv("PKEXEC_UID")) {
        allowUnprivileged = false;
    }
    if (::getuid() != 0 && !allowUnprivileged) {
        PrivilegedHelper::log(LOG_ERR, "The privileged helper must run as root");
        return 1;
    }
    // Nothing of the starting process is kept open in a process that runs tools as root,
    // and no folder is held busy.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    if (::chdir("/") != 0) {
        return 1;
    }
    ::signal(SIGPIPE, SIG_IGN);

    PrivilegedHelper helper(STDIN_FILENO, STDOUT_FILENO, PrivilegedHelper::defaultAllowedTools());
    return helper.serve();
}
