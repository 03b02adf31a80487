#include "VTAuthorization.h"

#include "PrivilegedHelperClient.h"
#include "VTException.h"
#include "VTFormat.h"
#include "VTLocalPaths.h"
#include "VTLog.h"
#include "VTTask.h"
#include "VTToolPaths.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Environment.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "platform/PosixFile.h"
#include "platform/Trash.h"

#include <QFileInfo>

#include <cstring>

#include <unistd.h>

// The administrator right is the running privileged helper (m_authRef): started once through
// polkit's pkexec, it runs the standard tools as root until authEnd closes its input. A
// process that already runs as root needs none of it and runs the tools itself.

using namespace std::chrono_literals;

namespace {

std::mutex g_instanceMutex;
std::unique_ptr<VTAuthorization> g_instance;

// The statuses of a privileged call that did not get its tool going.
constexpr int kToolExecuteFailure = -60031; // the helper refused the tool or could not start it
constexpr int kInternalFailure = -60008;    // the helper went away before it answered

// The desktop's password dialog waits for a person; given credentials are checked at once.
constexpr std::chrono::milliseconds kInteractiveLimit = 10min;
constexpr std::chrono::milliseconds kCredentialsLimit = 15s;

const QString kInvalidCredentials =
    QStringLiteral("Authorization failed. Invalid username or password");

bool isRoot()
{
    return Identity::current().isRoot();
}

// The platform's path rules: the last component ignores trailing slashes, and a name that
// starts with its only dot (".profile") has no extension.
QString lastPathComponent(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(QLatin1Char('/'))) {
        p.chop(1);
    }
    if (p == QLatin1String("/")) {
        return p;
    }
    return p.mid(p.lastIndexOf(QLatin1Char('/')) + 1);
}

qsizetype extensionDot(const QString &path)
{
    const QString name = lastPathComponent(path);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0 || name == QLatin1String("..")) {
        return -1;
    }
    return dot;
}

QString pathExtension(const QString &path)
{
    const qsizetype dot = extensionDot(path);
    return dot < 0 ? QString() : lastPathComponent(path).mid(dot + 1);
}

QString deletingPathExtension(const QString &path)
{
    const qsizetype dot = extensionDot(path);
    if (dot < 0) {
        return path;
    }
    const QString name = lastPathComponent(path);
    QString p = path;
    while (p.size() > 1 && p.endsWith(QLatin1Char('/'))) {
        p.chop(1);
    }
    return p.left(p.size() - name.size() + dot);
}

QStringList folderEntries(const QString &folder)
{
    if (folder.isEmpty()) {
        return {};
    }
    return FileNames::entryList(folder);
}

QByteArrayList encodedArguments(const QStringList &parameters)
{
    QByteArrayList encoded;
    for (const QString &parameter : parameters) {
        encoded.append(FileNames::encode(parameter));
    }
    return encoded;
}

} // namespace

VTAuthorization &VTAuthorization::sharedController(bool gui)
{
    std::lock_guard<std::mutex> lock(g_instanceMutex);
    if (!g_instance) {
        g_instance.reset(new VTAuthorization(gui));
    }
    return *g_instance;
}

VTAuthorization &VTAuthorization::sharedController()
{
    return sharedController(true);
}

void VTAuthorization::resetForTesting()
{
    std::unique_ptr<VTAuthorization> old;
    {
        std::lock_guard<std::mutex> lock(g_instanceMutex);
        old = std::move(g_instance);
    }
}

VTAuthorization::VTAuthorization(bool gui) : m_hasGUI(gui)
{
    // A privileged parent on this platform makes the process root; there is no reference
    // to inherit.
    if (!isRoot()) {
        m_userDirectory = VTLocalPaths::userDirectory().value_or(QString());
    }
}

VTAuthorization::~VTAuthorization()
{
    authEnd();
}

bool VTAuthorization::canAuthorize() const
{
    return m_hasGUI || isRoot();
}

bool VTAuthorization::isAuthorized() const
{
    return isRoot() || (m_authRef && m_authRef->isRunning());
}

