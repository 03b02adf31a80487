#pragma once

#include "platform/ProcessSpawner.h"

#include <QStringList>

#include <mutex>
#include <vector>

// A spawner that records what it is asked to start and starts nothing: every process it
// hands out has already finished with status 0.
class RecordingSpawner : public ProcessSpawner
{
public:
    std::shared_ptr<ChildProcess> start(const QString &program, const QStringList &arguments,
                                        ProcessOutput output, QString *error) override;
    bool startDetached(const QString &program, const QStringList &arguments) override;

    // "program arg arg" per call, in order, " &" after one not waited for.
    QStringList calls() const;
    // "program arg arg" of each call of the kind.
    QStringList calls(bool detached) const;

private:
    struct Call
    {
        QString program;
        QStringList arguments;
        bool detached;
    };

    mutable std::mutex m_mutex;
    std::vector<Call> m_calls;
};
