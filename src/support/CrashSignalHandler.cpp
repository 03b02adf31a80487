#include "CrashSignalHandler.h"

#include "platform/FileNames.h"
#include "platform/PosixFile.h"

#include <QByteArray>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int kMaxFrames = 128;

// Prepared at install time, read by the handler.
char g_pathPrefix[4096]; // FOLDER/NAME_
char g_pathSuffix[512];  // _HOST.crash
char g_header[8192];     // the lines that do not change
int g_utcOffset = 0;
// The crash log folder, held open so that the handler never looks its path up again, and
// how much of the path prefix names it.
int g_folder = -1;
size_t g_folderLength = 0;

alignas(16) char g_alternateStack[64 * 1024];

// 0: no crash yet, 1: a log is being written, 2: written.
std::atomic<int> g_state{0};

// Appends to a fixed buffer; what does not fit is cut off.
class Text
{
public:
    Text(char *buffer, size_t size) : m_buffer(buffer), m_size(size) {}

    Text &add(const char *s)
    {
        while (*s && m_length + 1 < m_size) {
            m_buffer[m_length++] = *s++;
        }
        m_buffer[m_length] = '\0';
        if (*s) {
            m_overflow = true;
        }
        return *this;
    }

    Text &number(unsigned long long value, int width = 0, int base = 10)
    {
        char digits[32];
        int n = 0;
        do {
            digits[n++] = "0123456789abcdef"[value % static_cast<unsigned>(base)];
            value /= static_cast<unsigned>(base);
        } while (value != 0 && n < 32);
        while (n < width && n < 32) {
            digits[n++] = '0';
        }
        char out[33];
        for (int i = 0; i < n; ++i) {
            out[i] = digits[n - 1 - i];
        }
        out[n] = '\0';
        return add(out);
    }

    size_t length() const { return m_length; }
    bool overflow() const { return m_overflow; }

private:
    char *m_buffer;
    size_t m_size;
    size_t m_length = 0;
    bool m_overflow = false;
};

bool copyText(char *target, size_t size, const QByteArray &text)
{
    if (static_cast<size_t>(text.size()) + 1 > size) {
        return false;
    }
    std::memcpy(target, text.constData(), static_cast<size_t>(text.size()));
    target[text.size()] = '\0';
    return true;
}

void writeAll(int fd, const char *data, size_t length)
{
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
}

const char *signalName(int sig)
{
    switch (sig) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    default:
        return "signal";
    }
}

void addDate(Text &text, const CrashSignalHandler::CivilTime &t, const char *dateTimeSeparator,
             const char *timeSeparator)
{
    text.number(static_cast<unsigned long long>(t.year), 4)
        .add("-")
        .number(static_cast<unsigned long long>(t.month), 2)
        .add("-")
        .number(static_cast<unsigned long long>(t.day), 2)
        .add(dateTimeSeparator)
        .number(static_cast<unsigned long long>(t.hour), 2)
        .add(timeSeparator)
        .number(static_cast<unsigned long long>(t.minute), 2)
        .add(timeSeparator)
        .number(static_cast<unsigned long long>(t.second), 2);
}

void writeCrashLog(int sig, const siginfo_t *info)
{
    struct timespec now
    {};
    clock_gettime(CLOCK_REALTIME, &now);
    char path[sizeof g_pathPrefix + sizeof g_pathSuffix + 32];
    if (CrashSignalHandler::crashLogPath(path, sizeof path, now.tv_sec) == 0) {
        return;
    }
    // A new file only: nothing that stands at that name, a planted link above all, is
    // followed or overwritten. As root the log is made for the folder's owner.
    const int fd = g_folder >= 0
                       ? ::openat(g_folder, path + g_folderLength,
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644)
                       : ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    if (g_folder >= 0) {
        PosixFile::handToFolderOwner(g_folder, fd);
    }
    writeAll(fd, g_header, std::strlen(g_header));

    char line[512];
    Text text(line, sizeof line);
    text.add("Process ID:      ").number(static_cast<unsigned long long>(::getpid())).add("\n");
    text.add("Date/Time:       ");
    addDate(text, CrashSignalHandler::civilTime(now.tv_sec, g_utcOffset), " ", ":");
    const int offsetMinutes = (g_utcOffset < 0 ? -g_utcOffset : g_utcOffset) / 60;
    text.add(g_utcOffset < 0 ? " -" : " +")
        .number(static_cast<unsigned long long>(offsetMinutes / 60), 2)
        .number(static_cast<unsigned long long>(offsetMinutes % 60), 2)
        .add("\n");
    text.add("Exception Type:  ").add(signalName(sig)).add(" (signal ");
    text.number(static_cast<unsigned long long>(sig)).add(")\n");
    // Only a fault the kernel raised has an address; a sent signal's fields are the sender's.
    if (info && info->si_code > 0 && sig != SIGABRT) {
        text.add("Fault Address:   0x")
            .number(reinterpret_cast<std::uintptr_t>(info->si_addr), 0, 16)
            .add("\n");
    }
    text.add("\nBacktrace:\n");
    writeAll(fd, line, text.length());

    void *frames[kMaxFrames];
    const int count = backtrace(frames, kMaxFrames);
    backtrace_symbols_fd(frames, count, fd);
    ::close(fd);
}

