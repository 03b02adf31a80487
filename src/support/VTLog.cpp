#include "VTLog.h"

#include "VTLocalPaths.h"
#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

// The log is rotated once a file has taken this many bytes of messages.
constexpr quint64 kMaxLogBytes = 499999;
// Messages up to this length are written before appendLog returns when the queue is idle.
constexpr int kShortMessage = 99;

QString dateDescription(const QDateTime &date)
{
    const int offset = date.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return date.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss ")) +
           (offset < 0 ? QLatin1Char('-') : QLatin1Char('+')) +
           QStringLiteral("%1%2")
               .arg(minutes / 60, 2, 10, QLatin1Char('0'))
               .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

// Processes that start at the same moment (a client runs several commands at once) rotate
// the same files: the rotation and the new header are made under a lock on the folder, so
// that none moves or replaces a file another has just made and is writing to. A lock held
// for long by someone else is given up on after two seconds: nothing waits forever.
int lockFolder(const QString &folder)
{
    const int fd = ::open(FileNames::encode(folder).constData(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return fd;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            break;
        }
        ::usleep(10000);
    }
    ::close(fd);
    return -1;
}

// A generation that is not there, or that another process moved away meanwhile, is no
// failure.
bool moveGeneration(const QString &from, const QString &to)
{
    return ::rename(FileNames::encode(from).constData(), FileNames::encode(to).constData()) == 0 ||
           errno == ENOENT;
}

} // namespace

VTLog::VTLog()
{
    m_writer = std::thread([this] { writerLoop(); });
    std::atexit([] { VTLog::finishWriting(); });
}

VTLog &VTLog::sharedController()
{
    // Never destroyed: messages may still be logged while the process shuts down.
    static VTLog *const instance = new VTLog();
    return *instance;
}

void VTLog::createNewLog()
{
    createNewLog(std::nullopt);
}

void VTLog::createNewLog(const std::optional<QString> &name)
{
    sharedController().startNewLog(name);
}

void VTLog::finishWriting()
{
    sharedController().waitUntilWritten();
}

bool VTLog::onWriterThread() const
{
    return std::this_thread::get_id() == m_writer.get_id();
}

void VTLog::waitUntilWritten()
{
    // The writer waiting for itself would never return; a rotation started from a write
    // goes on at once and its messages are put first in the queue.
    if (onWriterThread()) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_idle.wait(lock, [this] { return m_queue.empty() && !m_busy; });
}

void VTLog::queueMessage(const QString &text)
{
    const QString trimmed = text.trimmed();
    quint64 waiting = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bytesInQueue += static_cast<quint64>(trimmed.size());
        waiting = m_bytesInQueue;
        if (onWriterThread()) {
            m_queue.push_front(trimmed);
        } else {
            m_queue.push_back(trimmed);
        }
    }
    m_wake.notify_one();
    if (!trimmed.isEmpty() && trimmed.size() <= kShortMessage && waiting <= kShortMessage) {
        waitUntilWritten();
    }
}

void VTLog::logAndPrint(const QString &text)
{
    queueMessage(VTFormat::string(text));
    Console::log(text);
}

void VTLog::writerLoop()
{
    for (;;) {
        QString text;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return !m_queue.empty(); });
            text = std::move(m_queue.front());
            m_queue.pop_front();
            m_busy = true;
        }
        appendLogOnThread(text);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_busy = false;
        }
        m_idle.notify_all();
    }
}

QString VTLog::appName() const
{
    std::lock_guard<std::recursive_mutex> lock(m_fileMutex);
    if (m_appName) {
        return *m_appName;
    }
    if (auto main = Bundle::mainBundle()) {
        return QFileInfo(main->executablePath()).completeBaseName();
    }
    return Console::processName();
}

void VTLog::setAppName(const std::optional<QString> &name)
{
    std::lock_guard<std::recursive_mutex> lock(m_fileMutex);
    m_appName = name;
}

quint64 VTLog::bytesWritten() const
{
    std::lock_guard<std::recursive_mutex> lock(m_fileMutex);
    return m_bytesWritten;
}

quint64 VTLog::bytesInQueue() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_bytesInQueue;
}

bool VTLog::loggingDisabled() const
{
    std::lock_guard<std::recursive_mutex> lock(m_fileMutex);
    return m_loggingDisabled;
}

QString VTLog::logFolder() const
{
    const auto library = VTLocalPaths::libraryDirectory(true);
    return library ? *library + QStringLiteral("/Logs/Vantreel") : QString();
}

QString VTLog::logFile() const
{
    // As root the current file lives in the local Library while the folder that is created
    // and rotated stays the console user's: deliberate, and kept so.
    const auto library = VTLocalPaths::libraryDirectory(!Identity::current().isRoot());
    if (!library) {
        return QString();
    }
    return *library + QStringLiteral("/Logs/Vantreel/") + appName() + QStringLiteral(".1.log");
}

QString VTLog::currentLogPath()
{
    return sharedController().logFile();
}

QString VTLog::header() const
{
    QString text = VTFormat::string(QStringLiteral("Log started: %@\n"),
                                    dateDescription(Clock::current().now()));
    if (auto main = Bundle::mainBundle()) {
        const PlistValue version =
            main->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"));
        if (version.isValid()) {
            text += VTFormat::string(QStringLiteral("Version: %@\n"), version);
        }
        text += VTFormat::string(QStringLiteral("Path: %@\n"), main->executablePath());
    }
    struct utsname system
    {};
    uname(&system);
    const double ram = static_cast<double>(sysconf(_SC_PHYS_PAGES)) *
                       static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0 / 1024.0 / 1024.0;
    text += VTFormat::string(QStringLiteral("System: Linux %@, %i CPU(s), %0.2f GB RAM\n"),
                             QString::fromLocal8Bit(system.release),
                             static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)), ram);
    text += sizeof(void *) == 8 ? QStringLiteral("Running in 64-bit mode\n")
                                : QStringLiteral("Running in 32-bit mode\n");
    return text;
}

