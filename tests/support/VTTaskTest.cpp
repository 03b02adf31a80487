#include "support/VTTask.h"

#include "platform/ProcessSpawner.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>
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
            if (data.isEmpty()) {
                ++ends;
            }
            changed.notify_all();
        };
    }

    bool waitForEnd(std::chrono::milliseconds limit = 5000ms)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [this] { return ends > 0; });
    }
};

// A spawner that records what it is asked to start and answers with canned processes.
class RecordingSpawner : public ProcessSpawner
{
public:
    struct Call
    {
        QString program;
        QStringList arguments;
        ProcessOutput output;
        bool detached = false;
    };

    class FakeChild : public ChildProcess
    {
    public:
        qint64 processId() const override { return 4242; }
        void waitForFinished() override { running = false; }
        QByteArray readStandardOutputChunk() override
        {
            if (chunks.empty()) {
                running = false;
                return QByteArray();
            }
            QByteArray chunk = chunks.front();
            chunks.erase(chunks.begin());
            return chunk;
        }
        QByteArray standardOutput() override { return out; }
        QByteArray standardError() override { return err; }
        int terminationStatus() const override { return status; }
        bool isRunning() const override { return running; }
        void terminate() override { ++terminates; }
        void kill() override {}

        std::atomic<bool> running{true};
        std::vector<QByteArray> chunks;
        QByteArray out = "out";
        QByteArray err;
        int status = 5;
        std::atomic<int> terminates{0};
    };

    std::shared_ptr<ChildProcess> start(const QString &program, const QStringList &arguments,
                                        ProcessOutput output, QString *error) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back({program, arguments, output, false});
        if (fail) {
            if (error) {
                *error = QStringLiteral("refused by the test");
            }
            return nullptr;
        }
        auto child = std::make_shared<FakeChild>();
        child->chunks = chunks;
        children.push_back(child);
        return child;
    }

    bool startDetached(const QString &program, const QStringList &arguments) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back({program, arguments, ProcessOutput::Discard, true});
        return !fail;
    }

    std::mutex mutex;
    std::vector<Call> calls;
    std::vector<std::shared_ptr<FakeChild>> children;
    std::vector<QByteArray> chunks;
    bool fail = false;
};

class VTTaskTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        identity->home = sandbox.home();
        identity->homes.insert(QStringLiteral("anna"), sandbox.home());
        VTLog::createNewLog(QStringLiteral("VTTaskTest"));
    }
    void TearDown() override { ProcessSpawner::setCurrent(nullptr); }

    QString script(const QString &name, const QString &body)
    {
        return TestFiles::writeScript(sandbox.file(QStringLiteral("bin/") + name), body);
    }

    static QString logText()
    {
        VTLog::finishWriting();
        return QString::fromUtf8(TestFiles::read(VTLog::currentLogPath()));
    }

    std::shared_ptr<RecordingSpawner> installRecorder()
    {
        auto recorder = std::make_shared<RecordingSpawner>();
        ProcessSpawner::setCurrent(recorder);
        return recorder;
    }

    Sandbox sandbox;
    FakeIdentity::Scoped identity;
};

// ---------------------------------------------------------------------------------------
// Exit statuses and collected output

TEST_F(VTTaskTest, TerminationCodeIsTheExitStatusOrTheSignal)
{
    const std::pair<const char *, qint64> cases[] = {
        {"exit 0", 0}, {"exit 3", 3}, {"exit 200", 200}, {"kill -TERM $$\nsleep 5", SIGTERM}};
    for (const auto &[body, code] : cases) {
        VTTask::TaskSlot slot;
        EXPECT_EQ(VTTask::terminationCodeFromTask(script(QStringLiteral("code"), body), {}, &slot),
                  code)
            << body;
        ASSERT_TRUE(slot);
        EXPECT_GT(slot->processId(), 0);
        EXPECT_FALSE(slot->isRunning());
    }
    // runTask waits, and is true whatever the status.
    const QString marker = sandbox.file(QStringLiteral("ran"));
    VTTask::TaskSlot slot;
    EXPECT_TRUE(VTTask::runTask(
        script(QStringLiteral("fails"), QStringLiteral("touch \"$1\"\necho noise >&2\nexit 7")),
        {marker}, &slot));
    EXPECT_TRUE(QFile::exists(marker));
    ASSERT_TRUE(slot);
    EXPECT_EQ(slot->terminationStatus(), 7);
}

