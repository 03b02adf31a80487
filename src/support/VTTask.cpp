#include "VTTask.h"

#include "VTException.h"
#include "VTFormat.h"
#include "VTLog.h"
#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/FileNames.h"

#include <QDir>
#include <QFileInfo>
#include <QStringDecoder>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <limits>

#include <unistd.h>

// Every run goes through ProcessSpawner::current(), which starts programs directly (no
// shell) with the environment of the calling process. The watchdog stops the process from
// its own thread: the main thread may be the one blocked waiting for that very process.
// Everything the watchdog shares with the run (`m_theTask`, the launch path) is guarded by
// `m_mutex`; the launch path of `m_theTask` is kept in `m_asyncPath` for timed runs as well
// as for streamed ones.

namespace {

const QString kNotExecutable = QStringLiteral("Error: %@ is not executable");

// How long a program that ignores the termination signal is given before it is killed.
constexpr std::chrono::milliseconds kKillGrace{3000};
constexpr std::chrono::milliseconds kKillPoll{20};

// The cancellation flags of all watchdogs. A cancelled run wakes its watchdog at once, so
// that no thread is left sleeping after the run has ended.
std::mutex g_watchdogMutex;
std::condition_variable g_watchdogWake;

// The flag of the watchdog running on this thread (set by the thread that a timed run
// starts, so that setupTimeout watches its own run even when the instance runs again).
thread_local std::shared_ptr<bool> t_watchdogFlag;

// A timed run calls the class method with the address of `theTask`; the store into that
// slot then happens under the instance's lock, since the watchdog thread reads it.
struct SlotHook
{
    VTTask::TaskSlot *slot;
    std::mutex *mutex;
    QString *launchPath;
};
thread_local const SlotHook *t_slotHook = nullptr;

void storeTask(VTTask::TaskSlot *task, const VTTask::TaskSlot &child, const QString &path)
{
    if (!task) {
        return;
    }
    if (t_slotHook && t_slotHook->slot == task) {
        std::lock_guard<std::mutex> lock(*t_slotHook->mutex);
        *task = child;
        *t_slotHook->launchPath = path;
    } else {
        *task = child;
    }
}

// The executable check: an executable file that is not a package. A plain folder passes
// (it fails later, at the launch).
bool checkExecutable(const QString &path)
{
    if (!path.isEmpty()) {
        const QByteArray native = FileNames::encode(path);
        if (::access(native.constData(), X_OK) == 0 && !Bundle::isPackage(path)) {
            return true;
        }
    }
    Console::log(VTFormat::string(kNotExecutable, path));
    VTLog::appendLog(kNotExecutable, path);
    return false;
}

// The program as it is started: a relative path names the file the check looked at, not
// a program found on the PATH.
QString programPath(const QString &path)
{
    return QDir::isAbsolutePath(path) ? path : QFileInfo(path).absoluteFilePath();
}

[[noreturn]] void raiseLaunchFailure(const QString &path, const QString &error)
{
    throw VTException(QStringLiteral("NSInvalidArgumentException"),
                      QStringLiteral("Unable to launch %1: %2")
                          .arg(path, error.isEmpty() ? QStringLiteral("unknown error") : error));
}

std::shared_ptr<ChildProcess> launch(const QString &path, const QStringList &arguments,
                                     ProcessOutput output)
{
    QString error;
    auto child = ProcessSpawner::current().start(programPath(path), arguments, output, &error);
    if (!child) {
        raiseLaunchFailure(path, error);
    }
    return child;
}

qint64 wholeSeconds(double timeout)
{
    if (!(timeout > 0)) {
        return 0; // also NaN
    }
    if (timeout >= static_cast<double>(std::numeric_limits<int>::max())) {
        return std::numeric_limits<int>::max();
    }
    return static_cast<qint64>(std::trunc(timeout));
}

void cancelWatchdog(const std::shared_ptr<bool> &flag)
{
    if (!flag) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(g_watchdogMutex);
        *flag = true;
    }
    g_watchdogWake.notify_all();
}

bool sameProcess(const std::weak_ptr<ChildProcess> &a, const std::shared_ptr<ChildProcess> &b)
{
    return b && !a.owner_before(b) && !b.owner_before(a);
}

} // namespace

