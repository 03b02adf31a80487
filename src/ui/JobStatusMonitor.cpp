#include "JobStatusMonitor.h"

#include "support/VTToolPaths.h"

#include <QProcess>

JobStatusMonitor::JobStatusMonitor(int refreshInterval, int timeLimit, QObject *parent)
    : QObject(parent)
{
    m_refreshTimer.setInterval(refreshInterval);
    connect(&m_refreshTimer, &QTimer::timeout, this, &JobStatusMonitor::refresh);
    m_refreshTimer.start();
    m_limitTimer.setSingleShot(true);
    m_limitTimer.setInterval(timeLimit);
    connect(&m_limitTimer, &QTimer::timeout, this, [this] { finished(false); });
}

JobStatusMonitor::~JobStatusMonitor()
{
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

void JobStatusMonitor::refresh()
{
    if (m_process) {
        m_again = true;
        return;
    }
    m_process = new QProcess(this);
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardErrorFile(QProcess::nullDevice());
    connect(m_process, &QProcess::finished, this, [this](int code, QProcess::ExitStatus status) {
        finished(status == QProcess::NormalExit && code == 0);
    });
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            finished(false);
        }
    });
    m_limitTimer.start();
    m_process->start(VTToolPaths::launchctl(),
                     {QStringLiteral("list"), QStringLiteral("--system")});
}

std::optional<JobStatusMonitor::Status> JobStatusMonitor::statusOf(const QString &label) const
{
    const auto found = m_statuses.constFind(label);
    if (found == m_statuses.constEnd()) {
        return std::nullopt;
    }
    return *found;
}

void JobStatusMonitor::finished(bool ok)
{
    if (!m_process) {
        return;
    }
    m_limitTimer.stop();
    QProcess *process = m_process;
    m_process = nullptr;
    process->disconnect(this);
    m_statuses.clear();
    if (ok) {
        // LABEL <tab> ENABLED <tab> NEXT <tab> LAST, "-" for no value.
        for (const QByteArray &line : process->readAllStandardOutput().split('\n')) {
            const QList<QByteArray> fields = line.split('\t');
            if (fields.size() != 4) {
                continue;
            }
            Status status;
            const QDateTime next = QDateTime::fromString(QString::fromUtf8(fields[2]), Qt::ISODate);
            if (next.isValid()) {
                status.nextRun = next;
            }
            if (fields[3] != "-") {
                status.lastResult = QString::fromUtf8(fields[3]);
            }
            m_statuses.insert(QString::fromUtf8(fields[0]), status);
        }
    } else {
        process->kill();
    }
    // Reaped in the background; a killed listing never blocks the window.
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    if (process->state() == QProcess::NotRunning) {
        process->deleteLater();
    }
    Q_EMIT updated();
    if (m_again) {
        m_again = false;
        refresh();
    }
}
