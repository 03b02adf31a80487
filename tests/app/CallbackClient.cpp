#include "CallbackClient.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

CallbackClient::CallbackClient(const QString &busAddress, const QString &serviceName,
                               const QString &objectPath)
    : m_connection(QDBusConnection::connectToBus(busAddress, QStringLiteral("callback-client")))
{
    m_registered = m_connection.isConnected() && m_connection.registerService(serviceName) &&
                   m_connection.registerObject(objectPath, this, QDBusConnection::ExportAllSlots);
}

CallbackClient::~CallbackClient()
{
    QDBusConnection::disconnectFromBus(QStringLiteral("callback-client"));
}

QStringList CallbackClient::errors(int count)
{
    QDeadlineTimer deadline(5000);
    while (m_errors.size() < count && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(5);
    }
    // Anything else already on its way is taken too.
    QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return m_errors;
}

void CallbackClient::postErrorStringUserInfo(const QString &message, const QVariantMap &userInfo)
{
    m_errors.append(message);
    m_appNames.append(userInfo.value(QStringLiteral("appName")).toString());
}

void CallbackClient::postFinishedTask() {}
