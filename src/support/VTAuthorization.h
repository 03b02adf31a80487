#pragma once

#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>

class PrivilegedHelperClient;

// File operations and programs with administrator rights. As root the tools run directly;
// otherwise the right comes from polkit through the privileged helper, started once and
// kept until authEnd. Every destructive operation refuses system folders.
class VTAuthorization
{
public:
    // The one instance, created on the first call (with a GUI or not); later calls return it
    // whatever their argument.
    static VTAuthorization &sharedController(bool gui);
    static VTAuthorization &sharedController();
    // Tests: ends the helper and forgets the instance.
    static void resetForTesting();

    bool hasGUI() const { return m_hasGUI; }
    bool canAuthorize() const;
    bool isAuthorized() const;

    bool authStart();
    // A null user name or password is refused; the credentials are used once, never kept.
    bool authStartWithUser(const QString &userName, const QString &password);
    void authEnd();

    // 0 on success, -2 when no file is at the tool path, -1 when not authorized; otherwise
    // the status of the privileged call.
    int authExecTask(const QString &toolPath, const QStringList &parameters, bool async = true);
    // Runs the tool and waits for it: the tool's own exit status, or as authExecTask a
    // negative value when it could not be run.
    int authRunTask(const QString &toolPath, const QStringList &parameters);

    // Null paths are refused with the system's messages.
    bool authCopyFile(const QString &source, const QString &destination);
    bool authMoveFile(const QString &source, const QString &destination);
    bool authMoveFolderContents(const QString &source, const QString &destination);
    bool authTrashFile(const QString &path, bool deleteOnRootAccount = false);
    bool authTrashFolderContents(const QString &folder, bool deleteOnRootAccount = false);
    bool authRemoveFile(const QString &path);
    bool authCreateDir(const QString &path);

    ~VTAuthorization();

private:
    explicit VTAuthorization(bool gui);
    // Starts the helper, interactively or with the given credentials; reports failures.
    bool startHelper(const QString *userName, const QString *password);
    // One request to the running helper; the status of the privileged call.
    int callHelper(const QString &toolPath, const QStringList &parameters, bool async);
    // The tool of a file operation: directly as root (not waited for), else with privileges.
    bool runTool(const QString &toolPath, const QStringList &arguments);
    // Where authTrashFile puts the path, collisions resolved; null when there is no trash.
    QString trashDestination(const QString &path) const;
    bool deletesOnRootAccount(bool deleteOnRootAccount) const;

    bool m_hasGUI = false;
    // The user's home, taken at creation when not running as root; null as root.
    QString m_userDirectory;
    std::unique_ptr<PrivilegedHelperClient> m_authRef;
};
