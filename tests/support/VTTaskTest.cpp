#include "support/VTTask.h"

#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QByteArrayList>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <vector>

using namespace std::chrono_literals;

namespace {

// Every call of a streamed run's delegate, in order.
struct DelegateRecorder
{
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<QByteArray> pieces;
    std::vector<VTTask *> tasks;
    std::vector<QVariant> objects;
    int ends = 0;

    VTTask::Delegate delegate()
    {
        return [this](const QByteArray &data, VTTask *task, const QVariant &object) {
            std::lock_guard<std::mutex> lock(mutex);
            pieces.push_back(data);
            tasks.push_back(task);
            objects.push_back(object);
            ends += data.isEmpty() ? 1 : 0;
            changed.notify_all();
        };
    }
    size_t count()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return pieces.size();
    }
};

class VTTaskTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        identity->home = sandbox.home();
        VTLog::createNewLog("VTTaskTest");
    }

    QString script(const QString &name, const QString &body)
    {
        return TestFiles::writeScript(sandbox.file("bin/" + name), body);
    }

    static QString logText()
    {
        VTLog::finishWriting();
        return QString::fromUtf8(TestFiles::read(VTLog::currentLogPath()));
    }

    Sandbox sandbox;
    FakeIdentity::Scoped identity;
};

TEST_F(VTTaskTest, TerminationCodeIsTheExitStatusOrTheSignal)
{
    const std::pair<const char *, qint64> cases[] = {
        {"exit 0", 0}, {"exit 3", 3}, {"exit 200", 200}, {"kill -TERM $$\nsleep 5", SIGTERM}};
    for (const auto &[body, code] : cases) {
        VTTask::TaskSlot slot;
        EXPECT_EQ(VTTask::terminationCodeFromTask(script("code", body), {}, &slot), code) << body;
        ASSERT_TRUE(slot);
        EXPECT_GT(slot->processId(), 0);
        EXPECT_FALSE(slot->isRunning());
    }
    // runTask waits, and is true whatever the status.
    const QString marker = sandbox.file("ran");
    VTTask::TaskSlot slot;
    EXPECT_TRUE(
        VTTask::runTask(script("fails", "touch \"$1\"\necho noise >&2\nexit 7"), {marker}, &slot));
    EXPECT_TRUE(QFile::exists(marker));
    ASSERT_TRUE(slot);
    EXPECT_EQ(slot->terminationStatus(), 7);
}

// Standard error, when there is any, wins over standard output; standard input is open
// and empty (`cat` would hang on a terminal or an open pipe nobody closes).
TEST_F(VTTaskTest, CollectedOutputAndItsDecoding)
{
    const std::pair<const char *, const char *> cases[] = {
        {"printf ok", "ok"},
        {"echo ok\necho 'warning: careful' >&2\necho more", "warning: careful\n"},
        {"exit 0", ""},
        {"cat\necho done >&2", "done\n"},
    };
    for (const auto &[body, expected] : cases) {
        const QString path = script("out", body);
        VTTask::TaskSlot slot;
        EXPECT_EQ(VTTask::dataFromTask(path, {}, &slot), QByteArray(expected)) << body;
        EXPECT_TRUE(slot);
        const QString text = VTTask::stringFromTask(path, {}, VTStringEncoding::UTF8, &slot);
        EXPECT_EQ(text, QString::fromUtf8(expected)) << body;
        EXPECT_FALSE(text.isNull());
    }

    // More than a pipe holds on each stream, written alternately, does not block.
    const auto data = VTTask::dataFromTask(
        script("chatty", "i=0\nwhile [ $i -lt 2000 ]; do\n"
                         "  echo 'out line of some length .................................'\n"
                         "  echo 'err line of some length .................................' >&2\n"
                         "  i=$((i+1))\ndone"),
        {});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->count('\n'), 2000);
    EXPECT_TRUE(data->startsWith("err line"));

    // ASCII is lenient: every byte is a character; UTF-16 is big-endian without a mark.
    const QString bytes = script("bytes", "printf '\\377\\376ok\\200'");
    EXPECT_EQ(VTTask::stringFromTask(bytes, {}), QString::fromLatin1("\xff\xfeok\x80"));
    const std::tuple<QByteArray, VTStringEncoding, QString> decodings[] = {
        {"caf\xc3\xa9", VTStringEncoding::UTF8, "caf\u00e9"},
        {"\xe9t\xe9", VTStringEncoding::ISOLatin1, "\u00e9t\u00e9"},
        {QByteArray("\xff\xfeh\0i\0", 6), VTStringEncoding::Unicode, "hi"},
        {QByteArray("\xfe\xff\0h\0i", 6), VTStringEncoding::Unicode, "hi"},
        {QByteArray("\0h\0i", 4), VTStringEncoding::Unicode, "hi"},
    };
    for (const auto &[in, encoding, out] : decodings) {
        EXPECT_EQ(VTTask::decode(in, encoding), out) << in.toHex().toStdString();
    }
    EXPECT_FALSE(VTTask::decode(QByteArray(), VTStringEncoding::UTF8).isNull());
}