void VTLog::startNewLog(const std::optional<QString> &name)
{
    waitUntilWritten();
    std::lock_guard<std::recursive_mutex> lock(m_fileMutex);
    if (m_fileHandle >= 0) {
        ::close(m_fileHandle);
        m_fileHandle = -1;
    }

    const auto prefs = VTLocalPaths::prefsDirectory(true);
    if (prefs) {
        const auto global =
            PropertyList::readDictionary(*prefs + QStringLiteral("/com.vantreel.global.plist"));
        if (global && global->value(QStringLiteral("disable-logging")).isSwitchOn()) {
            Console::log(QStringLiteral("Logging is disabled"));
            m_loggingDisabled = true;
            return;
        }
    }

    if (name && !m_appName) {
        m_appName = name;
    }
    m_bytesWritten = 0;

    const QString folder = logFolder();
    const QString file = logFile();
    const QString app = appName();
    if (folder.isEmpty() || !PosixFile::makeFolders(folder)) {
        Console::log(VTFormat::string(QStringLiteral("Unable to create folder %@."),
                                      folder.isEmpty() ? QStringLiteral("(null)") : folder));
        return;
    }

    const int folderLock = lockFolder(folder);
    const auto unlockFolder = qScopeGuard([folderLock] {
        if (folderLock >= 0) {
            ::close(folderLock);
        }
    });
    if (!file.isEmpty() && FileNames::exists(file)) {
        const auto generation = [&](int i) {
            return folder + VTFormat::string(QStringLiteral("/%@.%i.log"), app, i);
        };
        ::unlink(FileNames::encode(generation(5)).constData());
        for (int i = 4; i >= 1; --i) {
            if (!moveGeneration(generation(i), generation(i + 1))) {
                Console::log(VTFormat::string(QStringLiteral("Unable to move file %@ to %@"),
                                              generation(i), generation(i + 1)));
                return;
            }
        }
    }

    // The folder is locked and the old file moved aside: a plain create is safe here.
    const QByteArray header = FileNames::encode(this->header());
    const int created = file.isEmpty() ? -1 : PosixFile::createFile(file, O_WRONLY | O_TRUNC, 0666);
    const bool written = created >= 0 && PosixFile::writeAll(created, header);
    const int reason = errno;
    if (created >= 0) {
        ::close(created);
    }
    if (!written) {
        Console::log(VTFormat::string(QStringLiteral("Unable to create log file %@ - %@"),
                                      file.isEmpty() ? QStringLiteral("(null)") : file,
                                      QString::fromLocal8Bit(strerror(reason))));
        return;
    }

    // Appending: other processes may write lines to the same file at the same time.
    m_fileHandle =
        ::open(FileNames::encode(file).constData(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
    if (m_fileHandle >= 0) {
        ::lseek(m_fileHandle, 0, SEEK_END);
        // As root, the log in a user's folder stays that user's.
        const int dir = PosixFile::openFolder(folder, false);
        if (dir >= 0) {
            PosixFile::handToFolderOwner(dir, m_fileHandle);
            ::close(dir);
        }
    }
}

void VTLog::appendLogOnThread(const QString &text)
{
    std::unique_lock<std::recursive_mutex> lock(m_fileMutex);
    if (m_loggingDisabled) {
        return;
    }
    bool written = false;
    if (m_fileHandle < 0) {
        const QString file = logFile();
        if (!file.isEmpty()) {
            m_fileHandle = ::open(FileNames::encode(file).constData(),
                                  O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
        }
        if (m_fileHandle < 0) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to log the following information: %@"), text));
            Console::log(QStringLiteral("Unable to open log for output"));
        }
    }
    if (m_fileHandle >= 0) {
        ::lseek(m_fileHandle, 0, SEEK_END);
        // Paths in the line are the bytes they are, as on the console.
        const QByteArray line = FileNames::encode(
            VTFormat::string(QStringLiteral("%@ - %@\n"), dateDescription(Clock::current().now()),
                             Console::singleLine(text)));
        if (PosixFile::writeAll(m_fileHandle, line)) {
            m_bytesWritten += static_cast<quint64>(line.size());
            written = true;
        } else {
            Console::log(VTFormat::string(QStringLiteral("Exception writing to log: %@"),
                                          QString::fromLocal8Bit(strerror(errno))));
        }
    }
    if (written && m_bytesWritten > kMaxLogBytes) {
        startNewLog(m_appName);
        lock.unlock();
        queueMessage(QStringLiteral("Log truncated at 500KB"));
    }
    std::lock_guard<std::mutex> queueLock(m_mutex);
    m_bytesInQueue -= std::min<quint64>(m_bytesInQueue, static_cast<quint64>(text.size()));
}

void VTLog::resetForTesting()
{
    VTLog &log = sharedController();
    log.waitUntilWritten();
    std::lock_guard<std::recursive_mutex> lock(log.m_fileMutex);
    if (log.m_fileHandle >= 0) {
        ::close(log.m_fileHandle);
        log.m_fileHandle = -1;
    }
    log.m_appName.reset();
    log.m_bytesWritten = 0;
    log.m_loggingDisabled = false;
    std::lock_guard<std::mutex> queueLock(log.m_mutex);
    log.m_bytesInQueue = 0;
}