bool VTAuthorization::authStart()
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (isAuthorized()) {
            return true;
        }
        if (!m_hasGUI) {
            Console::log(QStringLiteral("Unable to authorize"));
            return false;
        }
        return startHelper(nullptr, nullptr);
    });
}

bool VTAuthorization::authStartWithUser(const QString &userName, const QString &password)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (isRoot()) {
            return true;
        }
        if (userName.isNull() || password.isNull()) {
            return false;
        }
        return startHelper(&userName, &password);
    });
}

bool VTAuthorization::startHelper(const QString *userName, const QString *password)
{
    // A helper still held is replaced, not leaked.
    m_authRef.reset();
    auto client = std::make_unique<PrivilegedHelperClient>();
    const QString helper = VTToolPaths::privilegedHelper();
    int error = 0;

    if (!userName || !password) {
        // pkexec asks through the desktop's polkit agent; 126 and 127 are a refusal or a
        // dismissed dialog, and the helper then never says it is ready.
        const auto result =
            client->start(VTToolPaths::elevate(), {helper}, nullptr, kInteractiveLimit, &error);
        if (result != PrivilegedHelperClient::Start::Ready) {
            return false;
        }
        m_authRef = std::move(client);
        return true;
    }

    QString program;
    QStringList arguments;
    if (auto custom = Environment::value("VT_ELEVATE"); custom && !custom->isEmpty()) {
        program = *custom;
        arguments = {helper};
    } else {
        // pkexec takes no credentials, so they go to sudo, which checks the password of the
        // invoking user only: the credentials of any other account cannot be checked here and
        // count as invalid.
        if (*userName != Identity::current().userName()) {
            Console::log(kInvalidCredentials);
            VTLog::appendLog(kInvalidCredentials);
            return false;
        }
        program = QStringLiteral("sudo");
        arguments = {QStringLiteral("-S"), QStringLiteral("-k"),   QStringLiteral("-p"), QString(),
                     QStringLiteral("-u"), QStringLiteral("root"), QStringLiteral("--"), helper};
    }

    // The password goes once, as one line, to the elevation program alone; no copy is kept.
    QByteArray utf8 = password->toUtf8();
    QByteArray secret(utf8.size() + 1, Qt::Uninitialized);
    std::memcpy(secret.data(), utf8.constData(), static_cast<size_t>(utf8.size()));
    secret[utf8.size()] = '\n';
    explicit_bzero(utf8.data(), static_cast<size_t>(utf8.size()));
    const auto result = client->start(program, arguments, &secret, kCredentialsLimit, &error);
    explicit_bzero(secret.data(), static_cast<size_t>(secret.size()));

    switch (result) {
    case PrivilegedHelperClient::Start::Ready:
        m_authRef = std::move(client);
        return true;
    case PrivilegedHelperClient::Start::LaunchFailed:
        Console::log(
            VTFormat::string(QStringLiteral("Unable to create authRef - error %d"), error));
        return false;
    case PrivilegedHelperClient::Start::Refused:
        break;
    }
    Console::log(kInvalidCredentials);
    VTLog::appendLog(kInvalidCredentials);
    return false;
}

void VTAuthorization::authEnd()
{
    VTException::guard(VT_METHOD, [&] {
        if (m_authRef) {
            m_authRef->end();
        }
        m_authRef.reset();
    });
}

int VTAuthorization::authExecTask(const QString &toolPath, const QStringList &parameters,
                                  bool async)
{
    return VTException::guard(VT_METHOD, -1, [&]() -> int {
        if (!FileNames::exists(toolPath)) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to execute task: path %@ doesn't exist"), toolPath));
            return -2;
        }
        if (isRoot()) {
            if (async) {
                VTTask::runTaskAndReturn(toolPath, parameters);
            } else {
                VTTask::runTask(toolPath, parameters);
            }
            return 0;
        }
        if (!isAuthorized()) {
            // Never started, or ended since: asks again (and fails without a GUI).
            authStart();
        }
        if (!isAuthorized()) {
            return -1;
        }
        return callHelper(toolPath, parameters, async);
    });
}

