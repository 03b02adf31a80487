#include "VTTaskNotification.h"

#include "VTException.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/SessionBus.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QSet>
#include <QVariantMap>
#include <QXmlStreamReader>

#include <chrono>

// The callback object of a client is a D-Bus object under a well-known name. "Responds to
// a selector" is read from the object's introspection data: a method of the protocol's
// interface with the same name and the same input signature. Messages go out with no
// reply expected, like the one-way methods they stand for.

namespace {

using namespace std::chrono_literals;

const QString kProtocol = QStringLiteral("com.vantreel.VTTesselErrorCallbackProtocol");

struct Client
{
    QString service;
    QString path;
};

// Tried in this order.
const Client kClients[] = {
    {QStringLiteral("com.vantreel.VTQuillClientCallback"),
     QStringLiteral("/VTQuillClientCallback")},
    {QStringLiteral("com.vantreel.VTTesselClientCallback"),
     QStringLiteral("/VTTesselClientCallback")},
};

// The bus itself answers at once; a client gets a little longer to describe itself. Both
// stay far below the messaging layer's default so that a hung client costs little.
constexpr int kBusTimeoutMs = 1000;
constexpr int kIntrospectTimeoutMs = 500;
// Lets the one-way message leave before the process goes on (and usually exits).
constexpr std::chrono::microseconds kPause = 15000us;

struct Message
{
    QString member;
    QString signature;
    QVariantList arguments;
};

[[noreturn]] void raiseReply(const QDBusMessage &reply, const QString &what)
{
    const QDBusError::ErrorType type = QDBusError(reply).type();
    const bool timedOut =
        type == QDBusError::NoReply || type == QDBusError::Timeout || type == QDBusError::TimedOut;
    throw VTException(timedOut ? QStringLiteral("NSPortTimeoutException") : reply.errorName(),
                      what + QStringLiteral(": ") + reply.errorMessage());
}

QDBusMessage call(QDBusConnection &bus, QDBusMessage message, int timeoutMs, const QString &what)
{
    message.setAutoStartService(false);
    const QDBusMessage reply = bus.call(message, QDBus::Block, timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        raiseReply(reply, what);
    }
    return reply;
}

std::optional<Client> findClient(QDBusConnection &bus)
{
    for (const Client &client : kClients) {
        const QDBusMessage reply =
            call(bus,
                 QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                QStringLiteral("/org/freedesktop/DBus"),
                                                QStringLiteral("org.freedesktop.DBus"),
                                                QStringLiteral("NameHasOwner"))
                     << client.service,
                 kBusTimeoutMs, QStringLiteral("Unable to look up ") + client.service);
        if (reply.arguments().value(0).toBool()) {
            return client;
        }
    }
    return std::nullopt;
}

// The protocol's methods the object names, as "member(input signature)".
QSet<QString> protocolMethods(QDBusConnection &bus, const Client &client)
{
    const QDBusMessage reply =
        call(bus,
             QDBusMessage::createMethodCall(client.service, client.path,
                                            QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                            QStringLiteral("Introspect")),
             kIntrospectTimeoutMs, QStringLiteral("Unable to introspect ") + client.service);

    QSet<QString> methods;
    QXmlStreamReader xml(reply.arguments().value(0).toString());
    int depth = 0;
    bool inProtocol = false;
    QString method;
    QString signature;
    while (!xml.atEnd()) {
        switch (xml.readNext()) {
        case QXmlStreamReader::StartElement: {
            ++depth;
            const auto attributes = xml.attributes();
            if (depth == 2 && xml.name() == QLatin1String("interface")) {
                inProtocol = attributes.value(QLatin1String("name")) == kProtocol;
            } else if (inProtocol && depth == 3 && xml.name() == QLatin1String("method")) {
                method = attributes.value(QLatin1String("name")).toString();
                signature.clear();
            } else if (inProtocol && depth == 4 && !method.isEmpty() &&
                       xml.name() == QLatin1String("arg")) {
                const auto direction = attributes.value(QLatin1String("direction"));
                if (direction.isEmpty() || direction == QLatin1String("in")) {
                    signature += attributes.value(QLatin1String("type"));
                }
            }
            break;
        }
        case QXmlStreamReader::EndElement:
            if (inProtocol && depth == 3 && xml.name() == QLatin1String("method")) {
                methods.insert(method + QLatin1Char('(') + signature + QLatin1Char(')'));
                method.clear();
            } else if (depth == 2 && xml.name() == QLatin1String("interface")) {
                inProtocol = false;
            }
            --depth;
            break;
        default:
            break;
        }
    }
    if (xml.hasError()) {
        throw VTException(QStringLiteral("NSInvalidReceivePortException"),
                          QStringLiteral("Unreadable introspection data from %1: %2")
                              .arg(client.service, xml.errorString()));
    }
    return methods;
}

// Sends the first of the choices the client's object responds to.
void post(const std::vector<Message> &choices)
{
    std::optional<QDBusConnection> bus = SessionBus::current().connection();
    if (!bus) {
        return;
    }
    const std::optional<Client> client = findClient(*bus);
    if (!client) {
        return;
    }
    const QSet<QString> methods = protocolMethods(*bus, *client);
    for (const Message &choice : choices) {
        if (!methods.contains(choice.member + QLatin1Char('(') + choice.signature +
                              QLatin1Char(')'))) {
            continue;
        }
        QDBusMessage message =
            QDBusMessage::createMethodCall(client->service, client->path, kProtocol, choice.member);
        message.setArguments(choice.arguments);
        message.setAutoStartService(false);
        // A method call given to send() goes out with NO_REPLY_EXPECTED set.
        if (!bus->send(message)) {
            throw VTException(QStringLiteral("NSPortSendException"),
                              QStringLiteral("Unable to send %1 to %2: %3")
                                  .arg(choice.member, client->service, bus->lastError().message()));
        }
        break;
    }
    Clock::current().sleepFor(kPause);
}

} // namespace

void VTTaskNotification::postTaskFinished()
{
    VTException::guard(VT_METHOD, [] {
        post({{QStringLiteral("postFinishedTask"), QString(), {}}});
    });
}

void VTTaskNotification::postTaskErrorString(const QString &message)
{
    VTException::guard(VT_METHOD, [&] {
        const QVariantMap userInfo{{QStringLiteral("appName"), Console::processName()}};
        post({{QStringLiteral("postErrorStringUserInfo"),
               QStringLiteral("sa{sv}"),
               {message, userInfo}},
              {QStringLiteral("postErrorString"), QStringLiteral("s"), {message}}});
    });
}

void VTTaskNotification::postTaskError(const QVariant &error)
{
    VTException::guard(VT_METHOD, [&] {
        const QVariant wrapped = QVariant::fromValue(QDBusVariant(error));
        post({{QStringLiteral("postErrorForApp"),
               QStringLiteral("vs"),
               {wrapped, Console::processName()}},
              {QStringLiteral("postError"), QStringLiteral("v"), {wrapped}}});
    });
}

void VTTaskNotification::postIncrementProgress()
{
    VTException::guard(VT_METHOD, [] {
        post({{QStringLiteral("incrementRemoteProgress"), QString(), {}}});
    });
}

void VTTaskNotification::postDisconnect()
{
    VTException::guard(VT_METHOD, [] {
        post({{QStringLiteral("postDisconnect"), QString(), {}}});
    });
}
