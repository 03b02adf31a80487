#include "SystemdManager.h"

#include "platform/Console.h"
#include "platform/Environment.h"
#include "platform/ProcessSpawner.h"

namespace {

// systemctl's status for a unit that is not loaded.
constexpr int kNotLoaded = 5;

struct Outcome
{
    bool ran = false;
    int status = -1;
    QByteArray output;
    QByteArray errors;
    QString launchError;
};

Outcome execute(const QString &program, const QStringList &arguments)
{
    Outcome outcome;
    std::shared_ptr<ChildProcess> child = ProcessSpawner::current().start(
        program, arguments, ProcessOutput::Collect, &outcome.launchError);
    if (!child) {
        return outcome;
    }
    child->waitForFinished();
    outcome.ran = true;
    outcome.status = child->terminationStatus();
    outcome.output = child->standardOutput();
    outcome.errors = child->standardError();
    return outcome;
}

} // namespace

QString SystemdManager::program()
{
    const std::optional<QString> path = Environment::value("VT_SYSTEMCTL");
    return path && !path->isEmpty() ? *path : QStringLiteral("/bin/systemctl");
}

bool SystemdManager::run(const QStringList &arguments, bool notLoadedIsFine) const
{
    const QStringList all = m_scope.systemctlOptions() + arguments;
    const Outcome outcome = execute(program(), all);
    if (!outcome.ran) {
        Console::log(QStringLiteral("kairo-launchctl: cannot run %1: %2")
                         .arg(program(), outcome.launchError));
        return false;
    }
    if (outcome.status == 0 || (notLoadedIsFine && outcome.status == kNotLoaded)) {
        return true;
    }
    QString reason = QString::fromUtf8(outcome.errors).trimmed();
    reason.replace(QLatin1Char('\n'), QStringLiteral("; "));
    Console::log(QStringLiteral("kairo-launchctl: systemctl %1 failed with status %2%3")
                     .arg(all.join(QLatin1Char(' ')))
                     .arg(outcome.status)
                     .arg(reason.isEmpty() ? QString() : QStringLiteral(": ") + reason));
    return false;
}

std::optional<QString> SystemdManager::show(const QStringList &properties,
                                            const QStringList &units) const
{
    const QStringList all = m_scope.systemctlOptions() +
                            QStringList{QStringLiteral("show"), QStringLiteral("--timestamp=unix"),
                                        QStringLiteral("-p"), properties.join(QLatin1Char(','))} +
                            units;
    const Outcome outcome = execute(program(), all);
    if (!outcome.ran || outcome.status != 0) {
        return std::nullopt;
    }
    return QString::fromUtf8(outcome.output);
}
