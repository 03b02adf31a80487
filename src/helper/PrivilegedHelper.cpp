#include "PrivilegedHelper.h"

#include "HelperProtocol.h"

#include <systemd/sd-journal.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syslog.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Written by the SIGCHLD handler so that the request loop wakes up and reaps.
int g_childPipe[2] = {-1, -1};

volatile sig_atomic_t g_stop = 0;

void onChild(int)
{
    const int saved = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t n = ::write(g_childPipe[1], &byte, 1);
    errno = saved;
}

void onStop(int)
{
    g_stop = 1;
    onChild(0);
}

// How long a run may take before it is ended, and how long an ending tool is given.
constexpr int kRunLimitSeconds = 300;
constexpr int kEndGraceMilliseconds = 2000;

// Waits for a child without blocking forever; its whole process group is killed at the limit.
bool waitLimited(pid_t pid, int *waitStatus, int limitMilliseconds)
{
    for (int waited = 0;; waited += 10) {
        const pid_t result = ::waitpid(pid, waitStatus, WNOHANG);
        if (result == pid) {
            return true;
        }
        if (result < 0 && errno != EINTR) {
            return false;
        }
        if (waited >= limitMilliseconds) {
            ::kill(-pid, SIGKILL);
            while (::waitpid(pid, waitStatus, 0) < 0 && errno == EINTR) {
            }
            return true;
        }
        ::usleep(10000);
    }
}

// What a log line may show of a request: printable, one line.
std::string shown(const std::string &bytes)
{
    constexpr std::size_t kLimit = 200;
    std::string encoded = HelperProtocol::encodeField(bytes);
    if (encoded.size() > kLimit) {
        encoded.resize(kLimit);
        encoded += "...";
    }
    return encoded;
}

std::string shownRequest(const std::vector<std::string> &fields)
{
    std::string out;
    for (const auto &field : fields) {
        if (!out.empty()) {
            out += ' ';
        }
        out += shown(field);
    }
    return out;
}

int statusOf(int waitStatus)
{
    if (WIFEXITED(waitStatus)) {
        return WEXITSTATUS(waitStatus);
    }
    if (WIFSIGNALED(waitStatus)) {
        return WTERMSIG(waitStatus);
    }
    return -1;
}

} // namespace

PrivilegedHelper::PrivilegedHelper(int input, int output, HelperPolicy policy)
    : m_input(input), m_output(output), m_policy(std::move(policy))
{}

void PrivilegedHelper::log(int priority, const std::string &message)
{
    if (priority <= LOG_WARNING) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        ::localtime_r(&now.tv_sec, &local);
        char stamp[32];
        std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
        char millis[24];
        std::snprintf(millis, sizeof(millis), ".%03ld", now.tv_nsec / 1000000);
        const std::string line = std::string(stamp) + millis + ' ' + program_invocation_short_name +
                                 '[' + std::to_string(::getpid()) + "] " + message + '\n';
        // One write, so that lines of several processes never mix.
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    }
    sd_journal_print(priority, "%s", message.c_str());
}

int PrivilegedHelper::serve()
{
    if (::pipe2(g_childPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        log(LOG_ERR, std::string("Unable to watch child processes: ") + std::strerror(errno));
        return 1;
    }
    struct sigaction action
    {};
    action.sa_handler = onChild;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGCHLD, &action, nullptr);
    struct sigaction stop
    {};
    stop.sa_handler = onStop;
    sigemptyset(&stop.sa_mask);
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        ::sigaction(signal, &stop, nullptr);
    }
    const int status = serveRequests();
    endSpawned();
    return status;
}

