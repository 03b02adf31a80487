#include "PrivilegedHelperClient.h"

#include "helper/HelperProtocol.h"
#include "platform/FileNames.h"

#include <thread>
#include <vector>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

using namespace std::chrono_literals;

namespace {

// How long an ending helper is given before it is asked to terminate, and then once more.
constexpr std::chrono::milliseconds kEndGrace = 5000ms;
// A program that never got ready is waiting for something it will not get.
constexpr std::chrono::milliseconds kNotReadyGrace = 2000ms;
constexpr std::chrono::milliseconds kTerminateGrace = 2000ms;

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

std::string bytes(const QByteArray &array)
{
    return std::string(array.constData(), static_cast<std::size_t>(array.size()));
}

} // namespace

PrivilegedHelperClient::~PrivilegedHelperClient()
{
    end();
}

PrivilegedHelperClient::Start PrivilegedHelperClient::start(const QString &program,
                                                            const QStringList &arguments,
                                                            const QByteArray *secret,
                                                            std::chrono::milliseconds readyLimit,
                                                            int *launchError)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_socket >= 0 || m_pid > 0) {
        // One helper per client.
        if (launchError) {
            *launchError = EBUSY;
        }
        return Start::LaunchFailed;
    }
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        if (launchError) {
            *launchError = errno;
        }
        return Start::LaunchFailed;
    }

    // A secret goes to the program's input through a pipe of its own, whole before the
    // program starts; the helper speaks through the socket only and never reads that input.
    int secretPipe[2] = {-1, -1};
    if (secret) {
        if (::pipe2(secretPipe, O_CLOEXEC | O_NONBLOCK) != 0 ||
            ::write(secretPipe[1], secret->constData(), static_cast<size_t>(secret->size())) !=
                secret->size()) {
            const int error = secretPipe[0] < 0 ? errno : EMSGSIZE;
            for (const int fd : {secretPipe[0], secretPipe[1], pair[0], pair[1]}) {
                if (fd >= 0) {
                    ::close(fd);
                }
            }
            if (launchError) {
                *launchError = error;
            }
            return Start::LaunchFailed;
        }
        ::close(secretPipe[1]);
        // The reader sees a blocking pipe that ends after the secret.
        ::fcntl(secretPipe[0], F_SETFL, 0);
    }

    const QByteArray programName = FileNames::encode(program);
    std::vector<QByteArray> storage{programName};
    for (const QString &argument : arguments) {
        storage.push_back(FileNames::encode(argument));
    }
    std::vector<char *> argv;
    for (QByteArray &item : storage) {
        argv.push_back(item.data());
    }
    argv.push_back(nullptr);

    // The helper's output is the socket, and it reads its requests from there too; its
    // errors go where ours go.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (secretPipe[0] >= 0) {
        posix_spawn_file_actions_adddup2(&actions, secretPipe[0], STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, pair[1], STDOUT_FILENO);
    posix_spawnattr_t attributes;
    HelperProtocol::initSpawnAttributes(&attributes);

    pid_t pid = -1;
    const int result =
        ::posix_spawnp(&pid, programName.constData(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pair[1]);
    if (secretPipe[0] >= 0) {
        ::close(secretPipe[0]);
    }
    if (result != 0) {
        ::close(pair[0]);
        if (launchError) {
            *launchError = result;
        }
        return Start::LaunchFailed;
    }
    m_socket = pair[0];
    m_pid = pid;
    m_exitStatus.reset();
    m_buffer.clear();

    const auto line = readLine(readyLimit);
    if (line && *line == HelperProtocol::kReady) {
        return Start::Ready;
    }
    // Refused, cancelled, or waiting for something it will never get: closing its input
    // ends it.
    closeSocketLocked();
    waitForExitLocked(kNotReadyGrace);
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        waitForExitLocked(kTerminateGrace);
    }
    return Start::Refused;
}

bool PrivilegedHelperClient::isRunning() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_socket >= 0 && m_pid > 0 && !reapLocked();
}

qint64 PrivilegedHelperClient::processId() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pid;
}

std::optional<int> PrivilegedHelperClient::exitStatus() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    reapLocked();
    return m_exitStatus;
}

PrivilegedHelperClient::Reply PrivilegedHelperClient::run(const QByteArray &tool,
                                                          const QByteArrayList &arguments)
{
    return request(HelperProtocol::kRun, tool, arguments);
}

