#include "Sandbox.h"

#include "platform/Bundle.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "support/VTLog.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>

Sandbox::Sandbox() : m_dir(QDir::tempPath() + QStringLiteral("/kairo-test-XXXXXX"))
{
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
        setenv(name, value->toLocal8Bit().constData(), 1);
    } else {
        unsetenv(name);
    }
}
