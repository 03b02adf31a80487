#pragma once

#include "VTFormat.h"

#include <QString>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

// One plain-text log per program name in ~/Library/Logs/Vantreel, five generations, a
// header describing the machine, and writes done in order by one background writer so that
// callers never wait for the disk, except for short messages on an idle queue.
class VTLog
{
public:
    static VTLog &sharedController();

    static void createNewLog();
    static void createNewLog(const std::optional<QString> &name);

    // Formats, trims and queues one message. A null format does nothing.
    template <typename... Args>
    static void appendLog(const QString &format, const Args &...args)
    {
        if (!format.isNull()) {
            sharedController().queueMessage(VTFormat::string(format, args...));
        }
    }

    // Logs the message and prints it on the console. The trimmed format is formatted, and
    // the result is read once more as a format by appendLog.
    template <typename... Args>
    static void appendLogAndPrint(const QString &format, const Args &...args)
    {
        if (!format.isNull()) {
            sharedController().logAndPrint(VTFormat::string(format.trimmed(), args...));
        }
    }

    // Blocks until every queued message has been written.
    static void finishWriting();

    QString appName() const;
    void setAppName(const std::optional<QString> &name);
    quint64 bytesWritten() const;
    quint64 bytesInQueue() const;
    bool loggingDisabled() const;

    // The path of the current log file, as the writer opens it.
    static QString currentLogPath();
    // Tests: close the file and forget the name and the switches, as at process start.
    static void resetForTesting();

private:
    VTLog();
    ~VTLog() = delete;

    void queueMessage(const QString &text);
    void logAndPrint(const QString &text);
    void appendLogOnThread(const QString &text);
    void startNewLog(const std::optional<QString> &name);
    void waitUntilWritten();
    void writerLoop();
    bool onWriterThread() const;
    QString logFolder() const;
    QString logFile() const;
    QString header() const;

    // The queue and its counter.
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<QString> m_queue;
    bool m_busy = false;
    quint64 m_bytesInQueue = 0;
    std::thread m_writer;

    // The file and its state; the writer holds this while it writes, and starting a new
    // log takes it again from inside a write when the file grows too large.
    mutable std::recursive_mutex m_fileMutex;
    std::optional<QString> m_appName;
    int m_fileHandle = -1;
    quint64 m_bytesWritten = 0;
    bool m_loggingDisabled = false;
};
