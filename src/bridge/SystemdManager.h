#pragma once

#include "ManagerScope.h"

#include <QString>
#include <QStringList>

#include <optional>

// systemctl for one manager: "systemctl --user ..." for agents, "systemctl ..." for daemons.
// The program is $VT_SYSTEMCTL, by default /bin/systemctl. Every call is waited for; a
// failure is reported on the console with systemctl's own explanation.
class SystemdManager
{
public:
    explicit SystemdManager(const ManagerScope &scope) : m_scope(scope) {}

    static QString program();

    // False when systemctl could not be run or failed. With notLoadedIsFine, its status 5
    // ("unit not loaded", as for stopping a unit the manager never saw) counts as success.
    bool run(const QStringList &arguments, bool notLoadedIsFine = false) const;
    // The output of "systemctl show --timestamp=unix -p PROPERTIES UNITS"; no value when
    // systemd does not answer (no manager running, systemctl missing). Nothing is reported.
    std::optional<QString> show(const QStringList &properties, const QStringList &units) const;

private:
    ManagerScope m_scope;
};
