#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

// A client application's callback object on a test bus, as the command line's caller
// publishes it: it records every error text and finish it is sent.
class CallbackClient : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.vantreel.VTTesselErrorCallbackProtocol")

public:
    explicit CallbackClient(
        const QString &busAddress,
        const QString &serviceName = QStringLiteral("com.vantreel.VTQuillClientCallback"),
        const QString &objectPath = QStringLiteral("/VTQuillClientCallback"));
    ~CallbackClient() override;

    bool isRegistered() const { return m_registered; }
    // The error texts received so far, waiting (with the event loop running) until at least
    // count have arrived or a few seconds have passed.
    QStringList errors(int count);
    QStringList appNames() const { return m_appNames; }

public Q_SLOTS:
    void postErrorStringUserInfo(const QString &message, const QVariantMap &userInfo);
    void postFinishedTask();

private:
    QDBusConnection m_connection;
    bool m_registered = false;
    QStringList m_errors;
    QStringList m_appNames;
};