void handleFatalSignal(int sig, siginfo_t *info, void *)
{
    const int saved = errno;
    int expected = 0;
    if (g_state.compare_exchange_strong(expected, 1)) {
        writeCrashLog(sig, info);
        g_state.store(2);
    } else {
        // Another thread is writing the log: give it time to finish before dying.
        for (int i = 0; i < 200 && g_state.load() == 1; ++i) {
            const struct timespec pause
            {
                0, 10 * 1000 * 1000
            };
            nanosleep(&pause, nullptr);
        }
    }
    // Die of the same signal: with the default action back, the re-raised signal ends the
    // process as soon as the handler returns.
    struct sigaction fallback
    {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(sig, &fallback, nullptr);
    raise(sig);
    errno = saved;
}

} // namespace

CrashSignalHandler::CivilTime CrashSignalHandler::civilTime(long long seconds, int utcOffsetSeconds)
{
    const long long local = seconds + utcOffsetSeconds;
    long long days = local / 86400;
    long long rest = local % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Days to year, month and day in the proleptic Gregorian calendar (eras of 400 years).
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const long long dayOfEra = days - era * 146097;
    const long long yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    const long long year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    return CivilTime{year,
                     month,
                     day,
                     static_cast<int>(rest / 3600),
                     static_cast<int>(rest % 3600 / 60),
                     static_cast<int>(rest % 60)};
}

size_t CrashSignalHandler::crashLogPath(char *buffer, size_t size, time_t when)
{
    Text text(buffer, size);
    text.add(g_pathPrefix);
    addDate(text, civilTime(when, g_utcOffset), "-", "");
    text.add(g_pathSuffix);
    return text.overflow() ? 0 : text.length();
}

bool CrashSignalHandler::install(const QString &folder, const QString &appName, const QString &host,
                                 int utcOffsetSeconds)
{
    struct utsname system
    {};
    uname(&system);
    const QString executable = FileNames::canonicalPath(QStringLiteral("/proc/self/exe"));
    const QByteArray header = "Process:         " + appName.toUtf8() +
                              "\nPath:            " + FileNames::encode(executable) +
                              "\nOS Version:      " + QByteArray(system.sysname) + ' ' +
                              QByteArray(system.release) + '\n';
    if (!copyText(g_pathPrefix, sizeof g_pathPrefix,
                  FileNames::encode(folder + QLatin1Char('/') + appName + QLatin1Char('_'))) ||
        !copyText(g_pathSuffix, sizeof g_pathSuffix,
                  FileNames::encode(QLatin1Char('_') + host + QStringLiteral(".crash"))) ||
        !copyText(g_header, sizeof g_header, header)) {
        return false;
    }
    g_utcOffset = utcOffsetSeconds;
    if (g_folder >= 0) {
        ::close(g_folder);
    }
    g_folder = PosixFile::openFolder(folder, false);
    g_folderLength = static_cast<size_t>(FileNames::encode(folder + QLatin1Char('/')).size());

    // The first backtrace loads the unwinder; in the handler it must not have to.
    void *frames[2];
    backtrace(frames, 2);

    // The alternate stack serves the installing thread (the main thread), where a runaway
    // recursion would otherwise leave the handler no stack to run on.
    stack_t stack{};
    stack.ss_sp = g_alternateStack;
    stack.ss_size = sizeof g_alternateStack;
    stack.ss_flags = 0;
    sigaltstack(&stack, nullptr);

    struct sigaction action
    {};
    action.sa_sigaction = handleFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int sig : kSignals) {
        sigaddset(&action.sa_mask, sig);
    }
    for (const int sig : kSignals) {
        sigaction(sig, &action, nullptr);
    }
    return true;
}
