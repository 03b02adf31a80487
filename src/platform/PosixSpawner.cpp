#include "PosixSpawner.h"

#include "FileNames.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

// A child started with posix_spawn. It is reaped only under the lock, after waitid has seen
// it end, so a signal sent under the lock while it counts as running never reaches another
// process that took over its id.
class SpawnedChild : public ChildProcess
{
public:
    explicit SpawnedChild(pid_t pid) : m_pid(pid) {}

    ~SpawnedChild() override
    {
        if (isRunning()) {
            kill();
            waitForFinished();
        }
    }

    qint64 processId() const override { return m_pid; }

    void waitForFinished() override
    {
        if (!isRunning()) {
            return;
        }
        siginfo_t info{};
        // WNOWAIT: the child stays a zombie, its id taken, until reaped below.
        while (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_running) {
            return;
        }
        int status = 0;
        pid_t reaped = -1;
        do {
            reaped = ::waitpid(m_pid, &status, 0);
        } while (reaped < 0 && errno == EINTR);
        if (reaped == m_pid) {
            m_status = WIFEXITED(status) ? WEXITSTATUS(status)
                                         : (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
        }
        m_running = false;
    }

    // Output is discarded: there is none to read.
    QByteArray readStandardOutputChunk() override
    {
        waitForFinished();
        return QByteArray();
    }
    QByteArray standardOutput() override { return QByteArray(); }
    QByteArray standardError() override { return QByteArray(); }

    int terminationStatus() const override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_status;
    }

    bool isRunning() const override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_running;
    }

    void terminate() override { sendSignal(SIGTERM); }
    void kill() override { sendSignal(SIGKILL); }

private:
    void sendSignal(int number)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_running) {
            ::kill(m_pid, number);
        }
    }

    const pid_t m_pid;
    mutable std::mutex m_mutex;
    bool m_running = true;
    int m_status = 0;
};

// Starts argv[0] with its standard streams on the null device, its signal mask empty and no
// signal handler of the parent's (SIGPIPE, which the parent may ignore, back to its
// default); returns the process id, or -1 with the reason in *launchError.
// posix_spawn would do the same, but it maps a fresh stack for every child and unmaps it
// afterwards, which costs a TLB flush on every processor the process ran on; passes start
// thousands of children. With vfork the child borrows the parent's stack while the parent
// waits, so between vfork and execve it makes system calls only.
pid_t spawnDiscarding(char *const argv[], char *const envp[], int *launchError)
{
    static const int nullDevice = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    // Blocked until the child has reset the handlers: none may run on the borrowed stack.
    sigset_t all;
    sigfillset(&all);
    sigset_t old;
    ::pthread_sigmask(SIG_SETMASK, &all, &old);
    volatile int childError = 0;
    const pid_t pid = ::vfork();
    if (pid == 0) {
        for (int number = 1; number < NSIG; ++number) {
            struct sigaction action
            {};
            if (::sigaction(number, nullptr, &action) != 0 ||
                (action.sa_handler == SIG_DFL ||
                 (action.sa_handler == SIG_IGN && number != SIGPIPE))) {
                continue;
            }
            action.sa_handler = SIG_DFL;
            action.sa_flags = 0;
            ::sigaction(number, &action, nullptr);
        }
        if (nullDevice < 0 || ::dup2(nullDevice, STDIN_FILENO) < 0 ||
            ::dup2(nullDevice, STDOUT_FILENO) < 0 || ::dup2(nullDevice, STDERR_FILENO) < 0) {
            childError = nullDevice < 0 ? ENOENT : errno;
            ::_exit(127);
        }
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::execve(argv[0], argv, envp);
        // Seen by the parent, whose memory this still is.
        childError = errno;
        ::_exit(127);
    }
    const int spawnError = errno;
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (pid < 0) {
        *launchError = spawnError;
        return -1;
    }
    if (childError != 0) {
        *launchError = childError;
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        return -1;
    }
    return pid;
}

// chmod and chown say nothing but messages, and here those go to the null device; in the
// C locale they skip loading the user's, about an eighth of what each run costs.
bool isQuietFileTool(const QByteArray &program)
{
    return program == "/bin/chmod" || program == "/bin/chown";
}

// The calling process's environment with LC_ALL=C in place of any LC_ALL of its own.
std::vector<char *> cLocaleEnvironment()
{
    static char cLocale[] = "LC_ALL=C";
    std::vector<char *> env;
    for (char **entry = environ; *entry; ++entry) {
        if (std::strncmp(*entry, "LC_ALL=", 7) != 0) {
            env.push_back(*entry);
        }
    }
    env.push_back(cLocale);
    env.push_back(nullptr);
    return env;
}

} // namespace

std::shared_ptr<ChildProcess> PosixSpawner::start(const QString &program,
                                                  const QStringList &arguments,
                                                  ProcessOutput output, QString *error)
{
    if (output != ProcessOutput::Discard) {
        return QtProcessSpawner::start(program, arguments, output, error);
    }
    // The names go to the system as the bytes they stand for, UTF-8 or not.
    std::vector<QByteArray> bytes;
    bytes.reserve(static_cast<size_t>(arguments.size()) + 1);
    bytes.push_back(FileNames::encode(program));
    for (const QString &argument : arguments) {
        bytes.push_back(FileNames::encode(argument));
    }
    std::vector<char *> argv;
    argv.reserve(bytes.size() + 1);
    for (QByteArray &argument : bytes) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    const std::vector<char *> quietEnvironment =
        isQuietFileTool(bytes.front()) ? cLocaleEnvironment() : std::vector<char *>();
    int failed = 0;
    // A program that cannot be executed is reported here, before the function returns.
    const pid_t pid = spawnDiscarding(
        argv.data(), quietEnvironment.empty() ? environ : quietEnvironment.data(), &failed);
    if (pid < 0) {
        if (error) {
            *error = QString::fromLocal8Bit(std::strerror(failed));
        }
        return nullptr;
    }
    return std::make_shared<SpawnedChild>(pid);
}