// Standard error, when there is any, wins over standard output; standard input is open
// and empty (`cat` would hang on a terminal or an open pipe nobody closes).
TEST_F(VTTaskTest, CollectedOutput)
{
    const std::pair<const char *, const char *> cases[] = {
        {"printf ok", "ok"},
        {"echo ok\necho 'warning: careful' >&2\necho more", "warning: careful\n"},
        {"exit 0", ""},
        {"cat\necho done >&2", "done\n"},
        {"exec cat", ""},
    };
    for (const auto &[body, expected] : cases) {
        const QString path = script(QStringLiteral("out"), body);
        VTTask::TaskSlot slot;
        const auto data = VTTask::dataFromTask(path, {}, &slot);
        EXPECT_EQ(data, QByteArray(expected)) << body;
        EXPECT_TRUE(slot);
        const QString text = VTTask::stringFromTask(path, {}, VTStringEncoding::UTF8, &slot);
        EXPECT_EQ(text, QString::fromUtf8(expected)) << body;
        EXPECT_FALSE(text.isNull());
    }

    // More than a pipe holds on each stream, written alternately, does not block.
    const QString chatty = script(
        QStringLiteral("chatty"),
        QStringLiteral("i=0\nwhile [ $i -lt 2000 ]; do\n"
                       "  echo 'out line of some length .................................'\n"
                       "  echo 'err line of some length .................................' >&2\n"
                       "  i=$((i+1))\ndone"));
    const auto data = VTTask::dataFromTask(chatty, {});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->count('\n'), 2000);
    EXPECT_TRUE(data->startsWith("err line"));
}

TEST_F(VTTaskTest, DecodesWithTheGivenEncoding)
{
    // ASCII is lenient: every byte is a character.
    const QString bytes =
        script(QStringLiteral("bytes"), QStringLiteral("printf '\\377\\376ok\\200'"));
    EXPECT_EQ(VTTask::stringFromTask(bytes, {}), QString::fromLatin1("\xff\xfeok\x80"));
    EXPECT_EQ(VTTask::stringFromTask(bytes, {}, VTStringEncoding::ISOLatin1),
              QString::fromLatin1("\xff\xfeok\x80"));

    EXPECT_EQ(VTTask::decode(QByteArray("caf\xc3\xa9"), VTStringEncoding::UTF8),
              QStringLiteral("caf\u00e9"));
    EXPECT_EQ(VTTask::decode(QByteArray("caf\xc3\xa9"), VTStringEncoding::ASCII),
              QString::fromLatin1("caf\xc3\xa9"));
    EXPECT_EQ(VTTask::decode(QByteArray("\xe9t\xe9"), VTStringEncoding::ISOLatin1),
              QStringLiteral("\u00e9t\u00e9"));
    for (const QByteArray &utf16 : {QByteArray("\xff\xfeh\0i\0", 6),
                                    QByteArray("\xfe\xff\0h\0i", 6), QByteArray("\0h\0i", 4)}) {
        EXPECT_EQ(VTTask::decode(utf16, VTStringEncoding::Unicode), QStringLiteral("hi"));
    }
    EXPECT_FALSE(VTTask::decode(QByteArray(), VTStringEncoding::UTF8).isNull());
}

// ---------------------------------------------------------------------------------------
// Arguments reach the program as given (no shell)