PrivilegedHelperClient::Reply PrivilegedHelperClient::spawn(const QByteArray &tool,
                                                            const QByteArrayList &arguments)
{
    return request(HelperProtocol::kSpawn, tool, arguments);
}

PrivilegedHelperClient::Reply PrivilegedHelperClient::lastReply() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastReply;
}

PrivilegedHelperClient::Reply PrivilegedHelperClient::request(const char *verb,
                                                              const QByteArray &tool,
                                                              const QByteArrayList &arguments)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Reply reply;
    std::vector<std::string> fields{verb, bytes(tool)};
    for (const QByteArray &argument : arguments) {
        fields.push_back(bytes(argument));
    }
    const std::string line = HelperProtocol::line(fields);
    if (m_socket < 0 || m_pid <= 0 || reapLocked() || !sendAll(line.data(), line.size())) {
        // A partial line never runs: the helper acts on whole lines only.
        reply.kind = Reply::Kind::NotSent;
        m_lastReply = reply;
        return reply;
    }
    const auto answer = readLine(std::chrono::milliseconds(-1));
    const auto parts = answer ? HelperProtocol::fields(*answer) : std::nullopt;
    bool understood = false;
    if (parts && parts->size() == 2 && (*parts)[0] == HelperProtocol::kStatus) {
        bool ok = false;
        reply.status = QByteArray::fromStdString((*parts)[1]).toInt(&ok);
        reply.kind = Reply::Kind::Status;
        understood = ok;
    } else if (parts && parts->size() == 1 && (*parts)[0] == HelperProtocol::kStarted) {
        reply.kind = Reply::Kind::Started;
        understood = true;
    } else if (parts && parts->size() == 2 && (*parts)[0] == HelperProtocol::kRefused) {
        reply.kind = Reply::Kind::Refused;
        reply.reason = QByteArray::fromStdString((*parts)[1]);
        understood = true;
    }
    if (!understood) {
        // Gone, or no longer speaking the protocol: either way it is not used again.
        reply = Reply();
        reply.kind = Reply::Kind::Lost;
        closeSocketLocked();
        waitForExitLocked(kEndGrace);
    }
    m_lastReply = reply;
    return reply;
}

void PrivilegedHelperClient::end()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    closeSocketLocked();
    if (m_pid <= 0) {
        return;
    }
    waitForExitLocked(kEndGrace);
    if (m_pid > 0) {
        // Works for an unprivileged stand-in; a root helper that ignores the end of its
        // input is left alone.
        ::kill(m_pid, SIGTERM);
        waitForExitLocked(kTerminateGrace);
    }
}

bool PrivilegedHelperClient::sendAll(const char *data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(m_socket, data, size, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::optional<std::string> PrivilegedHelperClient::readLine(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    char chunk[4096];
    for (;;) {
        const std::size_t newline = m_buffer.find('\n');
        if (newline != std::string::npos) {
            std::string line = m_buffer.substr(0, newline);
            m_buffer.erase(0, newline + 1);
            return line;
        }
        if (m_socket < 0 || m_buffer.size() >= HelperProtocol::kMaxLine) {
            return std::nullopt;
        }
        int timeout = -1;
        if (limit.count() >= 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return std::nullopt;
            }
            timeout = static_cast<int>(left.count());
        }
        pollfd fd{m_socket, POLLIN, 0};
        const int ready = ::poll(&fd, 1, timeout);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return std::nullopt;
        }
        const ssize_t n = ::recv(m_socket, chunk, sizeof(chunk), 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::nullopt;
        }
        m_buffer.append(chunk, static_cast<std::size_t>(n));
    }
}

bool PrivilegedHelperClient::reapLocked() const
{
    if (m_pid <= 0) {
        return true;
    }
    int waitStatus = 0;
    pid_t result;
    do {
        result = ::waitpid(m_pid, &waitStatus, WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == m_pid) {
        m_exitStatus = statusOf(waitStatus);
        m_pid = -1;
        return true;
    }
    if (result < 0) {
        // Not our child any more: someone else reaped it.
        m_pid = -1;
        return true;
    }
    return false;
}

void PrivilegedHelperClient::waitForExitLocked(std::chrono::milliseconds limit) const
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!reapLocked() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(5ms);
    }
}

void PrivilegedHelperClient::closeSocketLocked()
{
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
    m_buffer.clear();
}
