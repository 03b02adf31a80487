#pragma once

#include <QString>
#include <QTemporaryDir>

#include <map>
#include <optional>
#include <string>

// A temporary machine for one test: a home folder and a folder standing for "/", with
// HOME, VT_LOCAL_ROOT, the XDG folders and the console user pointing into it. Everything
// set is restored, and the folder removed, when the sandbox goes away.
class Sandbox
{
public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    QString path() const { return m_dir.path(); }
    QString home() const;
    QString localRoot() const;
    // A path inside the sandbox (relative to its top folder); parent folders are made.
    QString file(const QString &relative) const;
    QString mkdir(const QString &relative) const;

    // Sets (or with no value unsets) an environment variable until the sandbox ends.
    void setEnv(const char *name, const std::optional<QString> &value);

private:
    QTemporaryDir m_dir;
    std::map<std::string, std::optional<std::string>> m_saved;
};
