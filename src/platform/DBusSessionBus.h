#pragma once

#include "SessionBus.h"

#include <QElapsedTimer>
#include <QString>

#include <sys/types.h>

#include <mutex>
#include <optional>

// The real session bus. Its address comes from DBUS_SESSION_BUS_ADDRESS, else
// $XDG_RUNTIME_DIR/bus, else /run/user/UID/bus; a bus is never autolaunched. As root the bus
// is the console user's, reached with that user's effective user id, since a session bus
// accepts only its own user. The connection is kept for the process and made again when
// it breaks or the address changes; a bus that does not answer counts as none.
class DBusSessionBus : public SessionBus
{
public:
    struct Target
    {
        QString address;
        // The effective user id to connect with; no value: the process's own.
        std::optional<uid_t> connectAs;
    };

    ~DBusSessionBus() override;

    std::optional<QDBusConnection> connection() override;

    // Where the bus of the user meant is, or no value when there is none.
    static std::optional<Target> target();
    // Drops an address's autolaunch and disabled entries; empty when none is left.
    static QString usableAddress(const QString &address);
    // A socket path as a D-Bus address value.
    static QString unixPathAddress(const QString &path);

private:
    void drop();

    std::mutex m_mutex;
    QString m_name; // the cached connection's name, empty when there is none
    QString m_key;  // the target it was made for
    // A target whose bus did not answer, and since when.
    QString m_silentKey;
    QElapsedTimer m_silentSince;
};
