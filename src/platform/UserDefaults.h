#pragma once

#include "PlistDict.h"

#include <QDateTime>
#include <QString>

#include <mutex>
#include <optional>

// An application's preferences: the user's file ~/Library/Preferences/ID.plist, then the
// machine-wide file /Library/Preferences/ID.plist, then the registered defaults. Writes
// go to the user's file (or, for any user, the machine-wide file) atomically.
class UserDefaults
{
public:
    UserDefaults(const QString &userFile, const QString &machineFile);

    // The defaults of the running application (its bundle identifier, else the
    // project's own), in the process's own home.
    static UserDefaults &standardUserDefaults();
    // Tests: forget the shared instance so the next call reads the current environment.
    static void resetStandardUserDefaults();

    void registerDefaults(const PlistDict &defaults);

    PlistValue objectForKey(const QString &key) const;
    // A string, or a number's text; no value otherwise.
    std::optional<QString> stringForKey(const QString &key) const;
    // Numbers are true when not zero; strings by their first letter or integer value.
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;

    bool setObject(const PlistValue &value, const QString &key);
    bool removeObjectForKey(const QString &key);
    // The machine-wide file, for any user of this host.
    bool setObjectForAnyUser(const PlistValue &value, const QString &key);
    // Rereads both files.
    void synchronize();

    QString userFile() const { return m_userFile; }
    QString machineFile() const { return m_machineFile; }

private:
    struct CachedFile
    {
        QDateTime modified;
        qint64 size = -1;
        PlistDict values;
    };
    static const PlistDict &load(const QString &path, CachedFile &cache);
    static bool update(const QString &path, const QString &key, const PlistValue *value);

    QString m_userFile;
    QString m_machineFile;
    PlistDict m_registered;
    mutable std::recursive_mutex m_mutex;
    mutable CachedFile m_user;
    mutable CachedFile m_machine;
};
