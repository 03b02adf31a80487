#pragma once

#include "Identity.h"

// The real identity: getuid, the password database, sd-login for the console, setuid.
// VT_CONSOLE_USER (set and empty: nobody) and VT_CONSOLE_HOME override the console.
class PosixIdentity : public Identity
{
public:
    uid_t realUserId() const override;
    QString userName() const override;
    std::optional<QString> homeDirectory() const override;
    std::optional<QString> homeDirectoryForUser(const QString &name) const override;
    std::optional<uid_t> userIdForName(const QString &name) const override;
    std::optional<QString> consoleUser() const override;
    bool setUserId(uid_t uid) override;
};
