#pragma once

#include <QDBusConnection>

#include <memory>
#include <optional>

// The session bus of the user meant: the process's own user, or the user at the console
// when the process runs as root. Tests install a bus of their own.
class SessionBus
{
public:
    virtual ~SessionBus();

    // A connected bus, or no value when there is none. Never starts a bus.
    virtual std::optional<QDBusConnection> connection() = 0;

    static SessionBus &current();
    // Replaces the bus for the whole process; null restores the real one.
    static void setCurrent(std::shared_ptr<SessionBus> bus);
};
