#pragma once

#include "daemon_link/meter_client.h"
#include "daemon_link/records.h"
#include "platform/clock.h"
#include "platform/desktop_session.h"
#include "platform/environment.h"
#include "supervisor/daemon_restarter.h"

#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>
#include <memory>
#include <optional>

namespace quonbrix {

// The app's single source of truth: polls the daemon every five seconds and publishes the
// latest status and whether the daemon is healthy. Lives on the GUI thread.
class StatusModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasStatus READ hasStatus NOTIFY statusChanged)
    Q_PROPERTY(bool daemonHealthy READ daemonHealthy NOTIFY daemonHealthyChanged)
    Q_PROPERTY(bool syncing READ syncing NOTIFY syncingChanged)
    Q_PROPERTY(QString syncMessage READ syncMessage NOTIFY syncMessageChanged)
    Q_PROPERTY(bool openingLocalConsole READ openingLocalConsole NOTIFY openingLocalConsoleChanged)
    Q_PROPERTY(
        QString localConsoleMessage READ localConsoleMessage NOTIFY localConsoleMessageChanged)
    Q_PROPERTY(QStringList workTimerBusyIDs READ workTimerBusyIDList NOTIFY workTimerBusyIDsChanged)

public:
    struct Intervals {
        std::chrono::milliseconds refresh{5'000};
        std::chrono::milliseconds heartbeat{15'000};
    };

    StatusModel(MeterClient *client, Environment env, Intervals intervals,
                QObject *parent = nullptr);
    StatusModel(MeterClient *client, Environment env, QObject *parent = nullptr)
        : StatusModel(client, std::move(env), Intervals{}, parent) {}

    // First read at once, then the repeating refresh timer. Separate from construction so the
    // owner can wire signals before the first pass can finish.
    void start();
    // Starts one pass and returns at once. Passes may overlap; the last to finish wins.
    Q_INVOKABLE void refresh();

    const std::optional<DaemonStatus> &status() const { return m_status; }
    bool hasStatus() const { return m_status.has_value(); }
    bool daemonHealthy() const { return m_daemonHealthy; }
    bool syncing() const { return m_syncing; }
    // A null string means no message.
    QString syncMessage() const { return m_syncMessage; }
    bool openingLocalConsole() const { return m_openingLocalConsole; }
    QString localConsoleMessage() const { return m_localConsoleMessage; }
    const QSet<QString> &workTimerBusyIDs() const { return m_workTimerBusyIDs; }
    QStringList workTimerBusyIDList() const;

    // Where attention samples come from. Without an idle source no heartbeat is sent. Set
    // before start(); the sources must outlive the model.
    // `whyNoIdle` says in the log why a null idle source is all there is.
    void setAttentionSources(IdleTimeSource *idle, ForegroundAppSource *foreground,
                             const Clock *clock, const QString &whyNoIdle = {});
    // Samples attention and reports it to the daemon; failures are dropped.
    void sendAttentionHeartbeat();

    // Held weakly: the shell hands it over when the popover first opens.
    void setSupervisor(std::weak_ptr<DaemonRestarter> supervisor);

Q_SIGNALS:
    void statusChanged();
    void daemonHealthyChanged();
    void syncingChanged();
    void syncMessageChanged();
    void openingLocalConsoleChanged();
    void localConsoleMessageChanged();
    void workTimerBusyIDsChanged();
    // The end of a pass, after status, health and the enrollment check were updated. The
    // notification rules hang off this, in that order, with the status just loaded.
    void passFinished(const std::optional<quonbrix::DaemonStatus> &status);

private:
    void load();
    void apply(Reply<DaemonStatus> reply);
    void handleEnrollment();

    MeterClient *m_client;
    Environment m_env;
    Intervals m_intervals;
    QTimer m_timer;
    QTimer m_heartbeatTimer;
    IdleTimeSource *m_idle = nullptr;
    ForegroundAppSource *m_foreground = nullptr;
    const Clock *m_clock = &SystemClock::instance();
    bool m_attentionEnabled = false;
    bool m_loggedNoIdleSource = false;
    QString m_whyNoIdle;
    std::weak_ptr<DaemonRestarter> m_supervisor;

    std::optional<DaemonStatus> m_status;
    bool m_daemonHealthy = false;
    bool m_syncing = false;
    QString m_syncMessage;
    bool m_openingLocalConsole = false;
    QString m_localConsoleMessage;
    QSet<QString> m_workTimerBusyIDs;
    bool m_autoRestartedForEnroll = false;
    std::optional<ReplyFailure> m_lastLoggedFailure;
};

} // namespace quonbrix
