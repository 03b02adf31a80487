#include "PosixSpawner.h"

#include "FileNames.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
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

// The child's standard streams on the null device, its signal mask empty and SIGPIPE, which
// the parent may ignore, back to its default.
struct SpawnSetup
{
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};

    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup &) = delete;
    SpawnSetup &operator=(const SpawnSetup &) = delete;
};

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

    static const SpawnSetup setup;
    const std::vector<char *> quietEnvironment =
        isQuietFileTool(bytes.front()) ? cLocaleEnvironment() : std::vector<char *>();
    pid_t pid = 0;
    // posix_spawn reports a program that cannot be executed itself, before it returns.
    const int failed = ::posix_spawn(&pid, argv[0], &setup.actions, &setup.attributes, argv.data(),
                                     quietEnvironment.empty() ? environ : quietEnvironment.data());
    if (failed != 0) {
        if (error) {
            *error = QString::fromLocal8Bit(std::strerror(failed));
        }
        return nullptr;
    }
    return std::make_shared<SpawnedChild>(pid);
}
