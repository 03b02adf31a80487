#include "DBusDaemon.h"

#include <QDeadlineTimer>
#include <QFile>

#include <cstdlib>

namespace {

constexpr int kStartTimeoutMs = 10000;

QByteArray configuration(const QString &listen, bool allowAnyUser)
{
    QByteArray xml =
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
        " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig>\n"
        "  <type>session</type>\n"
        "  <listen>" +
        listen.toUtf8() +
        "</listen>\n"
        "  <auth>EXTERNAL</auth>\n"
        "  <policy context=\"default\">\n"
        "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
        "    <allow eavesdrop=\"true\"/>\n"
        "    <allow own=\"*\"/>\n";
    if (allowAnyUser) {
        xml += "    <allow user=\"*\"/>\n";
    }
    xml += "  </policy>\n"
           "</busconfig>\n";
    return xml;
}

} // namespace

DBusDaemon::DBusDaemon() : DBusDaemon(Options()) {}

DBusDaemon::DBusDaemon(const Options &options)
    : m_dir(QDir::tempPath() + QStringLiteral("/kairo-bus-XXXXXX"))
{
    if (const char *old = std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        m_savedAddress = old;
    }
    start(options);
    if (!m_address.isEmpty()) {
        setenv("DBUS_SESSION_BUS_ADDRESS", m_address.toLocal8Bit().constData(), 1);
    }
}

DBusDaemon::~DBusDaemon()
{
    stop();
    if (m_savedAddress) {
        setenv("DBUS_SESSION_BUS_ADDRESS", m_savedAddress->c_str(), 1);
    } else {
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
}

void DBusDaemon::start(const Options &options)
{
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return;
    }
    const QString sockets = m_dir.path() + QStringLiteral("/sockets");
    QDir().mkpath(sockets);
    if (options.allowAnyUser) {
        const auto everyone = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                              QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                              QFileDevice::ExeGroup | QFileDevice::ReadOther |
                              QFileDevice::ExeOther;
        QFile::setPermissions(m_dir.path(), everyone);
        QFile::setPermissions(sockets, everyone);
    }
    const QString config = m_dir.path() + QStringLiteral("/bus.conf");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(configuration(options.socketPath.isEmpty()
                                     ? QStringLiteral("unix:dir=") + sockets
                                     : QStringLiteral("unix:path=") + options.socketPath,
                                 options.allowAnyUser)) < 0) {
        m_error = QStringLiteral("cannot write ") + config;
        return;
    }
    file.close();

    m_process.setProgram(QStringLiteral("dbus-daemon"));
    m_process.setArguments({QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                            QStringLiteral("--print-address=1")});
    // The daemon's own complaints (an fd limit it may not raise as root) are noise unless it
    // fails to start.
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start();
    if (!m_process.waitForStarted(kStartTimeoutMs)) {
        m_error = QStringLiteral("dbus-daemon did not start: ") + m_process.errorString();
        return;
    }
    QDeadlineTimer deadline(kStartTimeoutMs);
    while (!m_process.canReadLine() && !deadline.hasExpired() &&
           m_process.state() == QProcess::Running) {
        m_process.waitForReadyRead(static_cast<int>(deadline.remainingTime()));
    }
    m_address = QString::fromUtf8(m_process.readLine()).trimmed();
    if (m_address.isEmpty()) {
        stop();
        m_error = QStringLiteral("dbus-daemon printed no address: ") +
                  QString::fromLocal8Bit(m_process.readAllStandardError());
    }
}

bool DBusDaemon::isRunning() const
{
    return m_process.state() == QProcess::Running && !m_address.isEmpty();
}

qint64 DBusDaemon::processId() const
{
    return m_process.processId();
}

void DBusDaemon::stop()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
}
