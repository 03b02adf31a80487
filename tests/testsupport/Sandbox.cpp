#include "Sandbox.h"

#include "platform/Bundle.h"
#include "platform/FileNames.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "support/VTLog.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Removes a tree by its byte names: Qt cannot name files whose names are not UTF-8, and
// some tests make exactly those.
void removeTree(int parent, const char *name)
{
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        if (DIR *dir = ::fdopendir(fd)) {
            while (const dirent *entry = ::readdir(dir)) {
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                    removeTree(::dirfd(dir), entry->d_name);
                }
            }
            ::closedir(dir);
        } else {
            ::close(fd);
        }
        ::fchmodat(parent, name, 0700, 0);
        ::unlinkat(parent, name, AT_REMOVEDIR);
        return;
    }
    ::unlinkat(parent, name, 0);
}

} // namespace

Sandbox::Sandbox() : m_dir(QDir::tempPath() + QStringLiteral("/kairo-test-XXXXXX"))
{
    m_dir.setAutoRemove(false);
    QDir().mkpath(home());
    QDir().mkpath(localRoot());
    setEnv("HOME", home());
    setEnv("VT_LOCAL_ROOT", localRoot());
    setEnv("XDG_DATA_HOME", std::nullopt);
    setEnv("XDG_CONFIG_HOME", std::nullopt);
    setEnv("XDG_RUNTIME_DIR", std::nullopt);
    setEnv("VT_CONSOLE_USER", std::nullopt);
    setEnv("VT_CONSOLE_HOME", std::nullopt);
    setEnv("VT_APP_SEARCH_PATH", std::nullopt);
    setEnv("VT_LAUNCHCTL", std::nullopt);
    // No test may ever reach a real password prompt.
    setEnv("VT_ELEVATE", QStringLiteral("/bin/false"));
    setEnv("DBUS_SESSION_BUS_ADDRESS", QStringLiteral("disabled:"));
    setEnv("DISPLAY", std::nullopt);
    setEnv("WAYLAND_DISPLAY", std::nullopt);
    VTLog::resetForTesting();
    UserDefaults::resetStandardUserDefaults();
    Workspace::invalidateCaches();
}

Sandbox::~Sandbox()
{
    VTLog::finishWriting();
    VTLog::resetForTesting();
    for (const auto &[name, value] : m_saved) {
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }
    UserDefaults::resetStandardUserDefaults();
    Workspace::invalidateCaches();
    Bundle::setMainBundlePath(std::nullopt);
    removeTree(AT_FDCWD, QFile::encodeName(m_dir.path()).constData());
}

QString Sandbox::home() const
{
    return m_dir.path() + QStringLiteral("/home/anna");
}

QString Sandbox::localRoot() const
{
    return m_dir.path() + QStringLiteral("/root");
}

QString Sandbox::file(const QString &relative) const
{
    const QString full = m_dir.path() + QLatin1Char('/') + relative;
    QDir().mkpath(QFileInfo(full).absolutePath());
    return full;
}

QString Sandbox::mkdir(const QString &relative) const
{
    const QString full = m_dir.path() + QLatin1Char('/') + relative;
    QDir().mkpath(full);
    return full;
}

void Sandbox::setEnv(const char *name, const std::optional<QString> &value)
{
    if (m_saved.find(name) == m_saved.end()) {
        const char *old = getenv(name);
        m_saved[name] = old ? std::optional<std::string>(old) : std::nullopt;
    }
    if (value) {
        setenv(name, FileNames::encode(*value).constData(), 1);
    } else {
        unsetenv(name);
    }
}