std::shared_ptr<VTTask> VTTask::create()
{
    return std::shared_ptr<VTTask>(new VTTask());
}

VTTask::~VTTask() = default;

bool VTTask::isLaunchable(const QString &path)
{
    return checkExecutable(path);
}

// ---------------------------------------------------------------------------------------
// Class methods without a time limit

bool VTTask::runTask(const QString &path, const QStringList &arguments, TaskSlot *task)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (!isLaunchable(path)) {
            return false;
        }
        auto child = launch(path, arguments, ProcessOutput::Discard);
        storeTask(task, child, path);
        child->waitForFinished();
        return true;
    });
}

void VTTask::runTaskAndReturn(const QString &path, const QStringList &arguments)
{
    VTException::guard(VT_METHOD, [&] {
        if (!isLaunchable(path)) {
            return;
        }
        if (!ProcessSpawner::current().startDetached(programPath(path), arguments)) {
            raiseLaunchFailure(path, QString());
        }
    });
}

qint64 VTTask::terminationCodeFromTask(const QString &path, const QStringList &arguments,
                                       TaskSlot *task)
{
    // A launch that fails yields -1 as the failed check does: 0 would read as success.
    return VTException::guard(VT_METHOD, qint64(-1), [&]() -> qint64 {
        if (!isLaunchable(path)) {
            return -1;
        }
        auto child = launch(path, arguments, ProcessOutput::Discard);
        storeTask(task, child, path);
        if (child->isRunning()) {
            child->waitForFinished();
        }
        return child->terminationStatus();
    });
}

std::optional<QByteArray> VTTask::dataFromTask(const QString &path, const QStringList &arguments,
                                               TaskSlot *task)
{
    return VTException::guard(VT_METHOD, std::optional<QByteArray>(),
                              [&]() -> std::optional<QByteArray> {
                                  if (!isLaunchable(path)) {
                                      return std::nullopt;
                                  }
                                  // Both outputs to pipes, standard input an open, empty pipe.
                                  auto child = launch(path, arguments, ProcessOutput::Collect);
                                  storeTask(task, child, path);
                                  child->waitForFinished();
                                  QByteArray output = child->standardOutput();
                                  QByteArray error = child->standardError();
                                  // Standard error wins whenever the program wrote anything there.
                                  return error.isEmpty() ? output : error;
                              });
}

QString VTTask::stringFromTask(const QString &path, const QStringList &arguments,
                               VTStringEncoding encoding, TaskSlot *task)
{
    return VTException::guard(VT_METHOD, QStringLiteral(""), [&] {
        const std::optional<QByteArray> data = dataFromTask(path, arguments, task);
        return data ? decode(*data, encoding) : QStringLiteral("");
    });
}

QString VTTask::decode(const QByteArray &data, VTStringEncoding encoding)
{
    QString text;
    switch (encoding) {
    case VTStringEncoding::UTF8:
        text = QString::fromUtf8(data);
        break;
    case VTStringEncoding::Unicode: {
        // A byte order mark decides; without one the bytes are big-endian.
        const bool little = data.size() >= 2 && static_cast<uchar>(data[0]) == 0xFF &&
                            static_cast<uchar>(data[1]) == 0xFE;
        QStringDecoder decoder(little ? QStringConverter::Utf16LE : QStringConverter::Utf16BE);
        text = decoder.decode(data);
        break;
    }
    case VTStringEncoding::ASCII: // bytes above 127 are read leniently, as Latin-1
    case VTStringEncoding::ISOLatin1:
    default:
        text = QString::fromLatin1(data);
        break;
    }
    return text.isNull() ? QStringLiteral("") : text;
}

// ---------------------------------------------------------------------------------------
// Class methods with a time limit

void VTTask::runTask(const QString &path, const QStringList &arguments, double timeout)
{
    VTException::guard(VT_METHOD, [&] { create()->timedRunTask(path, arguments, timeout); });
}

qint64 VTTask::terminationCodeFromTask(const QString &path, const QStringList &arguments,
                                       double timeout)
{
    return VTException::guard(VT_METHOD, qint64(-1), [&] {
        return create()->timedTerminationCodeFromTask(path, arguments, timeout);
    });
}

