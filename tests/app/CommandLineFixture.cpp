#include "CommandLineFixture.h"

#include "platform/FileNames.h"
#include "platform/PropertyList.h"
#include "testsupport/ClientApps.h"
#include "testsupport/Poll.h"
#include "testsupport/TestFiles.h"

#include <QtCore>

#include <functional>

#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

QList<QByteArray> encoded(const QStringList &arguments)
{
    QList<QByteArray> words;
    for (const QString &argument : arguments) {
        words.append(FileNames::encode(argument));
    }
    return words;
}

} // namespace

void CommandLineFixture::SetUp()
{
    DBusDaemon::Options options;
    options.allowAnyUser = true;
    bus = std::make_unique<DBusDaemon>(options);
    ASSERT_TRUE(bus->isRunning()) << bus->error().toStdString();
    // Quill's callback object, in a process of its own as a client application's is.
    callbackClient.start(QStringLiteral(NOTIFICATION_CLIENT), {"rich", "quill", callbackRecord()});
    ASSERT_TRUE(callbackClient.waitForReadyRead(10000));
    ASSERT_EQ(callbackClient.readLine().trimmed(), "ready");
    launchctl = std::make_unique<LaunchctlRecorder>(sandbox);
    quill = ClientApps::makeQuill(sandbox.mkdir("root/Applications"));
}

void CommandLineFixture::TearDown()
{
    callbackClient.kill();
    callbackClient.waitForFinished();
    bus.reset();
}

QString CommandLineFixture::callbackRecord() const
{
    return sandbox.path() + "/callback.calls";
}

QStringList CommandLineFixture::errors(int count, int field) const
{
    QStringList found;
    const auto read = [&] {
        found.clear();
        for (const QString &line : TestFiles::lines(callbackRecord())) {
            if (line.startsWith(QLatin1String("postErrorStringUserInfo|"))) {
                found.append(line.section(QLatin1Char('|'), field, field));
            }
        }
        return found.size() >= count;
    };
    Poll::until(read);
    // Anything else already on its way is taken too.
    QThread::msleep(100);
    read();
    return found;
}

QString CommandLineFixture::binary()
{
    return QStringLiteral(KAIRO_BINARY_DIR "/bin/kairo-planner");
}

bool CommandLineFixture::runningAsRoot()
{
    return geteuid() == 0;
}

void CommandLineFixture::handOver() const
{
    if (!runningAsRoot() || keepOwners) {
        return;
    }
    // By the names' bytes: some tests make names that are not UTF-8.
    const std::function<void(const QString &)> handFolder = [&](const QString &folder) {
        if (::lchown(FileNames::encode(folder).constData(), kNobody, kNobody) != 0 ||
            FileNames::isSymbolicLink(folder) || !FileNames::isDirectory(folder)) {
            return;
        }
        for (const QString &name : FileNames::entryList(folder)) {
            handFolder(folder + QLatin1Char('/') + name);
        }
    };
    handFolder(sandbox.path());
}

std::unique_ptr<QProcess> CommandLineFixture::start(const QStringList &arguments)
{
    return launch(encoded(arguments), QByteArray(), false);
}

CommandLineFixture::Result CommandLineFixture::run(const QStringList &arguments, bool asRoot)
{
    return runBytes(encoded(arguments), QByteArray(), asRoot);
}

std::unique_ptr<QProcess> CommandLineFixture::launch(const QList<QByteArray> &arguments,
                                                     const QByteArray &home, bool asRoot)
{
    QList<QByteArray> words;
    if (!asRoot) {
        handOver();
        if (runningAsRoot()) {
            words = {QFile::encodeName(QStandardPaths::findExecutable("setpriv")), "--reuid=65534",
                     "--regid=65534", "--clear-groups", "--"};
        }
    }
    words.append(QFile::encodeName(binary()));
    words += arguments;
    if (!home.isEmpty()) {
        sandbox.setEnv("HOME", FileNames::decode(home));
    }
    std::vector<char *> argv;
    for (QByteArray &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    auto process = std::make_unique<QProcess>();
    process->setProgram(QFile::decodeName(words.first()));
    process->setChildProcessModifier([&] {
        ::execv(argv[0], argv.data());
        ::_exit(127);
    });
    process->start();
    process->waitForStarted();
    process->closeWriteChannel();
    return process;
}

CommandLineFixture::Result CommandLineFixture::runBytes(const QList<QByteArray> &arguments,
                                                        const QByteArray &home, bool asRoot)
{
    const std::unique_ptr<QProcess> process = launch(arguments, home, asRoot);
    Result result;
    if (!finish(*process)) {
        process->kill();
        process->waitForFinished();
        return result;
    }
    result.exitCode = process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1;
    result.out = FileNames::decode(process->readAllStandardOutput());
    result.err = FileNames::decode(process->readAllStandardError());
    return result;
}

bool CommandLineFixture::finish(QProcess &process)
{
    process.waitForFinished(60000);
    return process.state() == QProcess::NotRunning;
}

QString CommandLineFixture::agents() const
{
    return sandbox.home() + "/Library/LaunchAgents";
}

QString CommandLineFixture::daemons() const
{
    return sandbox.localRoot() + "/Library/LaunchDaemons";
}

QString CommandLineFixture::job(int number, bool root) const
{
    return (root ? daemons() : agents()) + QStringLiteral("/com.vantreel.%1ScheduledTask%2.plist")
                                               .arg(root ? "Root" : QString())
                                               .arg(number);
}

PlistDict CommandLineFixture::readJob(const QString &path) const
{
    return PropertyList::readDictionary(path).value_or(PlistDict());
}

QStringList CommandLineFixture::logLines() const
{
    // Every command starts the log twice (at start and when its controller is made), so
    // its first lines are in the second generation: read them all, oldest first.
    QStringList lines;
    for (int generation = 5; generation >= 1; --generation) {
        lines += TestFiles::lines(
            sandbox.home() +
            QStringLiteral("/Library/Logs/Vantreel/Kairo Planner.task.%1.log").arg(generation));
    }
    return lines;
}
