#pragma once

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QTimer>

#include <optional>

class QProcess;

// The next run and the last result of every loaded job, as "launchctl list --system" of
// the bridge reports them from systemd. The listing runs in the background with a time
// limit: a slow or missing systemd leaves the values empty and never holds up the window.
class JobStatusMonitor : public QObject
{
    Q_OBJECT

public:
    struct Status
    {
        std::optional<QDateTime> nextRun;
        // "success", "failed (exit status 1)", "never run"; empty when not known.
        QString lastResult;
    };

    // refreshInterval: how often the listing runs on its own; timeLimit: how long one may take.
    explicit JobStatusMonitor(int refreshInterval = 30000, int timeLimit = 5000,
                              QObject *parent = nullptr);
    ~JobStatusMonitor() override;

    // Starts a listing now, or right after the one that is running.
    void refresh();
    // The job's status by its label; no value when the last listing said nothing of it.
    std::optional<Status> statusOf(const QString &label) const;

Q_SIGNALS:
    // A listing ended (or failed, which empties every status).
    void updated();

private:
    void finished(bool ok);

    QProcess *m_process = nullptr;
    QTimer m_refreshTimer;
    QTimer m_limitTimer;
    QHash<QString, Status> m_statuses;
    bool m_again = false;
};
