#pragma once

#include "UnitHeader.h"

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <optional>

// One folder of unit files (the user's or the system's). Writing and removing go only to
// units that carry the bridge's marker or do not exist yet.
class UnitFolder
{
public:
    enum class State
    {
        Missing,
        Ours,
        Foreign
    };

    // Files and folders created for an owner (root acting for a user) are handed to them.
    explicit UnitFolder(QString path, std::optional<uid_t> owner = std::nullopt)
        : m_path(std::move(path)), m_owner(owner)
    {}

    const QString &path() const { return m_path; }
    QString filePath(const QString &unitName) const;
    State state(const QString &unitName) const;
    // The file's text; empty when it cannot be read.
    QString text(const QString &unitName) const;
    // The header of a job's service written by the bridge.
    std::optional<UnitHeader> header(const QString &unitName) const;
    // The services of every job the bridge loaded into this folder, sorted by name.
    QStringList jobServices() const;

    // Replaces the unit atomically (mode 644). Refuses a unit the bridge did not write.
    bool write(const QString &unitName, const QString &text, QString *error) const;
    // Removes the unit; a missing unit is no error. Refuses a unit the bridge did not write.
    bool remove(const QString &unitName, QString *error) const;

private:
    // Opens the folder, creating it and its missing parents and giving the new ones to the
    // owner; -1 on failure.
    int makeFolder() const;

    QString m_path;
    std::optional<uid_t> m_owner;
};
