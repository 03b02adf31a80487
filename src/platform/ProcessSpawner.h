#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

// A started child process. Programs are always started directly, never through a shell,
// with the environment of the calling process.
class ChildProcess
{
public:
    virtual ~ChildProcess();

    virtual qint64 processId() const = 0;
    // Blocks until the process has ended; collected output is then complete.
    virtual void waitForFinished() = 0;
    // Streamed output: blocks until standard output has data; empty at end of file.
    virtual QByteArray readStandardOutputChunk() = 0;
    // Collected output, after waitForFinished.
    virtual QByteArray standardOutput() = 0;
    virtual QByteArray standardError() = 0;
    // The exit status, or the number of the signal that ended the process.
    virtual int terminationStatus() const = 0;
    // The remaining members may be called from any thread.
    virtual bool isRunning() const = 0;
    // SIGTERM; harmless once the process has ended.
    virtual void terminate() = 0;
    virtual void kill() = 0;
};

enum class ProcessOutput
{
    Discard,              // standard output and error to the null device
    Collect,              // both collected; standard input an open, empty pipe
    StreamStandardOutput, // standard output read in pieces; standard error discarded
};

// How processes are started. Tests may install a spawner that records the calls.
class ProcessSpawner
{
public:
    virtual ~ProcessSpawner();

    // A running process, or null when the launch failed (the reason in *error).
    virtual std::shared_ptr<ChildProcess> start(const QString &program,
                                                const QStringList &arguments, ProcessOutput output,
                                                QString *error) = 0;
    // Starts a process that is never waited for (and never left a zombie).
    virtual bool startDetached(const QString &program, const QStringList &arguments) = 0;

    static ProcessSpawner &current();
    // Replaces the spawner for the whole process; null restores the real one.
    static void setCurrent(std::shared_ptr<ProcessSpawner> spawner);
};