int PrivilegedHelper::serveRequests()
{
    if (!writeAll(HelperProtocol::line({HelperProtocol::kReady}))) {
        return 1;
    }
    char chunk[65536];
    for (;;) {
        if (g_stop) {
            return 0;
        }
        pollfd fds[2] = {{m_input, POLLIN, 0}, {g_childPipe[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return 1;
        }
        if (fds[1].revents != 0) {
            char drain[64];
            while (::read(g_childPipe[0], drain, sizeof(drain)) > 0) {
            }
            reapSpawned();
        }
        if (fds[0].revents == 0) {
            continue;
        }
        const ssize_t n = ::read(m_input, chunk, sizeof(chunk));
        if (n == 0) {
            return 0;
        }
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            return 1;
        }
        m_buffer.append(chunk, static_cast<std::size_t>(n));
        for (std::size_t newline; (newline = m_buffer.find('\n')) != std::string::npos;) {
            const std::string line = m_buffer.substr(0, newline);
            m_buffer.erase(0, newline + 1);
            if (m_discarding) {
                // The end of a line already refused as too long.
                m_discarding = false;
                continue;
            }
            const std::string answer = line.size() >= HelperProtocol::kMaxLine
                                           ? refuse("request too long", std::string())
                                           : handle(line);
            if (!writeAll(answer)) {
                return 1;
            }
        }
        if (!m_discarding && m_buffer.size() >= HelperProtocol::kMaxLine) {
            m_buffer.clear();
            m_discarding = true;
            if (!writeAll(refuse("request too long", std::string()))) {
                return 1;
            }
        } else if (m_discarding) {
            m_buffer.clear();
        }
    }
}

std::string PrivilegedHelper::handle(const std::string &line)
{
    const auto request = HelperProtocol::fields(line);
    // A line that is no request may be anything, a misdirected password too: only its
    // length is logged.
    const std::string length = std::to_string(line.size()) + " bytes";
    if (!request) {
        return refuse("malformed request", length);
    }
    const std::string &verb = request->front();
    const bool wait = verb == HelperProtocol::kRun;
    if (!wait && verb != HelperProtocol::kSpawn) {
        return refuse("unknown request", length);
    }
    if (request->size() < 2) {
        return refuse("no program", shownRequest(*request));
    }
    for (const auto &field : *request) {
        if (field.find('\0') != std::string::npos) {
            return refuse("argument holds a NUL byte", shownRequest(*request));
        }
    }
    std::string reason;
    std::optional<HelperPolicy::Plan> plan = m_policy.plan(*request, &reason);
    if (!plan) {
        return refuse(reason, shownRequest(*request));
    }
    int error = 0;
    const pid_t pid = start(*plan, &error);
    if (pid < 0) {
        m_policy.discard(*plan);
        return refuse(std::string("unable to start: ") + std::strerror(error),
                      shownRequest(*request));
    }
    if (!wait && plan->mayRunOn) {
        m_policy.discard(*plan);
        m_spawned.emplace(pid, plan->tool);
        log(LOG_INFO, "Started " + shownRequest(*request) + " as process " + std::to_string(pid));
        return HelperProtocol::line({HelperProtocol::kStarted});
    }
    // File tools end before the answer, so that their result can be checked.
    int waitStatus = 0;
    if (!waitLimited(pid, &waitStatus, kRunLimitSeconds * 1000)) {
        m_policy.discard(*plan);
        return refuse(std::string("lost the program: ") + std::strerror(errno),
                      shownRequest(*request));
    }
    const int status = m_policy.finish(*plan, statusOf(waitStatus));
    log(LOG_INFO, "Ran " + shownRequest(*request) + ", status " + std::to_string(status));
    if (!wait) {
        return HelperProtocol::line({HelperProtocol::kStarted});
    }
    return HelperProtocol::line({HelperProtocol::kStatus, std::to_string(status)});
}

std::string PrivilegedHelper::refuse(const std::string &reason, const std::string &detail)
{
    log(LOG_WARNING, "Refused request (" + reason + ")" + (detail.empty() ? "" : ": " + detail));
    return HelperProtocol::line({HelperProtocol::kRefused, reason});
}

pid_t PrivilegedHelper::start(const HelperPolicy::Plan &plan, int *error) const
{
    std::vector<char *> argv{const_cast<char *>(plan.tool.c_str())};
    for (const std::string &argument : plan.arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<char *> environment;
    for (const std::string &variable : m_policy.environment()) {
        environment.push_back(const_cast<char *>(variable.c_str()));
    }
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // The helper ignores SIGPIPE and catches SIGCHLD; the tools start with the defaults, each
    // in a process group of its own, so that nothing it starts outlives the helper.
    posix_spawnattr_t attributes;
    HelperProtocol::initSpawnAttributes(&attributes);
    short flags = 0;
    posix_spawnattr_getflags(&attributes, &flags);
    posix_spawnattr_setflags(&attributes, static_cast<short>(flags | POSIX_SPAWN_SETPGROUP));
    posix_spawnattr_setpgroup(&attributes, 0);

    pid_t pid = -1;
    const int result = ::posix_spawn(&pid, plan.tool.c_str(), &actions, &attributes, argv.data(),
                                     environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        *error = result;
        return -1;
    }
    return pid;
}

void PrivilegedHelper::reapSpawned()
{
    for (auto it = m_spawned.begin(); it != m_spawned.end();) {
        int waitStatus = 0;
        if (::waitpid(it->first, &waitStatus, WNOHANG) == it->first) {
            log(LOG_INFO, "Process " + std::to_string(it->first) + " (" + shown(it->second) +
                              ") ended with status " + std::to_string(statusOf(waitStatus)));
            it = m_spawned.erase(it);
        } else {
            ++it;
        }
    }
}

void PrivilegedHelper::endSpawned()
{
    reapSpawned();
    for (const auto &entry : m_spawned) {
        ::kill(-entry.first, SIGTERM);
    }
    for (const auto &entry : m_spawned) {
        int waitStatus = 0;
        waitLimited(entry.first, &waitStatus, kEndGraceMilliseconds);
        // Whatever it started in its group goes with it.
        ::kill(-entry.first, SIGKILL);
        log(LOG_INFO, "Ended process " + std::to_string(entry.first) + " (" + shown(entry.second) +
                          ") as the helper ends");
    }
    m_spawned.clear();
}

bool PrivilegedHelper::writeAll(const std::string &bytes) const
{
    const char *p = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(m_output, p, left);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    return true;
}