TEST_F(VTTaskTest, ArgumentsArriveUnchanged)
{
    const QString out = sandbox.file(QStringLiteral("args.bin"));
    const QString path = script(
        QStringLiteral("args"),
        QStringLiteral("for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$VT_ARGS_OUT\""));
    sandbox.setEnv("VT_ARGS_OUT", out);
    const QStringList arguments = {
        QStringLiteral("with space"),
        QStringLiteral("it's \"quoted\""),
        QStringLiteral("line one\nline two"),
        QStringLiteral("$HOME"),
        QStringLiteral("*"),
        QStringLiteral(""),
        QStringLiteral("`id` $(id) ; | & > < \\back\\slash"),
        // Not ASCII: Latin-1 bytes read as characters, and other scripts.
        QString::fromLatin1("\xff\xfe\x80"),
        QStringLiteral("\u65e5\u672c \U0001F600"),
        QStringLiteral("-n"),
    };
    QByteArray expected;
    for (const QString &argument : arguments) {
        expected += QFile::encodeName(argument) + '\0';
    }
    const std::function<void()> runs[] = {
        [&] { EXPECT_TRUE(VTTask::runTask(path, arguments)); },
        [&] { EXPECT_EQ(VTTask::terminationCodeFromTask(path, arguments), 0); },
        [&] { EXPECT_EQ(VTTask::dataFromTask(path, arguments), QByteArray()); },
        [&] { EXPECT_EQ(VTTask::terminationCodeFromTask(path, arguments, 5.0), 0); },
    };
    for (const auto &run : runs) {
        QFile::remove(out);
        run();
        EXPECT_EQ(TestFiles::read(out), expected);
    }
}

TEST_F(VTTaskTest, EverySpawnGoesThroughTheSpawnerWithoutAShell)
{
    auto recorder = installRecorder();
    const QString path = script(QStringLiteral("tool"), QStringLiteral("exit 0"));
    const QStringList arguments = {QStringLiteral("a b"), QStringLiteral("$HOME"),
                                   QStringLiteral("*")};

    EXPECT_TRUE(VTTask::runTask(path, arguments));
    EXPECT_EQ(VTTask::terminationCodeFromTask(path, arguments), 5);
    VTTask::TaskSlot slot;
    EXPECT_EQ(VTTask::dataFromTask(path, arguments, &slot), QByteArray("out"));
    VTTask::runTaskAndReturn(path, arguments);

    ASSERT_EQ(recorder->calls.size(), 4u);
    for (const auto &call : recorder->calls) {
        EXPECT_EQ(call.program, path);
        EXPECT_EQ(call.arguments, arguments);
    }
    EXPECT_EQ(recorder->calls[0].output, ProcessOutput::Discard);
    EXPECT_EQ(recorder->calls[1].output, ProcessOutput::Discard);
    EXPECT_EQ(recorder->calls[2].output, ProcessOutput::Collect);
    EXPECT_TRUE(recorder->calls[3].detached);
    ASSERT_EQ(recorder->children.size(), 3u);
    EXPECT_EQ(slot, recorder->children[2]);
}

// ---------------------------------------------------------------------------------------
// The executable check and launch failures

// Packages (folders with a package extension), missing programs and files without the
// execute permission are refused before anything starts, by every kind of run, with the
// failure value of each.
TEST_F(VTTaskTest, WhatIsNotExecutableIsRefused)
{
    const QString bundle = TestFiles::makeBundle(sandbox.mkdir(QStringLiteral("Applications")),
                                                 QStringLiteral("Tool"), PlistDict());
    ASSERT_TRUE(QFileInfo(bundle).isExecutable());
    QStringList refused{bundle, sandbox.file(QStringLiteral("bin/missing")),
                        sandbox.file(QStringLiteral("bin/plain"))};
    TestFiles::write(refused.last(), "#!/bin/sh\nexit 0\n");
    for (const char *ext : {"bundle", "framework", "plugin", "kext", "APP"}) {
        refused.append(sandbox.mkdir(QStringLiteral("pkgs/Thing.") + QLatin1String(ext)));
    }
    auto recorder = installRecorder();

    for (const QString &path : refused) {
        SCOPED_TRACE(path.toStdString());
        TestFiles::CaptureStderr capture;
        EXPECT_FALSE(VTTask::runTask(path, {}));
        EXPECT_EQ(VTTask::terminationCodeFromTask(path, {}), -1);
        EXPECT_EQ(VTTask::dataFromTask(path, {}), std::nullopt);
        const QString text = VTTask::stringFromTask(path, {});
        EXPECT_EQ(text, QStringLiteral(""));
        EXPECT_FALSE(text.isNull());
        EXPECT_EQ(VTTask::terminationCodeFromTask(path, {}, 2.0), -1);
        EXPECT_EQ(VTTask::dataFromTask(path, {}, 2.0), std::nullopt);
        VTTask::runTaskAndReturn(path, {});
        const QString console = capture.finish();
        const QString message = QStringLiteral("Error: %1 is not executable").arg(path);
        EXPECT_EQ(console.count(message), 7) << console.toStdString();
        EXPECT_FALSE(console.contains(QStringLiteral("timed out")));
    }
    EXPECT_TRUE(recorder->calls.empty()); // nothing started
    EXPECT_EQ(logText().count(QStringLiteral("Error: %1 is not executable").arg(bundle)), 7);
}

