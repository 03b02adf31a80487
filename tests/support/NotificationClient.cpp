// A client application's callback object for the notification tests, on the bus of
// DBUS_SESSION_BUS_ADDRESS.
//
//   NotificationClient MODE NAME RECORD
//
// MODE "plain": the protocol's own methods, without incrementRemoteProgress; "rich": those,
// incrementRemoteProgress and the two richer forms; "none": the right names only under
// another interface, or with other arguments. NAME "quill" or "tessel" chooses the
// well-known name and object path. Every message that reaches the object is appended to
// RECORD as one line: member|signature|reply|arguments ("reply" is "reply" when the sender
// waits for one, else "noreply"). Prints "ready" once the name is owned.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QStringList>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/prctl.h>

namespace {

const QString kProtocol = QStringLiteral("com.vantreel.VTTesselErrorCallbackProtocol");

// An interface's introspection data from "method:argtype,argtype method: ...".
QString interfaceXml(const QString &name, const QString &methods)
{
    QString xml = QStringLiteral("  <interface name=\"%1\">\n").arg(name);
    for (const QString &method : methods.split(QLatin1Char(' '))) {
        xml += QStringLiteral("    <method name=\"%1\">\n")
                   .arg(method.section(QLatin1Char(':'), 0, 0));
        for (const QString &type :
             method.section(QLatin1Char(':'), 1).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            xml += QStringLiteral("      <arg direction=\"in\" type=\"%1\"/>\n").arg(type);
        }
        xml += QStringLiteral("    </method>\n");
    }
    return xml + QStringLiteral("  </interface>\n");
}

QString describe(const QVariant &value)
{
    if (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>()) {
        const QVariant inner = qvariant_cast<QDBusVariant>(value).variant();
        return QStringLiteral("variant:") + QString::fromLatin1(inner.typeName()) +
               QLatin1Char(':') + inner.toString();
    }
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        QVariantMap map;
        qvariant_cast<QDBusArgument>(value) >> map;
        QStringList pairs;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            pairs.append(it.key() + QLatin1Char('=') + it.value().toString());
        }
        return QLatin1Char('{') + pairs.join(QLatin1Char(',')) + QLatin1Char('}');
    }
    return value.toString();
}

class CallbackObject : public QDBusVirtualObject
{
public:
    CallbackObject(const QString &mode, const QString &record) : m_mode(mode), m_record(record) {}

    QString introspect(const QString &) const override
    {
        const QString plain = QStringLiteral("postDisconnect: postErrorString:s postError:v "
                                             "postFinishedTask:");
        const QString rich = plain + QStringLiteral(" incrementRemoteProgress: "
                                                    "postErrorStringUserInfo:s,a{sv} "
                                                    "postErrorForApp:v,s");
        if (m_mode != QLatin1String("none")) {
            return interfaceXml(kProtocol, m_mode == QLatin1String("plain") ? plain : rich);
        }
        // The same names where they do not count.
        return interfaceXml(QStringLiteral("com.vantreel.SomethingElse"), rich) +
               interfaceXml(kProtocol,
                            QStringLiteral("postDisconnect:b postErrorString:i postError:s "
                                           "postFinishedTask:s incrementRemoteProgress:i "
                                           "postErrorStringUserInfo:s postErrorForApp:v"));
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &) override
    {
        if (message.interface() == QLatin1String("org.freedesktop.DBus.Introspectable")) {
            return false;
        }
        QStringList fields{message.member(), message.signature(),
                           message.isReplyRequired() ? QStringLiteral("reply")
                                                     : QStringLiteral("noreply")};
        for (const QVariant &argument : message.arguments()) {
            fields.append(describe(argument));
        }
        QFile file(m_record);
        if (file.open(QIODevice::WriteOnly | QIODevice::Append)) {
            file.write(fields.join(QLatin1Char('|')).toUtf8() + '\n');
        }
        return true;
    }

private:
    QString m_mode;
    QString m_record;
};

} // namespace

int main(int argc, char **argv)
{
    // Never outlive the test.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: NotificationClient plain|rich|none quill|tessel RECORD\n");
        return 2;
    }
    const QString mode = QString::fromLocal8Bit(argv[1]);
    const QString which = QString::fromLocal8Bit(argv[2]);
    const QString name = which == QLatin1String("tessel") ? QStringLiteral("VTTesselClientCallback")
                                                          : QStringLiteral("VTQuillClientCallback");
    const char *address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address) {
        return 3;
    }
    QDBusConnection bus =
        QDBusConnection::connectToBus(QString::fromLocal8Bit(address), QStringLiteral("client"));
    if (!bus.isConnected()) {
        std::fprintf(stderr, "NotificationClient: no bus\n");
        return 3;
    }
    CallbackObject object(mode, QString::fromLocal8Bit(argv[3]));
    if (!bus.registerVirtualObject(QLatin1Char('/') + name, &object) ||
        !bus.registerService(QStringLiteral("com.vantreel.") + name)) {
        std::fprintf(stderr, "NotificationClient: cannot register\n");
        return 4;
    }
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), &app,
                SLOT(quit()));
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
