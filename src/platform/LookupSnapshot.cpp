#include "LookupSnapshot.h"

#include "FileNames.h"

namespace {

thread_local LookupSnapshot *t_current = nullptr;

} // namespace

LookupSnapshot::LookupSnapshot()
{
    if (!t_current) {
        t_current = this;
        m_installed = true;
    }
}

LookupSnapshot::~LookupSnapshot()
{
    if (m_installed) {
        t_current = nullptr;
    }
}

LookupSnapshot *LookupSnapshot::current()
{
    return t_current;
}

std::optional<std::optional<QString>> LookupSnapshot::applicationPath(const QString &bundleID) const
{
    const auto it = m_applicationPaths.constFind(bundleID);
    if (it == m_applicationPaths.constEnd()) {
        return std::nullopt;
    }
    return *it;
}

void LookupSnapshot::rememberApplicationPath(const QString &bundleID,
                                             const std::optional<QString> &path)
{
    m_applicationPaths.insert(bundleID, path);
}

std::optional<std::optional<PlistDict>> LookupSnapshot::dictionary(const QString &path) const
{
    const auto it = m_dictionaries.constFind(path);
    if (it == m_dictionaries.constEnd()) {
        return std::nullopt;
    }
    return *it;
}

void LookupSnapshot::rememberDictionary(const QString &path, const std::optional<PlistDict> &value)
{
    m_dictionaries.insert(path, value);
}

bool LookupSnapshot::fileExists(const QString &path)
{
    const auto it = m_existingFiles.constFind(path);
    if (it != m_existingFiles.constEnd()) {
        return *it;
    }
    const bool exists = FileNames::exists(path);
    m_existingFiles.insert(path, exists);
    return exists;
}
