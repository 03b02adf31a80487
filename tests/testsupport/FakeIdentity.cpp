#include "FakeIdentity.h"

std::optional<QString> FakeIdentity::homeDirectoryForUser(const QString &user) const
{
    if (homes.contains(user)) {
        return homes.value(user);
    }
    return std::nullopt;
}

std::optional<uid_t> FakeIdentity::userIdForName(const QString &user) const
{
    if (uids.contains(user)) {
        return uids.value(user);
    }
    return std::nullopt;
}

bool FakeIdentity::setUserId(uid_t newUid)
{
    setUserIdCalls.push_back(newUid);
    if (!allowSetUserId && newUid != uid) {
        return false;
    }
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
