#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

// A notification for every interested process of the user's session: a D-Bus signal named
// after the notification, interface "com.vantreel.DistributedNotification", object path
// "/com/vantreel/DistributedNotification", on the session bus. An instance listens for one
// name and emits received() for each one posted, by any process.
class DistributedNotification : public QObject
{
    Q_OBJECT

public:
    // False when there is no session bus or the name is no valid signal name.
    static bool post(const QString &name);

    explicit DistributedNotification(const QString &name, QObject *parent = nullptr);
    ~DistributedNotification() override;

    QString name() const { return m_name; }
    // False when there was no session bus to listen on.
    bool isListening() const { return m_listening; }

Q_SIGNALS:
    void received(const QString &name);

private Q_SLOTS:
    void deliver();

private:
    QString m_name;
    QDBusConnection m_bus;
    bool m_listening = false;
};
