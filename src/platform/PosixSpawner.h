#pragma once

#include "QtProcessSpawner.h"

// The real spawner. A run whose output is discarded, which is what saving a job does
// thousands of times when all tasks are rewritten, is started with vfork and waited for
// with waitid: no pipes, no event machinery, no copy of the address space. Runs that
// read the child's output go through QProcess.
class PosixSpawner : public QtProcessSpawner
{
public:
    std::shared_ptr<ChildProcess> start(const QString &program, const QStringList &arguments,
                                        ProcessOutput output, QString *error) override;
};
