#pragma once

#include <QString>

#include <sys/types.h>

#include <memory>
#include <optional>

// Who the process is and who sits at the console. Every user-dependent rule asks this one
// seam, so tests can play root and an ordinary user on the same machine.
class Identity
{
public:
    virtual ~Identity();

    virtual uid_t realUserId() const = 0;
    // The short name of the real user.
    virtual QString userName() const = 0;
    // The process's own home folder (HOME, else the password database).
    virtual std::optional<QString> homeDirectory() const = 0;
    // A user's home folder; VT_CONSOLE_HOME for the console user when it is set.
    virtual std::optional<QString> homeDirectoryForUser(const QString &name) const = 0;
    virtual std::optional<uid_t> userIdForName(const QString &name) const = 0;
    // The raw console answer: the user of the active graphical session of seat0, the
    // string "loginwindow" when a login screen holds it, or no value when nobody does.
    virtual std::optional<QString> consoleUser() const = 0;
    // setuid(2); false when the system refuses.
    virtual bool setUserId(uid_t uid) = 0;

    bool isRoot() const { return realUserId() == 0; }

    static Identity &current();
    // Replaces the identity for the whole process (tests); null restores the real one.
    static void setCurrent(std::shared_ptr<Identity> identity);
};
