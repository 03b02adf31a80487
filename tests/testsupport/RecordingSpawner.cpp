#include "RecordingSpawner.h"

namespace {

class FinishedProcess : public ChildProcess
{
public:
    qint64 processId() const override { return 4242; }
    void waitForFinished() override {}
    QByteArray readStandardOutputChunk() override { return {}; }
    QByteArray standardOutput() override { return {}; }
    QByteArray standardError() override { return {}; }
    int terminationStatus() const override { return 0; }
    bool isRunning() const override { return false; }
    void terminate() override {}
    void kill() override {}
};

QString commandLine(const QString &program, const QStringList &arguments)
{
    return (QStringList{program} + arguments).join(QLatin1Char(' '));
}

} // namespace

std::shared_ptr<ChildProcess> RecordingSpawner::start(const QString &program,
                                                      const QStringList &arguments, ProcessOutput,
                                                      QString *)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({program, arguments, false});
    return std::make_shared<FinishedProcess>();
}

bool RecordingSpawner::startDetached(const QString &program, const QStringList &arguments)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({program, arguments, true});
    return true;
}

QStringList RecordingSpawner::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList out;
    for (const Call &call : m_calls) {
        out.append(commandLine(call.program, call.arguments) +
                   (call.detached ? QStringLiteral(" &") : QString()));
    }
    return out;
}

QStringList RecordingSpawner::calls(bool detached) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList out;
    for (const Call &call : m_calls) {
        if (call.detached == detached) {
            out.append(commandLine(call.program, call.arguments));
        }
    }
    return out;
}
