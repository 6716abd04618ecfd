#include "app/status_model.h"

#include "features/attention.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <algorithm>

Q_LOGGING_CATEGORY(lcStatus, "quonbrix.status")

namespace quonbrix {

StatusModel::StatusModel(MeterClient *client, Environment env, Intervals intervals, QObject *parent)
    : QObject(parent)
    , m_client(client)
    , m_env(std::move(env))
    , m_intervals(intervals) {
    m_timer.setInterval(m_intervals.refresh);
    m_timer.setSingleShot(false);
    connect(&m_timer, &QTimer::timeout, this, &StatusModel::load);
    m_heartbeatTimer.setInterval(m_intervals.heartbeat);
    connect(&m_heartbeatTimer, &QTimer::timeout, this, &StatusModel::sendAttentionHeartbeat);
}

void StatusModel::start() {
    refresh();
    m_timer.start();
    // Only the tray app reports attention; a second viewer such as `status --watch` must not.
    if (m_attentionEnabled) {
        m_heartbeatTimer.start();
        QMetaObject::invokeMethod(this, &StatusModel::sendAttentionHeartbeat, Qt::QueuedConnection);
    }
}

void StatusModel::setAttentionSources(IdleTimeSource *idle, ForegroundAppSource *foreground,
                                      const Clock *clock, const QString &whyNoIdle) {
    m_attentionEnabled = true;
    m_whyNoIdle = whyNoIdle;
    m_idle = idle;
    m_foreground = foreground;
    if (clock)
        m_clock = clock;
}

void StatusModel::sendAttentionHeartbeat() {
    const auto heartbeat = sampleAttention(m_idle, m_foreground, *m_clock);
    if (!heartbeat) {
        if (!m_loggedNoIdleSource) {
            if (m_idle)
                qCInfo(lcStatus, "[QuonBrix] attention: %s gave no idle time, heartbeat skipped",
                       qUtf8Printable(m_idle->name()));
            else
                qCInfo(lcStatus,
                       "[QuonBrix] attention: no idle-time source on this desktop%s, "
                       "attention heartbeats are off",
                       m_whyNoIdle.isEmpty()
                           ? ""
                           : qUtf8Printable(QStringLiteral(" (%1)").arg(m_whyNoIdle)));
            m_loggedNoIdleSource = true;
        }
        return;
    }
    m_client->sendAttentionHeartbeat(*heartbeat);
}

void StatusModel::refresh() {
    load();
}

QStringList StatusModel::workTimerBusyIDList() const {
    QStringList ids(m_workTimerBusyIDs.cbegin(), m_workTimerBusyIDs.cend());
    std::sort(ids.begin(), ids.end());
    return ids;
}

void StatusModel::setSupervisor(std::weak_ptr<DaemonRestarter> supervisor) {
    m_supervisor = std::move(supervisor);
}

void StatusModel::load() {
    m_client->status(this, [this](Reply<DaemonStatus> reply) { apply(std::move(reply)); });
}

void StatusModel::apply(Reply<DaemonStatus> reply) {
    // One line per change of the daemon's condition, not one every five seconds.
    if (!m_lastLoggedFailure || *m_lastLoggedFailure != reply.failure) {
        switch (reply.failure) {
        case ReplyFailure::None:
            qCInfo(lcStatus, "[QuonBrix] status: daemon answered at %s",
                   qUtf8Printable(m_client->base()));
            break;
        case ReplyFailure::Unreachable:
            qCWarning(lcStatus, "[QuonBrix] status: daemon not reachable at %s (%s)",
                      qUtf8Printable(m_client->base()), qUtf8Printable(reply.detail));
            break;
        case ReplyFailure::Unreadable:
            qCWarning(lcStatus, "[QuonBrix] status: daemon answered with an unreadable status (%s)",
                      qUtf8Printable(reply.detail));
            break;
        }
        m_lastLoggedFailure = reply.failure;
    }

    // A failed read clears the previous status: screens never show stale figures.
    if (m_status != reply.value) {
        m_status = std::move(reply.value);
        Q_EMIT statusChanged();
    }
    const bool healthy = m_status.has_value();
    if (healthy != m_daemonHealthy) {
        m_daemonHealthy = healthy;
        Q_EMIT daemonHealthyChanged();
    }
    handleEnrollment();
    Q_EMIT passFinished(m_status);
}

void StatusModel::handleEnrollment() {
    if (!m_status)
        return;
    if (m_status->enrolled) {
        // Sign-in completed: a later sign-in may restart the daemon again.
        m_autoRestartedForEnroll = false;
        return;
    }
    if (m_autoRestartedForEnroll)
        return;
    if (!QFileInfo::exists(m_env.privateDir() + QStringLiteral("/enrollment.json")))
        return;
    // The daemon reads the enrollment file only at start, so it is restarted once to pick up
    // a sign-in that finished while it was running.
    m_autoRestartedForEnroll = true;
    if (const auto supervisor = m_supervisor.lock()) {
        qCInfo(lcStatus, "[QuonBrix] status: enrollment file found, restarting brixd");
        supervisor->restart();
    }
}

} // namespace quonbrix
