#pragma once

#include "platform/Identity.h"

#include <QMap>

// An identity the test sets up: who the process is, who is at the console and where the
// homes are. Installed for the life of the object (see Scoped).
class FakeIdentity : public Identity
{
public:
    uid_t uid = 1000;
    QString name = QStringLiteral("anna");
    std::optional<QString> home;
    // The console answer as the platform gives it ("loginwindow" for a login screen).
    std::optional<QString> console;
    QMap<QString, QString> homes;
    QMap<QString, uid_t> uids;

    uid_t realUserId() const override { return uid; }
    QString userName() const override { return name; }
    std::optional<QString> homeDirectory() const override { return home; }
    std::optional<QString> homeDirectoryForUser(const QString &user) const override;
    std::optional<uid_t> userIdForName(const QString &user) const override;
    std::optional<QString> consoleUser() const override { return console; }
    bool setUserId(uid_t newUid) override;

    // Installs a fake identity until the guard goes away.
    class Scoped
    {
    public:
        Scoped();
        ~Scoped();
        FakeIdentity &operator*() { return *m_identity; }
        FakeIdentity *operator->() { return m_identity.get(); }

    private:
        std::shared_ptr<FakeIdentity> m_identity;
    };
};
