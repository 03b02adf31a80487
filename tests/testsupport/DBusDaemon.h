#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <optional>
#include <string>

// A private session bus for one test: a dbus-daemon of its own, with no service
// activation, reached through DBUS_SESSION_BUS_ADDRESS while the object lives. The
// variable's old value is restored and the daemon stopped when it goes away.
class DBusDaemon
{
public:
    struct Options
    {
        // Lets every user connect (by default only the daemon's own user may), with a
        // socket folder everyone can reach.
        bool allowAnyUser = false;
        // Listens on this socket instead of one in a folder of its own, so that a second
        // daemon can take over the same address.
        QString socketPath;
    };

    DBusDaemon();
    explicit DBusDaemon(const Options &options);
    ~DBusDaemon();
    DBusDaemon(const DBusDaemon &) = delete;
    DBusDaemon &operator=(const DBusDaemon &) = delete;

    bool isRunning() const;
    // The bus address, empty when the daemon did not start.
    QString address() const { return m_address; }
    // Why the daemon did not start.
    QString error() const { return m_error; }
    qint64 processId() const;

    // Stops the daemon now (the address stays set).
    void stop();

private:
    void start(const Options &options);

    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_address;
    QString m_error;
    std::optional<std::string> m_savedAddress;
};