TEST_F(VTTaskTest, PlainFolderPassesTheCheckAndFailsToLaunch)
{
    const QString folder = sandbox.mkdir(QStringLiteral("just-a-folder"));
    TestFiles::CaptureStderr capture;
    EXPECT_FALSE(VTTask::runTask(folder, {}));
    EXPECT_EQ(VTTask::terminationCodeFromTask(folder, {}), -1);
    EXPECT_EQ(VTTask::dataFromTask(folder, {}), std::nullopt);
    EXPECT_EQ(VTTask::stringFromTask(folder, {}), QStringLiteral(""));
    const QString console = capture.finish();
    EXPECT_FALSE(console.contains(QStringLiteral("is not executable")));
    for (const char *function : {"runTask", "terminationCodeFromTask", "dataFromTask"}) {
        EXPECT_TRUE(console.contains(QStringLiteral("Exception in VTTask::%1. ").arg(function)))
            << function;
    }
    EXPECT_TRUE(logText().contains(QStringLiteral("Exception in VTTask::runTask. ")));
}

TEST_F(VTTaskTest, LaunchFailureOfTheSpawnerIsCaught)
{
    auto recorder = installRecorder();
    recorder->fail = true;
    const QString path = script(QStringLiteral("tool"), QStringLiteral("exit 0"));
    TestFiles::CaptureStderr capture;
    EXPECT_FALSE(VTTask::runTask(path, {}));
    VTTask::runTaskAndReturn(path, {});
    auto task = VTTask::create();
    EXPECT_FALSE(task->timedRunTask(path, {}, 3.0));
    const QString console = capture.finish();
    EXPECT_EQ(console.count(
                  QStringLiteral("Exception in VTTask::runTask. NSInvalidArgumentException - ")),
              2)
        << console.toStdString();
    EXPECT_TRUE(console.contains(QStringLiteral("Exception in VTTask::runTaskAndReturn. ")));
    EXPECT_TRUE(console.contains(QStringLiteral("refused by the test")));
}

// ---------------------------------------------------------------------------------------
// Runs without waiting

// ---------------------------------------------------------------------------------------
// Time limits

TEST_F(VTTaskTest, TimeLimitIsWholeSecondsAndTerminates)
{
    const QString marker = sandbox.file(QStringLiteral("survived"));
    const QString path = script(QStringLiteral("sleeper"), QStringLiteral("exec sleep 30"));
    const QString marking =
        script(QStringLiteral("marking"), QStringLiteral("sleep 4\ntouch \"$1\""));
    TestFiles::CaptureStderr capture;
    const auto started = std::chrono::steady_clock::now();
    const qint64 status = VTTask::terminationCodeFromTask(path, {}, 2.9);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    const QString console = capture.finish();

    EXPECT_EQ(status, SIGTERM); // ended by the termination signal
    EXPECT_GE(elapsed, 1900ms); // 2 seconds, not 3: checked loosely below
    EXPECT_LT(elapsed, 2900ms + 5000ms);
    EXPECT_TRUE(console.contains(QStringLiteral("Task timed out. Terminating...")));
    EXPECT_TRUE(logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(path)));

    // The run without a result: it comes back and the program never finished its work.
    VTTask::runTask(marking, {marker}, 1.0);
    EXPECT_FALSE(QFile::exists(marker));
    // The run that does not wait, with no limit: the program finishes later.
    VTTask::runTaskAndReturn(marking, {marker});
    EXPECT_FALSE(QFile::exists(marker));
    EXPECT_TRUE(Poll::until([&] { return QFile::exists(marker); }, 10000ms));
    // Collected output is what came before the limit.
    const QString partial =
        script(QStringLiteral("partial"), QStringLiteral("echo started\nexec sleep 30"));
    EXPECT_EQ(VTTask::stringFromTask(partial, {}, 1.5), QStringLiteral("started\n"));

    // A program ignoring the termination signal is still ended.
    const QString stubborn =
        script(QStringLiteral("stubborn"), QStringLiteral("trap '' TERM\nexec sleep 30"));
    TestFiles::CaptureStderr quiet;
    EXPECT_EQ(VTTask::terminationCodeFromTask(stubborn, {}, 1.0), SIGKILL);
    quiet.finish();
    EXPECT_TRUE(
        logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(stubborn)));
}

