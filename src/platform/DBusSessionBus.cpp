#include "DBusSessionBus.h"

#include "Console.h"
#include "Environment.h"
#include "Identity.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QFileInfo>
#include <QStringList>

#include <atomic>
#include <cstdlib>
#include <unistd.h>

namespace {

constexpr int kHelloTimeoutMs = 1000;
// A bus that let the Hello time out is not asked again for this long: every try costs the
// whole time limit.
constexpr qint64 kSilentMemoryMs = 10000;

// The console answer while a login screen holds the console.
const QString kLoginWindow = QStringLiteral("loginwindow");

std::optional<QString> existingSocket(const QString &path)
{
    if (QFileInfo::exists(path)) {
        return DBusSessionBus::unixPathAddress(path);
    }
    return std::nullopt;
}

std::optional<DBusSessionBus::Target> targetFor(const QString &address,
                                                std::optional<uid_t> connectAs)
{
    const QString usable = DBusSessionBus::usableAddress(address);
    if (usable.isEmpty()) {
        return std::nullopt;
    }
    return DBusSessionBus::Target{usable, connectAs};
}

// Qt's connectToBus aborts the whole process (a libdbus check) when a bus takes the
// connection but never answers its Hello: a hung bus, or one whose policy drops the reply.
// So a peer connection says Hello first, with a short time limit, and is closed cleanly.
enum class Hello
{
    Answered,
    Refused,
    TimedOut
};

Hello sayHello(const QString &address, const QString &probeName)
{
    Hello answer = Hello::Refused;
    {
        QDBusConnection peer = QDBusConnection::connectToPeer(address, probeName);
        if (peer.isConnected()) {
            const QDBusMessage reply =
                peer.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                         QStringLiteral("/org/freedesktop/DBus"),
                                                         QStringLiteral("org.freedesktop.DBus"),
                                                         QStringLiteral("Hello")),
                          QDBus::Block, kHelloTimeoutMs);
            if (reply.type() == QDBusMessage::ReplyMessage) {
                answer = Hello::Answered;
            } else if (QDBusError(reply).type() == QDBusError::NoReply) {
                answer = Hello::TimedOut;
            }
        }
    }
    QDBusConnection::disconnectFromPeer(probeName);
    return answer;
}

} // namespace

DBusSessionBus::~DBusSessionBus()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    drop();
}

QString DBusSessionBus::usableAddress(const QString &address)
{
    QStringList kept;
    for (const QString &entry : address.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QString trimmed = entry.trimmed();
        const QString transport = trimmed.section(QLatin1Char(':'), 0, 0);
        if (trimmed.isEmpty() || !trimmed.contains(QLatin1Char(':')) ||
            transport == QLatin1String("autolaunch") || transport == QLatin1String("disabled")) {
            continue;
        }
        kept.append(trimmed);
    }
    return kept.join(QLatin1Char(';'));
}

QString DBusSessionBus::unixPathAddress(const QString &path)
{
    // Bytes outside the optionally escaped set are written as %XX.
    QString escaped;
    for (const char c : path.toLocal8Bit()) {
        const auto u = static_cast<unsigned char>(c);
        if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
            u == '-' || u == '_' || u == '/' || u == '.' || u == '\\' || u == '*') {
            escaped += QLatin1Char(c);
        } else {
            escaped += QStringLiteral("%%1").arg(u, 2, 16, QLatin1Char('0'));
        }
    }
    return QStringLiteral("unix:path=") + escaped;
}

std::optional<DBusSessionBus::Target> DBusSessionBus::target()
{
    const Identity &identity = Identity::current();
    const std::optional<QString> fromEnvironment = Environment::value("DBUS_SESSION_BUS_ADDRESS");
    if (identity.isRoot()) {
        const std::optional<QString> console = identity.consoleUser();
        if (console && !console->isEmpty() && *console != kLoginWindow) {
            const std::optional<uid_t> uid = identity.userIdForName(*console);
            if (!uid) {
                return std::nullopt;
            }
            if (*uid != 0) {
                // Root's own XDG_RUNTIME_DIR would name root's bus, not the user's.
                if (fromEnvironment) {
                    return targetFor(*fromEnvironment, *uid);
                }
                if (auto address = existingSocket(QStringLiteral("/run/user/%1/bus").arg(*uid))) {
                    return Target{*address, *uid};
                }
                return std::nullopt;
            }
        }
        // Nobody at the console (or root itself there): only root's own bus is left.
    }
    if (fromEnvironment) {
        return targetFor(*fromEnvironment, std::nullopt);
    }
    if (auto runtime = Environment::value("XDG_RUNTIME_DIR"); runtime && !runtime->isEmpty()) {
        if (auto address = existingSocket(*runtime + QStringLiteral("/bus"))) {
            return Target{*address, std::nullopt};
        }
    }
    if (auto address =
            existingSocket(QStringLiteral("/run/user/%1/bus").arg(identity.realUserId()))) {
        return Target{*address, std::nullopt};
    }
    return std::nullopt;
}

void DBusSessionBus::drop()
{
    if (!m_name.isEmpty()) {
        QDBusConnection::disconnectFromBus(m_name);
        m_name.clear();
        m_key.clear();
    }
}

std::optional<QDBusConnection> DBusSessionBus::connection()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::optional<Target> where = target();
    if (!where) {
        drop();
        return std::nullopt;
    }
    const QString key =
        where->address + QLatin1Char('|') +
        (where->connectAs ? QString::number(*where->connectAs) : QStringLiteral("self"));
    if (key == m_silentKey && m_silentSince.isValid() &&
        m_silentSince.elapsed() < kSilentMemoryMs) {
        return std::nullopt;
    }
    if (!m_name.isEmpty()) {
        QDBusConnection cached(m_name);
        if (m_key == key && cached.isConnected()) {
            return cached;
        }
        drop();
    }

    // Connection names are process-wide: two instances must never share one.
    static std::atomic<int> serial{0};
    const QString name = QStringLiteral("kairo-session-bus-%1").arg(++serial);
    // The bus checks the credentials of the connecting socket, so the switch of the
    // effective user id must hold while the connection is made.
    const uid_t savedEuid = geteuid();
    const bool switchUser = where->connectAs && *where->connectAs != savedEuid;
    if (switchUser && seteuid(*where->connectAs) != 0) {
        return std::nullopt;
    }
    QDBusConnection bus(QString{});
    const Hello hello = sayHello(where->address, name + QStringLiteral("-probe"));
    if (hello == Hello::Answered) {
        bus = QDBusConnection::connectToBus(where->address, name);
    }
    if (switchUser && seteuid(savedEuid) != 0) {
        // A process that could switch away can switch back; never go on as the wrong user.
        Console::log(QStringLiteral("Unable to restore the effective user id %1").arg(savedEuid));
        std::abort();
    }
    if (!bus.isConnected()) {
        QDBusConnection::disconnectFromBus(name);
        if (hello == Hello::TimedOut) {
            m_silentKey = key;
            m_silentSince.start();
        }
        return std::nullopt;
    }
    m_name = name;
    m_key = key;
    return bus;
}