std::optional<QByteArray> VTTask::dataFromTask(const QString &path, const QStringList &arguments,
                                               double timeout)
{
    return VTException::guard(VT_METHOD, std::optional<QByteArray>(), [&] {
        return create()->timedDataFromTask(path, arguments, timeout);
    });
}

QString VTTask::stringFromTask(const QString &path, const QStringList &arguments,
                               VTStringEncoding encoding, double timeout)
{
    return VTException::guard(VT_METHOD, QStringLiteral(""), [&] {
        const std::optional<QByteArray> data = dataFromTask(path, arguments, timeout);
        return data ? decode(*data, encoding) : QStringLiteral("");
    });
}

QString VTTask::stringFromTask(const QString &path, const QStringList &arguments, double timeout)
{
    return VTException::guard(VT_METHOD, QStringLiteral(""), [&] {
        return stringFromTask(path, arguments, VTStringEncoding::ASCII, timeout);
    });
}

// ---------------------------------------------------------------------------------------
// Runs with a watchdog

template <typename R, typename F>
R VTTask::runWithWatchdog(double timeout, F &&run)
{
    const qint64 seconds = wholeSeconds(timeout);
    auto cancelled = std::make_shared<bool>(false);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_watchdogCancelled = cancelled;
        m_theTask.reset();
    }
    // The watchdog keeps this instance alive until it ends.
    std::thread([self = shared_from_this(), seconds, cancelled] {
        t_watchdogFlag = cancelled;
        self->setupTimeout(seconds);
        t_watchdogFlag.reset();
    }).detach();

    // Whatever happens in the run, the process is forgotten and the watchdog cancelled.
    struct Finish
    {
        VTTask *task;
        std::shared_ptr<bool> cancelled;
        const SlotHook *previousHook;
        ~Finish()
        {
            t_slotHook = previousHook;
            TaskSlot released;
            {
                std::lock_guard<std::mutex> lock(task->m_mutex);
                released = std::move(task->m_theTask);
                task->m_theTask.reset();
            }
            cancelWatchdog(cancelled);
            // `released` ends here, outside the lock, on the thread that started it.
        }
    };
    const SlotHook hook{&m_theTask, &m_mutex, &m_asyncPath};
    Finish finish{this, cancelled, t_slotHook};
    t_slotHook = &hook;
    return std::forward<F>(run)(&m_theTask);
}

bool VTTask::timedRunTask(const QString &path, const QStringList &arguments, double timeout)
{
    return VTException::guard(VT_METHOD, false, [&] {
        return runWithWatchdog<bool>(
            timeout, [&](TaskSlot *slot) { return runTask(path, arguments, slot); });
    });
}

qint64 VTTask::timedTerminationCodeFromTask(const QString &path, const QStringList &arguments,
                                            double timeout)
{
    return VTException::guard(VT_METHOD, qint64(-1), [&] {
        return runWithWatchdog<qint64>(timeout, [&](TaskSlot *slot) {
            return terminationCodeFromTask(path, arguments, slot);
        });
    });
}

std::optional<QByteArray> VTTask::timedDataFromTask(const QString &path,
                                                    const QStringList &arguments, double timeout)
{
    return VTException::guard(VT_METHOD, std::optional<QByteArray>(), [&] {
        return runWithWatchdog<std::optional<QByteArray>>(
            timeout, [&](TaskSlot *slot) { return dataFromTask(path, arguments, slot); });
    });
}

void VTTask::setupTimeout(qint64 seconds)
{
    VTException::guard(VT_METHOD, [&] {
        // The flag of the run that started this thread; a direct call watches the current
        // run, or none.
        std::shared_ptr<bool> flag = t_watchdogFlag;
        if (!flag) {
            std::lock_guard<std::mutex> lock(m_mutex);
            flag = m_watchdogCancelled;
        }
        if (!flag) {
            flag = std::make_shared<bool>(false);
        }
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::seconds(std::max<qint64>(seconds, 0));
        bool wasCancelled = false;
        {
            std::unique_lock<std::mutex> lock(g_watchdogMutex);
            wasCancelled = g_watchdogWake.wait_until(lock, deadline, [&] { return *flag; });
        }
        // A cancelled run has cleared its process: the late `timeout` would find nothing.
        if (!wasCancelled) {
            timeout();
        }
    });
}

