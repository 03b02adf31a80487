#include "FakeIdentity.h"

std::optional<QString> FakeIdentity::homeDirectoryForUser(const QString &user) const
{
    return homes.contains(user) ? std::optional<QString>(homes.value(user)) : std::nullopt;
}

std::optional<uid_t> FakeIdentity::userIdForName(const QString &user) const
{
    return uids.contains(user) ? std::optional<uid_t>(uids.value(user)) : std::nullopt;
}

bool FakeIdentity::setUserId(uid_t newUid)
{
    uid = newUid;
    return true;
}

FakeIdentity::Scoped::Scoped() : m_identity(std::make_shared<FakeIdentity>())
{
    Identity::setCurrent(m_identity);
}

FakeIdentity::Scoped::~Scoped()
{
    Identity::setCurrent(nullptr);
}
