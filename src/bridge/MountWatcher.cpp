#include "MountWatcher.h"

#include "SystemdManager.h"
#include "UnitFolder.h"

#include "platform/Clock.h"
#include "platform/Console.h"

#include <QFile>

MountWatcher::MountWatcher(QString mountTable, const ManagerScope &scope)
    : m_table(std::move(mountTable)), m_scope(scope)
{}

std::optional<QHash<QString, int>> MountWatcher::readTable()
{
    QFile file(m_table);
    if (!file.open(QIODevice::ReadOnly)) {
        if (!m_reportedUnreadable) {
            Console::log(QStringLiteral("kairo-launchctl: cannot read the mount table %1: %2")
                             .arg(m_table, file.errorString()));
            m_reportedUnreadable = true;
        }
        return std::nullopt;
    }
    m_reportedUnreadable = false;
    // Counted, because the same line can stand for two mounts on one place.
    QHash<QString, int> lines;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (!line.isEmpty()) {
            ++lines[QString::fromUtf8(line)];
        }
    }
    return lines;
}

QStringList MountWatcher::poll()
{
    const std::optional<QHash<QString, int>> table = readTable();
    if (!table) {
        return {};
    }
    QStringList appeared;
    if (m_known) {
        for (auto it = table->cbegin(); it != table->cend(); ++it) {
            for (int i = m_known->value(it.key()); i < it.value(); ++i) {
                appeared.append(it.key());
            }
        }
    }
    m_known = table;
    return appeared;
}

QStringList MountWatcher::mountJobServices() const
{
    const std::optional<QString> path = m_scope.unitFolder();
    if (!path) {
        return {};
    }
    const UnitFolder folder(*path);
    QStringList services;
    for (const QString &service : folder.jobServices()) {
        const std::optional<UnitHeader> header = folder.header(service);
        if (header && header->startOnMount() && !header->disabled()) {
            services.append(service);
        }
    }
    return services;
}

bool MountWatcher::startJobs() const
{
    const QStringList services = mountJobServices();
    if (services.isEmpty()) {
        return true;
    }
    return SystemdManager(m_scope).run(
        QStringList{QStringLiteral("start"), QStringLiteral("--no-block")} + services);
}

void MountWatcher::run(std::chrono::milliseconds interval)
{
    poll();
    for (;;) {
        Clock::current().sleepFor(interval);
        if (!poll().isEmpty()) {
            startJobs();
        }
    }
}
