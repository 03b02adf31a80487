#pragma once

#include "PlistDict.h"

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
    // What the file was when it was last read: its identity, size and times (an atomic
    // write by anyone gives the file a new inode, so a change is seen even when size and
    // modification time stay the same).
    struct FileStamp
    {
        bool exists = false;
        quint64 device = 0;
        quint64 inode = 0;
        qint64 size = 0;
        qint64 modifiedNs = 0;
        qint64 changedNs = 0;
        bool operator==(const FileStamp &) const = default;
    };
    struct CachedFile
    {
        bool valid = false;
        FileStamp stamp;
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