// Arguments reach the program as given, waited for or not: no shell in between.
TEST_F(VTTaskTest, ArgumentsArriveUnchanged)
{
    const QString out = sandbox.file("args.bin");
    const QString path =
        script("args", "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$VT_ARGS_OUT.tmp\"\n"
                       "mv \"$VT_ARGS_OUT.tmp\" \"$VT_ARGS_OUT\"");
    sandbox.setEnv("VT_ARGS_OUT", out);
    // Not ASCII as well: Latin-1 bytes read as characters, and other scripts.
    const QStringList arguments = {"it's \"quoted\"",
                                   "line one\nline two",
                                   "",
                                   "`id` $(id) ; | & > < \\back\\slash $HOME *",
                                   QString::fromLatin1("\xff\xfe\x80"),
                                   "\u65e5\u672c \U0001F600"};
    QByteArray expected;
    for (const QString &argument : arguments) {
        expected += QFile::encodeName(argument) + '\0';
    }
    // The runs that wait share one launch; the one that does not has its own.
    const std::function<void()> runs[] = {
        [&] { EXPECT_EQ(VTTask::terminationCodeFromTask(path, arguments, 5.0), 0); },
        [&] { VTTask::runTaskAndReturn(path, arguments); },
    };
    for (const auto &run : runs) {
        QFile::remove(out);
        run();
        EXPECT_TRUE(Poll::until([&] { return QFile::exists(out); }));
        EXPECT_EQ(TestFiles::read(out), expected);
    }
}

// Packages (folders with a package extension), missing programs and files without the
// execute permission are refused before anything starts, by every kind of run, with the
// failure value of each. A plain folder passes the check and fails to launch.
TEST_F(VTTaskTest, WhatCannotRunIsRefusedWithTheFailureValue)
{
    const QString bundle =
        TestFiles::makeBundle(sandbox.mkdir("Applications"), "Tool", PlistDict());
    ASSERT_TRUE(QFileInfo(bundle).isExecutable());
    QStringList refused{bundle, sandbox.file("bin/missing"), sandbox.file("bin/plain")};
    TestFiles::write(refused.last(), "#!/bin/sh\nexit 0\n");
    refused.append(sandbox.mkdir("pkgs/Thing.framework"));
    const QString folder = sandbox.mkdir("just-a-folder");
    for (const QString &path : refused + QStringList{folder}) {
        SCOPED_TRACE(path.toStdString());
        TestFiles::CaptureStderr capture;
        EXPECT_FALSE(VTTask::runTask(path, {}));
        EXPECT_EQ(VTTask::terminationCodeFromTask(path, {}), -1);
        EXPECT_EQ(VTTask::dataFromTask(path, {}), std::nullopt);
        const QString text = VTTask::stringFromTask(path, {});
        EXPECT_EQ(text, "");
        EXPECT_FALSE(text.isNull());
        EXPECT_EQ(VTTask::terminationCodeFromTask(path, {}, 2.0), -1);
        EXPECT_EQ(VTTask::dataFromTask(path, {}, 2.0), std::nullopt);
        VTTask::runTaskAndReturn(path, {});
        EXPECT_FALSE(VTTask::create()->timedRunTask(path, {}, 3.0));
        const QString console = capture.finish();
        EXPECT_FALSE(console.contains("timed out"));
        if (path != folder) {
            EXPECT_EQ(console.count(QStringLiteral("Error: %1 is not executable").arg(path)), 8)
                << console.toStdString();
            continue;
        }
        EXPECT_FALSE(console.contains("is not executable"));
        for (const char *function :
             {"runTask", "terminationCodeFromTask", "dataFromTask", "runTaskAndReturn"}) {
            EXPECT_TRUE(console.contains(QStringLiteral("Exception in VTTask::%1. ").arg(function)))
                << function;
        }
        EXPECT_EQ(console.count(QStringLiteral(
                      "Exception in VTTask::runTask. NSInvalidArgumentException - ")),
                  2)
            << console.toStdString();
    }
    EXPECT_EQ(logText().count(QStringLiteral("Error: %1 is not executable").arg(bundle)), 8);
    EXPECT_TRUE(logText().contains("Exception in VTTask::runTask. "));
}