TEST_F(VTTaskTest, FastProgramIsNotTerminatedAndTheLateWatchdogDoesNothing)
{
    const QString fast = script(QStringLiteral("fast"), QStringLiteral("exit 4"));
    const QString marker = sandbox.file(QStringLiteral("second"));
    const QString slower =
        script(QStringLiteral("slower"), QStringLiteral("sleep 1.5\ntouch \"$1\""));

    TestFiles::CaptureStderr capture;
    auto task = VTTask::create();
    std::weak_ptr<VTTask> weak = task;
    // A timeout without a process does nothing.
    task->timeout();
    task->setupTimeout(0);
    EXPECT_EQ(task->timedTerminationCodeFromTask(fast, {}, 1.9), 4);
    // A second run on the same instance spans the moment the first limit ends.
    EXPECT_EQ(task->timedTerminationCodeFromTask(slower, {marker}, 10.0), 0);
    EXPECT_TRUE(QFile::exists(marker));
    EXPECT_EQ(VTTask::stringFromTask(script(QStringLiteral("say"), QStringLiteral("printf said")),
                                     {}, 1.0),
              QStringLiteral("said"));
    EXPECT_EQ(VTTask::dataFromTask(fast, {}, 1.0), QByteArray());
    task.reset();
    // The watchdogs end with their runs and let the instance go.
    EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 3000ms));
    EXPECT_TRUE(capture.finish().isEmpty());
    EXPECT_FALSE(logText().contains(QStringLiteral("timed out")));
}

// ---------------------------------------------------------------------------------------
// Streamed runs

TEST_F(VTTaskTest, StreamedRunCallsTheDelegatePerPieceThenOnceEmpty)
{
    const QString path =
        script(QStringLiteral("stream"),
               QStringLiteral(
                   "printf '%s' \"$1\"\nsleep 0.3\nprintf '%s' \"$2\"\nsleep 0.3\nprintf three"));
    DelegateRecorder recorder;
    auto task = VTTask::create();
    std::weak_ptr<VTTask> weak = task;
    // The arguments arrive unchanged here too.
    task->asyncDataFromTask(path, {QStringLiteral("o*e"), QStringLiteral("$HOME\n")},
                            recorder.delegate(), QVariant(QStringLiteral("context")));
    VTTask *raw = task.get();
    task.reset(); // the reading thread keeps the instance alive
    ASSERT_TRUE(recorder.waitForEnd());
    EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 3000ms));

    std::lock_guard<std::mutex> lock(recorder.mutex);
    ASSERT_GE(recorder.pieces.size(), 2u);
    EXPECT_EQ(recorder.ends, 1);
    EXPECT_TRUE(recorder.pieces.back().isEmpty());
    QByteArray all;
    for (size_t i = 0; i + 1 < recorder.pieces.size(); ++i) {
        EXPECT_FALSE(recorder.pieces[i].isEmpty());
        all += recorder.pieces[i];
    }
    EXPECT_EQ(all, QByteArray("o*e$HOME\nthree"));
    EXPECT_EQ(recorder.pieces.front(), QByteArray("o*e"));
    for (size_t i = 0; i < recorder.tasks.size(); ++i) {
        EXPECT_EQ(recorder.tasks[i], raw);
        EXPECT_EQ(recorder.objects[i].toString(), QStringLiteral("context"));
    }
}

