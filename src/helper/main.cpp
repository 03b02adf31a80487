#include "HelperProtocol.h"
#include "PrivilegedHelper.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <unistd.h>

// kairo-helper: started through the elevation program (pkexec), it runs the system's
// system's requests for its root job files as root, and nothing else.
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

    // The application gives a socket as the output and speaks through it both ways: the
    // input stays the elevation program's, so that nothing meant for it (a password) is
    // ever read as a request.
    int type = 0;
    socklen_t size = sizeof(type);
    const bool outputIsSocket =
        ::getsockopt(STDOUT_FILENO, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
    const int input = outputIsSocket ? STDOUT_FILENO : STDIN_FILENO;
    if (outputIsSocket) {
        // Whatever the elevation program left unread there is dropped unseen.
        const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (null >= 0) {
            ::dup2(null, STDIN_FILENO);
            ::close(null);
        }
    }
    std::optional<HelperPolicy> policy = HelperPolicy::create(input);
    if (!policy) {
        return 1;
    }
    PrivilegedHelper helper(input, STDOUT_FILENO, std::move(*policy));
    return helper.serve();
}