void VTTask::timeout()
{
    VTException::guard(VT_METHOD, [&] {
        std::weak_ptr<ChildProcess> target;
        QString path;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_theTask || !m_theTask->isRunning()) {
                return;
            }
            target = m_theTask;
            path = m_asyncPath;
            Console::log(QStringLiteral("Task timed out. Terminating..."));
            VTLog::appendLog(QStringLiteral("Task %@ timed out. Terminating..."), path);
            // Under the lock: the caller releases the process only after taking it.
            m_theTask->terminate();
        }
        // A program that ignores the termination signal is killed a little later.
        const auto deadline = std::chrono::steady_clock::now() + kKillGrace;
        for (;;) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (!sameProcess(target, m_theTask) || !m_theTask->isRunning()) {
                    return;
                }
                if (std::chrono::steady_clock::now() >= deadline) {
                    VTLog::appendLog(QStringLiteral("Task %@ did not terminate. Killing..."), path);
                    m_theTask->kill();
                    return;
                }
            }
            std::this_thread::sleep_for(kKillPoll);
        }
    });
}

// ---------------------------------------------------------------------------------------
// Streamed run

void VTTask::asyncDataFromTask(const QString &path, const QStringList &arguments, Delegate delegate,
                               const QVariant &object)
{
    VTException::guard(VT_METHOD, [&] {
        auto self = shared_from_this();
        Delegate previousDelegate;
        QVariant previousObject;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            previousDelegate = std::exchange(m_delegate, std::move(delegate));
            previousObject = std::exchange(m_object, object);
            m_asyncPath = path;
            m_asyncArguments = arguments;
        }
        // The process is created on the reading thread, which owns it; the thread keeps
        // this instance alive until it ends.
        std::thread([self] { self->launchAsyncTask(); }).detach();
    });
}

void VTTask::launchAsyncTask()
{
    const char *method = VT_METHOD;
    VTException::guard(VT_METHOD, [&] {
        QString path;
        QStringList arguments;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            path = m_asyncPath;
            arguments = m_asyncArguments;
        }
        std::shared_ptr<ChildProcess> child;
        if (!path.isEmpty()) {
            QString error;
            child = ProcessSpawner::current().start(programPath(path), arguments,
                                                    ProcessOutput::StreamStandardOutput, &error);
        }
        if (!child) {
            VTLog::appendLog(QStringLiteral("Unable to launch async task - no task set"));
            return;
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_theTask = child;
        }
        // This thread holds its own reference, so that terminateAsyncTask from another
        // thread never frees the process under a read.
        try {
            for (;;) {
                const QByteArray chunk = child->readStandardOutputChunk();
                if (chunk.isEmpty()) {
                    break;
                }
                asyncTaskReturnData(chunk);
            }
            asyncTaskReturnData(QByteArray());
        } catch (...) {
            VTException::logCurrentException(method);
            terminateAsyncTask();
        }
    });
}

void VTTask::asyncTaskReturnData(const QByteArray &data)
{
    const char *method = VT_METHOD;
    VTException::guard(VT_METHOD, [&] {
        Delegate delegate;
        QVariant object;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            delegate = m_delegate;
            object = m_object;
        }
        if (!data.isEmpty()) {
            if (delegate) {
                delegate(data, this, object);
            }
            return;
        }
        // End of output: the delegate hears of it, then the run ends in any case.
        if (delegate) {
            try {
                delegate(QByteArray(), this, object);
            } catch (...) {
                VTException::logCurrentException(method);
            }
        }
        terminateAsyncTask();
    });
}

void VTTask::terminateAsyncTask()
{
    VTException::guard(VT_METHOD, [&] {
        TaskSlot task;
        Delegate delegate;
        QVariant object;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            task = std::move(m_theTask);
            m_theTask.reset();
            delegate = std::move(m_delegate);
            m_delegate = nullptr;
            object = std::move(m_object);
            m_object = QVariant();
        }
        if (task) {
            task->terminate(); // normally it has already ended
        }
        // The delegate, the object and the process are released here, outside the lock.
    });
}
