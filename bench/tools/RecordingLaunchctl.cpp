// A stand-in launchctl for the benchmarks, as light as /bin/true: appends its arguments as
// one line to the file named by KAIRO_BENCH_LAUNCHCTL_LOG and succeeds.
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    const char *log = std::getenv("KAIRO_BENCH_LAUNCHCTL_LOG");
    if (!log || argc < 2) {
        return 0;
    }
    constexpr int kMost = 16;
    iovec parts[kMost * 2];
    int used = 0;
    static char space[] = " ";
    static char newline[] = "\n";
    for (int i = 1; i < argc && i <= kMost; ++i) {
        parts[used++] = {argv[i], std::strlen(argv[i])};
        parts[used++] = {i + 1 < argc && i < kMost ? space : newline, 1};
    }
    const int fd = ::open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return 1;
    }
    // One write, so that lines of concurrent runs never interleave.
    const bool written = ::writev(fd, parts, used) > 0;
    ::close(fd);
    return written ? 0 : 1;
}