int VTAuthorization::authRunTask(const QString &toolPath, const QStringList &parameters)
{
    return VTException::guard(VT_METHOD, -1, [&]() -> int {
        if (isRoot() && FileNames::exists(toolPath)) {
            return static_cast<int>(VTTask::terminationCodeFromTask(toolPath, parameters));
        }
        const int call = authExecTask(toolPath, parameters, false);
        if (call != 0 || !m_authRef) {
            return call;
        }
        const PrivilegedHelperClient::Reply reply = m_authRef->lastReply();
        return reply.kind == PrivilegedHelperClient::Reply::Kind::Status ? reply.status : 0;
    });
}

int VTAuthorization::callHelper(const QString &toolPath, const QStringList &parameters, bool async)
{
    const QByteArray tool = FileNames::encode(toolPath);
    const QByteArrayList arguments = encodedArguments(parameters);
    auto send = [&] {
        return async ? m_authRef->spawn(tool, arguments) : m_authRef->run(tool, arguments);
    };
    auto reply = send();
    if (reply.kind == PrivilegedHelperClient::Reply::Kind::NotSent) {
        // It ended between the check and the request: one new start, as for a dead helper.
        authEnd();
        authStart();
        if (!isAuthorized()) {
            return -1;
        }
        reply = send();
    }
    // As with the platform's privileged execution, the status is that of the call, not of
    // the tool: a tool that ran and failed is still a successful call. The tool's own exit
    // status stays in the helper's last reply and in the journal.
    switch (reply.kind) {
    case PrivilegedHelperClient::Reply::Kind::Status:
    case PrivilegedHelperClient::Reply::Kind::Started:
        return 0;
    case PrivilegedHelperClient::Reply::Kind::Refused:
        return kToolExecuteFailure;
    case PrivilegedHelperClient::Reply::Kind::NotSent:
    case PrivilegedHelperClient::Reply::Kind::Lost:
        break;
    }
    return kInternalFailure;
}

bool VTAuthorization::runTool(const QString &toolPath, const QStringList &arguments)
{
    if (isRoot()) {
        // Started, not waited for, and not checked.
        VTTask::runTaskAndReturn(toolPath, arguments);
        return true;
    }
    return authExecTask(toolPath, arguments) == 0;
}

bool VTAuthorization::authCopyFile(const QString &source, const QString &destination)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (source.isNull()) {
            Console::log(QStringLiteral("Error in authCopyFile: old path is null"));
            return false;
        }
        if (destination.isNull()) {
            Console::log(QStringLiteral("Error in authCopyFile: new path is null"));
            return false;
        }
        if (!FileNames::exists(source)) {
            return false;
        }
        return runTool(VTToolPaths::cp(), {QStringLiteral("-f"), QStringLiteral("-p"),
                                           QStringLiteral("-R"), source, destination});
    });
}

bool VTAuthorization::authMoveFile(const QString &source, const QString &destination)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (source.isNull()) {
            Console::log(QStringLiteral("Error in authMoveFile: old path is null"));
            return false;
        }
        if (destination.isNull()) {
            Console::log(QStringLiteral("Error in authMoveFile: new path is null"));
            return false;
        }
        if (VTLocalPaths::isPathSystemDirectory(source, true)) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to move path %@ because it is a system directory."),
                source));
            return false;
        }
        if (!FileNames::exists(source)) {
            return false;
        }
        return runTool(VTToolPaths::mv(), {QStringLiteral("-f"), source, destination});
    });
}

bool VTAuthorization::authMoveFolderContents(const QString &source, const QString &destination)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (VTLocalPaths::isPathSystemDirectory(source, true)) {
            Console::log(VTFormat::string(
                QStringLiteral(
                    "Unable to move contents of path %@ because it is a system directory."),
                source));
            return false;
        }
        bool all = true;
        for (const QString &name : folderEntries(source)) {
            const bool moved = authMoveFile(VTLocalPaths::appendPathComponent(source, name),
                                            VTLocalPaths::appendPathComponent(destination, name));
            all = moved && all;
        }
        return all;
    });
}

