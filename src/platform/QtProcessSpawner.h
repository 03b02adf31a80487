#pragma once

#include "ProcessSpawner.h"

// The real spawner, on QProcess.
class QtProcessSpawner : public ProcessSpawner
{
public:
    std::shared_ptr<ChildProcess> start(const QString &program, const QStringList &arguments,
                                        ProcessOutput output, QString *error) override;
    bool startDetached(const QString &program, const QStringList &arguments) override;
};
