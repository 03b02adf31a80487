#include "PosixIdentity.h"

#include "ConsoleUser.h"
#include "Environment.h"
#include "FileNames.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace {

struct PasswdEntry
{
    uid_t uid = 0;
    QString name;
    QString home;
};

std::optional<PasswdEntry> lookup(const char *name, std::optional<uid_t> uid)
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(static_cast<size_t>(size > 0 ? size : 16384));
    struct passwd entry
    {};
    struct passwd *result = nullptr;
    const int rc = name ? getpwnam_r(name, &entry, buffer.data(), buffer.size(), &result)
                        : getpwuid_r(*uid, &entry, buffer.data(), buffer.size(), &result);
    if (rc != 0 || !result) {
        return std::nullopt;
    }
    return PasswdEntry{entry.pw_uid, QString::fromLocal8Bit(entry.pw_name),
                       FileNames::decode(QByteArray(entry.pw_dir))};
}

} // namespace

uid_t PosixIdentity::realUserId() const
{
    return getuid();
}

QString PosixIdentity::userName() const
{
    if (auto entry = lookup(nullptr, getuid())) {
        return entry->name;
    }
    return QString::number(getuid());
}

std::optional<QString> PosixIdentity::homeDirectory() const
{
    if (auto home = Environment::value("HOME"); home && !home->isEmpty()) {
        return *home;
    }
    if (auto entry = lookup(nullptr, getuid())) {
        return entry->home;
    }
    return std::nullopt;
}

std::optional<QString> PosixIdentity::homeDirectoryForUser(const QString &name) const
{
    if (name.isEmpty()) {
        return std::nullopt;
    }
    const auto consoleHome = Environment::value("VT_CONSOLE_HOME");
    const auto consoleName = Environment::value("VT_CONSOLE_USER");
    if (consoleHome && !consoleHome->isEmpty() && consoleName && *consoleName == name) {
        return *consoleHome;
    }
    if (auto entry = lookup(name.toLocal8Bit().constData(), std::nullopt)) {
        return entry->home;
    }
    return std::nullopt;
}

std::optional<uid_t> PosixIdentity::userIdForName(const QString &name) const
{
    if (auto entry = lookup(name.toLocal8Bit().constData(), std::nullopt)) {
        return entry->uid;
    }
    return std::nullopt;
}

std::optional<QString> PosixIdentity::consoleUser() const
{
    if (auto name = Environment::value("VT_CONSOLE_USER")) {
        if (name->isEmpty()) {
            return std::nullopt;
        }
        return *name;
    }
    return ConsoleUser::query();
}

bool PosixIdentity::setUserId(uid_t uid)
{
    return ::setuid(uid) == 0;
}