TEST_F(VTTaskTest, TimeLimitIsWholeSecondsAndTerminates)
{
    const QString marker = sandbox.file("survived");
    const QString path = script("sleeper", "exec sleep 30");
    const QString marking = script("marking", "sleep 4\ntouch \"$1\"");
    TestFiles::CaptureStderr capture;
    const auto started = std::chrono::steady_clock::now();
    const qint64 status = VTTask::terminationCodeFromTask(path, {}, 2.9);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    const QString console = capture.finish();

    EXPECT_EQ(status, SIGTERM); // ended by the termination signal
    EXPECT_GE(elapsed, 1900ms); // 2 seconds, not 3: checked loosely below
    EXPECT_LT(elapsed, 2900ms + 5000ms);
    EXPECT_TRUE(console.contains("Task timed out. Terminating..."));
    EXPECT_TRUE(logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(path)));

    // The run without a result: it comes back and the program never finished its work.
    VTTask::runTask(marking, {marker}, 1.0);
    EXPECT_FALSE(QFile::exists(marker));
    // The run that does not wait, with no limit: the program finishes later.
    VTTask::runTaskAndReturn(marking, {marker});
    EXPECT_FALSE(QFile::exists(marker));
    EXPECT_TRUE(Poll::until([&] { return QFile::exists(marker); }, 10000ms));
    // Collected output is what came before the limit.
    EXPECT_EQ(VTTask::stringFromTask(script("partial", "echo started\nexec sleep 30"), {}, 1.5),
              "started\n");

    // A watchdog without a run and a timeout without a process do nothing to a later run.
    auto idle = VTTask::create();
    idle->timeout();
    idle->setupTimeout(0);
    EXPECT_EQ(idle->timedTerminationCodeFromTask(script("fast", "exit 4"), {}, 1.9), 4);

    // A program ignoring the termination signal is still ended.
    const QString stubborn = script("stubborn", "trap '' TERM\nexec sleep 30");
    TestFiles::CaptureStderr quiet;
    EXPECT_EQ(VTTask::terminationCodeFromTask(stubborn, {}, 1.0), SIGKILL);
    quiet.finish();
    EXPECT_TRUE(
        logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(stubborn)));
}

// The delegate gets each piece as it comes, with the instance and the object, then once
// empty: a program without output only the empty call, one that cannot start none; a run
// ended from another thread tells it nothing more.
TEST_F(VTTaskTest, StreamedRunsCallTheDelegatePerPieceThenOnceEmpty)
{
    const QString talker = script(
        "stream", "printf '%s' \"$1\"\nsleep 0.3\nprintf '%s' \"$2\"\nsleep 0.3\nprintf three");
    // The program, all it wrote, its first piece and the empty calls.
    const std::tuple<QString, QByteArray, QByteArray, int> cases[] = {
        {talker, "o*e$HOME\nthree", "o*e", 1},
        {script("silent", "echo hidden >&2\nexit 0"), "", "", 1},
        {sandbox.file("bin/nothing"), "", "", 0},
    };
    for (const auto &[path, all, first, ends] : cases) {
        DelegateRecorder recorder;
        auto task = VTTask::create();
        const VTTask *raw = task.get();
        task->asyncDataFromTask(path, {"o*e", "$HOME\n"}, recorder.delegate(), QVariant("object"));
        const std::weak_ptr<VTTask> weak = task;
        task.reset();
        EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 5000ms));
        std::lock_guard<std::mutex> lock(recorder.mutex);
        EXPECT_EQ(recorder.pieces.empty() ? QByteArray() : recorder.pieces.front(), first);
        EXPECT_EQ(QByteArrayList(recorder.pieces.begin(), recorder.pieces.end()).join(), all);
        EXPECT_EQ(recorder.ends, ends);
        EXPECT_TRUE(recorder.pieces.empty() || recorder.pieces.back().isEmpty());
        for (size_t i = 0; i < recorder.tasks.size(); ++i) {
            EXPECT_EQ(recorder.tasks[i], raw);
            EXPECT_EQ(recorder.objects[i].toString(), "object");
        }
    }
    EXPECT_TRUE(logText().contains("Unable to launch async task - no task set"));

    DelegateRecorder recorder;
    auto task = VTTask::create();
    task->asyncDataFromTask(script("endless", "while true; do echo tick; sleep 0.1; done"), {},
                            recorder.delegate());
    ASSERT_TRUE(Poll::until([&] { return recorder.count() > 0; }));
    task->terminateAsyncTask(); // from another thread than the reader
    std::weak_ptr<VTTask> weak = task;
    task.reset();
    EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 5000ms));
    std::lock_guard<std::mutex> lock(recorder.mutex);
    EXPECT_EQ(recorder.ends, 0); // the delegate was dropped before the end
}

} // namespace
