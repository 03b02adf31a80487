#pragma once

#include "platform/ProcessSpawner.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// Text encodings by their platform numbers.
enum class VTStringEncoding : int
{
    ASCII = 1,
    UTF8 = 4,
    ISOLatin1 = 5,
    Unicode = 10
};

// Runs external programs: run and wait, exit status, collected output, no wait, with a
// time limit, or streamed to a callback. Programs are started directly, never through a
// shell; output that is not collected goes to the null device.
class VTTask : public std::enable_shared_from_this<VTTask>
{
public:
    // Where a caller may keep the running process so that another thread can stop it.
    using TaskSlot = std::shared_ptr<ChildProcess>;
    // Called with each piece of streamed output, this run and the caller's object.
    using Delegate =
        std::function<void(const QByteArray &data, VTTask *task, const QVariant &object)>;

    static std::shared_ptr<VTTask> create();
    ~VTTask();

    static bool runTask(const QString &path, const QStringList &arguments,
                        TaskSlot *task = nullptr);
    static void runTaskAndReturn(const QString &path, const QStringList &arguments);
    static qint64 terminationCodeFromTask(const QString &path, const QStringList &arguments,
                                          TaskSlot *task = nullptr);
    static std::optional<QByteArray> dataFromTask(const QString &path, const QStringList &arguments,
                                                  TaskSlot *task = nullptr);
    static QString stringFromTask(const QString &path, const QStringList &arguments,
                                  VTStringEncoding encoding = VTStringEncoding::ASCII,
                                  TaskSlot *task = nullptr);

    // With a time limit in seconds (whole seconds count; the fraction is dropped).
    static void runTask(const QString &path, const QStringList &arguments, double timeout);
    static qint64 terminationCodeFromTask(const QString &path, const QStringList &arguments,
                                          double timeout);
    static std::optional<QByteArray> dataFromTask(const QString &path, const QStringList &arguments,
                                                  double timeout);
    static QString stringFromTask(const QString &path, const QStringList &arguments,
                                  VTStringEncoding encoding, double timeout);
    static QString stringFromTask(const QString &path, const QStringList &arguments,
                                  double timeout);

    // The runs with a watchdog, on an instance.
    bool timedRunTask(const QString &path, const QStringList &arguments, double timeout);
    qint64 timedTerminationCodeFromTask(const QString &path, const QStringList &arguments,
                                        double timeout);
    std::optional<QByteArray> timedDataFromTask(const QString &path, const QStringList &arguments,
                                                double timeout);
    // The watchdog: waits the given seconds, then stops the process if it still runs.
    void setupTimeout(qint64 seconds);
    void timeout();

    // Streamed run: returns at once; the delegate gets each piece of standard output on a
    // reading thread, then once more with empty data at the end.
    void asyncDataFromTask(const QString &path, const QStringList &arguments, Delegate delegate,
                           const QVariant &object = QVariant());
    void launchAsyncTask();
    void asyncTaskReturnData(const QByteArray &data);
    void terminateAsyncTask();

    // Decodes collected output as stringFromTask does.
    static QString decode(const QByteArray &data, VTStringEncoding encoding);

private:
    VTTask() = default;

    template <typename R, typename F>
    R runWithWatchdog(double timeout, F &&run);

    static bool isLaunchable(const QString &path);

    std::mutex m_mutex;
    TaskSlot m_theTask;
    Delegate m_delegate;
    QVariant m_object;
    QString m_asyncPath;
    QStringList m_asyncArguments;
    std::shared_ptr<bool> m_watchdogCancelled;
};
