#include "DistributedNotification.h"

#include "SessionBus.h"

#include <QDBusMessage>

namespace {
const QString kInterface = QStringLiteral("com.vantreel.DistributedNotification");
const QString kPath = QStringLiteral("/com/vantreel/DistributedNotification");
// The bus's rule for member names: letters, digits and "_", not beginning with a digit.
bool isSignalName(const QString &name)
{
    if (name.isEmpty() || name.size() > 255 || name.at(0).isDigit()) {
        return false;
    }
    for (const QChar c : name) {
        if (!(c.isDigit() || c == QLatin1Char('_') ||
              (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
              (c >= QLatin1Char('A') && c <= QLatin1Char('Z')))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool DistributedNotification::post(const QString &name)
{
    if (!isSignalName(name)) {
        return false;
    }
    std::optional<QDBusConnection> bus = SessionBus::current().connection();
    if (!bus) {
        return false;
    }
    return bus->send(QDBusMessage::createSignal(kPath, kInterface, name));
}

DistributedNotification::DistributedNotification(const QString &name, QObject *parent)
    : QObject(parent), m_name(name), m_bus(QString())
{
    if (!isSignalName(name)) {
        return;
    }
    if (std::optional<QDBusConnection> bus = SessionBus::current().connection()) {
        m_bus = *bus;
        m_listening = m_bus.connect(QString(), kPath, kInterface, m_name, this, SLOT(deliver()));
    }
}

DistributedNotification::~DistributedNotification()
{
    if (m_listening) {
        m_bus.disconnect(QString(), kPath, kInterface, m_name, this, SLOT(deliver()));
    }
}

void DistributedNotification::deliver()
{
    Q_EMIT received(m_name);
}