// A program without output gets the delegate called once, empty; one that cannot start
// gets it never.
TEST_F(VTTaskTest, StreamedRunWithoutOutputOrProgram)
{
    const QString silent =
        script(QStringLiteral("silent"), QStringLiteral("echo hidden >&2\nexit 0"));
    for (const QString &path : {silent, sandbox.file(QStringLiteral("bin/nothing"))}) {
        DelegateRecorder recorder;
        auto task = VTTask::create();
        std::weak_ptr<VTTask> weak = task;
        task->asyncDataFromTask(path, {}, recorder.delegate());
        task.reset();
        EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 3000ms));
        std::lock_guard<std::mutex> lock(recorder.mutex);
        if (path == silent) {
            ASSERT_EQ(recorder.pieces.size(), 1u);
            EXPECT_TRUE(recorder.pieces[0].isEmpty());
            EXPECT_FALSE(recorder.objects[0].isValid());
        } else {
            EXPECT_TRUE(recorder.pieces.empty());
        }
    }
    EXPECT_TRUE(logText().contains(QStringLiteral("Unable to launch async task - no task set")));
}

TEST_F(VTTaskTest, TerminateAsyncTaskEndsARunningStream)
{
    const QString path = script(QStringLiteral("endless"),
                                QStringLiteral("while true; do echo tick; sleep 0.1; done"));
    DelegateRecorder recorder;
    auto task = VTTask::create();
    std::weak_ptr<VTTask> weak = task;
    task->asyncDataFromTask(path, {}, recorder.delegate());
    ASSERT_TRUE(Poll::until([&] {
        std::lock_guard<std::mutex> lock(recorder.mutex);
        return !recorder.pieces.empty();
    }));
    task->terminateAsyncTask(); // from another thread than the reader
    task.reset();
    EXPECT_TRUE(Poll::until([&] { return weak.expired(); }, 5000ms));
    std::lock_guard<std::mutex> lock(recorder.mutex);
    EXPECT_EQ(recorder.ends, 0); // the delegate was dropped before the end
}

TEST_F(VTTaskTest, AsyncTaskReturnDataCallsTheDelegateDirectly)
{
    auto recorder = installRecorder();
    recorder->chunks = {QByteArray("a"), QByteArray("bc")};
    DelegateRecorder delegate;
    auto task = VTTask::create();
    task->asyncDataFromTask(QStringLiteral("/not/checked"), {QStringLiteral("x")},
                            delegate.delegate(), QVariant(7));
    ASSERT_TRUE(delegate.waitForEnd());
    {
        std::lock_guard<std::mutex> lock(delegate.mutex);
        ASSERT_EQ(delegate.pieces.size(), 3u);
        EXPECT_EQ(delegate.pieces[0], QByteArray("a"));
        EXPECT_EQ(delegate.pieces[1], QByteArray("bc"));
        EXPECT_TRUE(delegate.pieces[2].isEmpty());
        EXPECT_EQ(delegate.objects[0].toInt(), 7);
    }
    EXPECT_TRUE(Poll::until([&] {
        std::lock_guard<std::mutex> lock(recorder->mutex);
        return !recorder->children.empty() && recorder->children[0]->terminates > 0;
    }));
    {
        std::lock_guard<std::mutex> lock(recorder->mutex);
        ASSERT_EQ(recorder->calls.size(), 1u);
        EXPECT_EQ(recorder->calls[0].program, QStringLiteral("/not/checked"));
        EXPECT_EQ(recorder->calls[0].output, ProcessOutput::StreamStandardOutput);
    }

    // Once ended, further data reaches no delegate.
    task->asyncTaskReturnData(QByteArray("late"));
    std::lock_guard<std::mutex> lock(delegate.mutex);
    EXPECT_EQ(delegate.pieces.size(), 3u);
}

} // namespace
