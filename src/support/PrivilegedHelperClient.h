#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include <sys/types.h>

// The application's side of the privileged helper: starts it through the elevation program
// with its standard output on a socket, sends requests and reads the answers there.
// The helper counts as held while its process runs; ending closes its input.
class PrivilegedHelperClient
{
public:
    enum class Start
    {
        Ready,        // the helper said it is ready
        Refused,      // the elevation was refused or cancelled, or the helper never got ready
        LaunchFailed, // the elevation program could not be started at all
    };

    struct Reply
    {
        enum class Kind
        {
            Status,  // a run ended; status is the tool's exit status (or its signal)
            Started, // a spawn was started
            Refused, // the helper refused the request; reason says why
            NotSent, // the helper was gone before the request reached it
            Lost,    // the helper went away before it answered
        };
        Kind kind = Kind::Lost;
        int status = 0;
        QByteArray reason;
    };

    PrivilegedHelperClient() = default;
    ~PrivilegedHelperClient();
    PrivilegedHelperClient(const PrivilegedHelperClient &) = delete;
    PrivilegedHelperClient &operator=(const PrivilegedHelperClient &) = delete;

    // Starts the program (searched on the PATH when the name holds no slash), once per
    // client, with the socket as its output. A secret, when given, is the program's whole
    // input (a pipe of its own, which the helper never reads); it is not copied. Waits for the
    // ready line at most readyLimit. The errno of a failed launch goes to *launchError.
    Start start(const QString &program, const QStringList &arguments, const QByteArray *secret,
                std::chrono::milliseconds readyLimit, int *launchError = nullptr);

    bool isRunning() const;
    qint64 processId() const;
    // How the started program ended, once it has (exit status or signal number).
    std::optional<int> exitStatus() const;

    // Runs the tool and waits for it.
    Reply run(const QByteArray &tool, const QByteArrayList &arguments);
    // Starts the tool without waiting for it.
    Reply spawn(const QByteArray &tool, const QByteArrayList &arguments);
    // The reply to the last request.
    Reply lastReply() const;

    // Closes the helper's input, so that it ends, and waits a moment for it.
    void end();

private:
    Reply request(const char *verb, const QByteArray &tool, const QByteArrayList &arguments);
    bool sendAll(const char *data, std::size_t size);
    // One line without its newline; no value on end of input, an error or the time limit
    // (negative: none).
    std::optional<std::string> readLine(std::chrono::milliseconds limit);
    // True once the process has ended (and is reaped).
    bool reapLocked() const;
    void waitForExitLocked(std::chrono::milliseconds limit) const;
    void closeSocketLocked();

    mutable std::mutex m_mutex;
    mutable pid_t m_pid = -1;
    mutable std::optional<int> m_exitStatus;
    int m_socket = -1;
    std::string m_buffer;
    Reply m_lastReply;
};