bool VTAuthorization::deletesOnRootAccount(bool deleteOnRootAccount) const
{
    return m_userDirectory.isNull() && deleteOnRootAccount && isRoot();
}

QString VTAuthorization::trashDestination(const QString &path) const
{
    const QString name = lastPathComponent(path);
    QString destination;
    if (isRoot() && !m_userDirectory.isNull()) {
        destination = VTLocalPaths::appendPathComponent(
            m_userDirectory, QStringLiteral(".local/share/Trash/files/") + name);
    } else if (auto trash = VTLocalPaths::trashDirectory()) {
        destination = VTLocalPaths::appendPathComponent(*trash, name);
    }
    if (FileNames::exists(destination) || FileNames::isSymbolicLink(destination)) {
        // A name without extension ends in a lone ".": intended.
        const QString time =
            Clock::current().now().toLocalTime().toString(QStringLiteral("yyyyMMddHHmmss"));
        destination = deletingPathExtension(destination) +
                      VTFormat::string(QStringLiteral("_%@.%@"), time, pathExtension(path));
    }
    return destination;
}

bool VTAuthorization::authTrashFile(const QString &path, bool deleteOnRootAccount)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (VTLocalPaths::isPathSystemDirectory(path, true)) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to trash path %@ because it is a system directory."), path));
            return false;
        }
        const QString destination = trashDestination(path);
        if (deletesOnRootAccount(deleteOnRootAccount)) {
            // What stands at the trash path goes; the path itself stays where it is.
            return !destination.isNull() && authRemoveFile(destination);
        }
        if (!destination.isNull()) {
            const QString files = QFileInfo(destination).path();
            // The trash may not exist yet; as root its folders are made the user's.
            PosixFile::makeFolders(files);
            PosixFile::makeFolders(QFileInfo(files).path() + QStringLiteral("/info"));
        }
        if (!authMoveFile(path, destination)) {
            return false;
        }
        // So that the desktop's trash can put it back.
        Trash::writeTrashInfo(destination, path);
        return true;
    });
}

bool VTAuthorization::authTrashFolderContents(const QString &folder, bool deleteOnRootAccount)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (VTLocalPaths::isPathSystemDirectory(folder, true)) {
            Console::log(VTFormat::string(
                QStringLiteral(
                    "Unable to trash folder contents of path %@ because it is a system directory."),
                folder));
            return false;
        }
        const bool remove = deletesOnRootAccount(deleteOnRootAccount);
        bool all = true;
        for (const QString &name : folderEntries(folder)) {
            const QString entry = VTLocalPaths::appendPathComponent(folder, name);
            const bool done =
                remove ? authExecTask(VTToolPaths::rm(),
                                      {QStringLiteral("-R"), QStringLiteral("-f"), entry}) == 0
                       : authTrashFile(entry);
            all = done && all;
        }
        return all;
    });
}

bool VTAuthorization::authRemoveFile(const QString &path)
{
    return VTException::guard(VT_METHOD, false, [&] {
        if (VTLocalPaths::isPathSystemDirectory(path, true)) {
            Console::log(VTFormat::string(
                QStringLiteral("Unable to delete path %@ because it is a system directory."),
                path));
            return false;
        }
        return runTool(VTToolPaths::rm(), {QStringLiteral("-Rdf"), path});
    });
}

bool VTAuthorization::authCreateDir(const QString &path)
{
    return VTException::guard(VT_METHOD, false, [&] {
        const QStringList arguments{QStringLiteral("-p"), path};
        if (isRoot()) {
            VTTask::runTaskAndReturn(VTToolPaths::mkdir(), arguments);
            return true;
        }
        if (authExecTask(VTToolPaths::mkdir(), arguments) != 0) {
            return false;
        }
        Clock::current().sleepFor(std::chrono::microseconds(500));
        return true;
    });
}
