#include "QtProcessSpawner.h"

#include "FileNames.h"

#include <QProcess>

#include <atomic>
#include <mutex>
#include <vector>

#include <signal.h>
#include <unistd.h>

namespace {

// A QProcess used from the thread that started it; terminate and kill go through the
// process id so that any thread may call them.
class QtChildProcess : public ChildProcess
{
public:
    explicit QtChildProcess(ProcessOutput output) : m_output(output) {}

    ~QtChildProcess() override
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(-1);
        }
    }

    bool start(const QString &program, const QStringList &arguments, QString *error)
    {
        m_process.setProgram(program);
        m_process.setArguments(arguments);
        passBytesUnchanged(program, arguments);
        switch (m_output) {
        case ProcessOutput::Discard:
            m_process.setStandardInputFile(QProcess::nullDevice());
            m_process.setStandardOutputFile(QProcess::nullDevice());
            m_process.setStandardErrorFile(QProcess::nullDevice());
            break;
        case ProcessOutput::Collect:
            break;
        case ProcessOutput::StreamStandardOutput:
            m_process.setStandardInputFile(QProcess::nullDevice());
            m_process.setStandardErrorFile(QProcess::nullDevice());
            break;
        }
        m_process.start(QIODevice::ReadWrite | QIODevice::Unbuffered);
        if (!m_process.waitForStarted(-1)) {
            if (error) {
                *error = m_process.errorString();
            }
            return false;
        }
        if (m_output == ProcessOutput::Collect) {
            // An open, empty input: the child reads end of file, never the terminal.
            m_process.closeWriteChannel();
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pid = m_process.processId();
        m_running = true;
        return true;
    }

    qint64 processId() const override { return m_pid; }

    void waitForFinished() override
    {
        m_process.waitForFinished(-1);
        markEnded();
    }

    QByteArray readStandardOutputChunk() override
    {
        if (m_process.bytesAvailable() == 0 && m_process.state() != QProcess::NotRunning) {
            m_process.waitForReadyRead(-1);
        }
        QByteArray chunk = m_process.readAllStandardOutput();
        if (chunk.isEmpty() && m_process.state() == QProcess::NotRunning) {
            markEnded();
        }
        return chunk;
    }

    QByteArray standardOutput() override { return m_process.readAllStandardOutput(); }
    QByteArray standardError() override { return m_process.readAllStandardError(); }

    int terminationStatus() const override { return m_process.exitCode(); }

    bool isRunning() const override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_running;
    }

    void terminate() override { sendSignal(SIGTERM); }
    void kill() override { sendSignal(SIGKILL); }

private:
    // QProcess hands program and arguments to the system as UTF-8, which turns the bytes of
    // a name that is not UTF-8 into others. For such a call the child starts the program
    // itself, from the bytes (FileNames), just before QProcess would.
    void passBytesUnchanged(const QString &program, const QStringList &arguments)
    {
        bool lossy = FileNames::encode(program) != program.toUtf8();
        for (const QString &argument : arguments) {
            lossy = lossy || FileNames::encode(argument) != argument.toUtf8();
        }
        if (!lossy) {
            return;
        }
        m_rawArguments.clear();
        m_rawArguments.push_back(FileNames::encode(program));
        for (const QString &argument : arguments) {
            m_rawArguments.push_back(FileNames::encode(argument));
        }
        m_argv.clear();
        for (QByteArray &argument : m_rawArguments) {
            m_argv.push_back(argument.data());
        }
        m_argv.push_back(nullptr);
        m_process.setChildProcessModifier([this] {
            ::execv(m_argv[0], m_argv.data());
            ::_exit(127);
        });
    }

    void sendSignal(int number)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_running && m_pid > 0) {
            ::kill(static_cast<pid_t>(m_pid), number);
        }
    }

    void markEnded()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
    }

    ProcessOutput m_output;
    QProcess m_process;
    mutable std::mutex m_mutex;
    qint64 m_pid = 0;
    bool m_running = false;
    std::vector<QByteArray> m_rawArguments;
    std::vector<char *> m_argv;
};

} // namespace

std::shared_ptr<ChildProcess> QtProcessSpawner::start(const QString &program,
                                                      const QStringList &arguments,
                                                      ProcessOutput output, QString *error)
{
    auto child = std::make_shared<QtChildProcess>(output);
    if (!child->start(program, arguments, error)) {
        return nullptr;
    }
    return child;
}

bool QtProcessSpawner::startDetached(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached();
}
