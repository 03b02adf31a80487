// PosixSpawner: what a child started with its output discarded finds, whatever the
// parent's own signal state, and a program that cannot be started.
#include "platform/PosixSpawner.h"

#include <QFile>
#include <QTemporaryDir>

#include <csignal>

#include <sys/wait.h>

#include <gtest/gtest.h>

namespace {

void onSignal(int) {}

} // namespace

TEST(PosixSpawnerTest, ChildGetsNullStreamsAnEmptyMaskAndNoHandlerOfTheParents)
{
    QTemporaryDir dir;
    const QString report = dir.filePath(QStringLiteral("report"));
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGUSR1, onSignal);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);

    // The shell reports its own streams; cp copies its own status, as the spawner left it.
    PosixSpawner spawner;
    QString error;
    const auto shell = spawner.start(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"),
         QStringLiteral(
             "s=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); echo \"$s\" >\"$0\""),
         report + QStringLiteral(".streams")},
        ProcessOutput::Discard, &error);
    const auto copy =
        spawner.start(QStringLiteral("/bin/cp"), {QStringLiteral("/proc/self/status"), report},
                      ProcessOutput::Discard, &error);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    std::signal(SIGUSR1, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);
    ASSERT_TRUE(shell && copy) << error.toStdString();
    shell->waitForFinished();
    copy->waitForFinished();
    QFile streams(report + QStringLiteral(".streams"));
    ASSERT_TRUE(streams.open(QIODevice::ReadOnly));
    EXPECT_EQ(streams.readAll(), "/dev/null\n/dev/null\n/dev/null\n");
    QFile status(report);
    ASSERT_TRUE(status.open(QIODevice::ReadOnly));
    const QByteArray text = status.readAll();
    const auto mask = [&text](const char *name) {
        const qsizetype at = text.indexOf(name);
        return at < 0 ? ~0ULL : text.mid(at + 8, 16).toULongLong(nullptr, 16);
    };
    EXPECT_EQ(mask("SigBlk:\t"), 0ULL);
    EXPECT_FALSE(mask("SigIgn:\t") & (1ULL << (SIGPIPE - 1)));
}

TEST(PosixSpawnerTest, AProgramThatCannotRunIsReportedAndLeavesNoChild)
{
    PosixSpawner spawner;
    for (const char *program : {"/", "/nonexistent/program"}) {
        QString error;
        EXPECT_FALSE(
            spawner.start(QString::fromLatin1(program), {}, ProcessOutput::Discard, &error));
        EXPECT_FALSE(error.isEmpty()) << program;
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}
