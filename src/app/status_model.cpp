#include "app/status_model.h"

#include "features/attention.h"
#include "features/sharing.h"
#include "log/log_categories.h"

#include <QFileInfo>
#include <QPointer>
#include <algorithm>

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
    m_enrollPollTimer.setInterval(m_intervals.enrollPoll);
    connect(&m_enrollPollTimer, &QTimer::timeout, this, [this] {
        ++m_enrollPollTicks;
        load();
        if (m_enrollPollTicks >= m_intervals.enrollPollReads)
            m_enrollPollTimer.stop();
    });
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
    if (m_idle)
        m_idle->queryIdleSeconds(
            this, [this](std::optional<double> idleSeconds) { sendAttention(idleSeconds); });
    else
        sendAttention(std::nullopt);
}

void StatusModel::sendAttention(std::optional<double> idleSeconds) {
    const auto heartbeat = sampleAttention(idleSeconds, m_foreground, *m_clock);
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

void StatusModel::setBusy(const QString &id, bool busy) {
    const bool changed = busy ? !m_workTimerBusyIDs.contains(id) : m_workTimerBusyIDs.contains(id);
    if (busy)
        m_workTimerBusyIDs.insert(id);
    else
        m_workTimerBusyIDs.remove(id);
    if (changed)
        Q_EMIT workTimerBusyIDsChanged();
}

void StatusModel::startWorkTimer(const QString &projectLabel) {
    const auto label = trimmedProjectLabel(projectLabel);
    if (!label || m_workTimerBusyIDs.contains(workTimerStartBusyID))
        return;
    setBusy(workTimerStartBusyID, true);
    performWorkTimer(QStringLiteral("start"), workTimerStartBusyID, std::nullopt, label);
}

void StatusModel::act(const QString &action, const QString &id) {
    if (id.isEmpty() || m_workTimerBusyIDs.contains(id))
        return;
    setBusy(id, true);
    performWorkTimer(action, id, id, std::nullopt);
}

void StatusModel::performWorkTimer(const QString &action, const QString &busyID,
                                   const std::optional<QString> &sessionId,
                                   const std::optional<QString> &projectLabel) {
    m_client->workTimer(
        this, action, sessionId, projectLabel,
        [this, action, busyID, sessionId, projectLabel](WorkTimerCommandOutcome outcome) {
            setBusy(busyID, false);
            std::optional<QString> label = projectLabel;
            if (!label && sessionId && m_status && m_status->workTimers) {
                for (const WorkSession &session : *m_status->workTimers)
                    if (session.id == *sessionId)
                        label = session.projectLabel;
            }
            WorkTimerFeedback entry{QUuid::createUuid(), sessionId, label, {}, false};
            if (!outcome.ok()) {
                entry.message = *outcome.error;
                entry.isError = true;
                appendFeedback(m_feedback, std::move(entry));
                Q_EMIT workTimerFeedbackChanged();
            } else {
                const QString message = workTimerSuccessMessage(action);
                entry.message = message;
                appendFeedback(m_feedback, std::move(entry));
                Q_EMIT workTimerFeedbackChanged();
                // A start has no session id of its own until the daemon answers.
                const QString notifiedId =
                    sessionId ? *sessionId : (outcome.session ? outcome.session->id : busyID);
                Q_EMIT workTimerSucceeded(action, notifiedId, label, message);
            }
            load();
        });
}

void StatusModel::syncNow() {
    if (m_syncing)
        return;
    m_syncing = true;
    Q_EMIT syncingChanged();
    if (!m_syncMessage.isNull()) {
        m_syncMessage = QString();
        Q_EMIT syncMessageChanged();
    }
    m_client->syncNow(this, [this](Reply<SyncResult> reply) {
        m_syncing = false;
        Q_EMIT syncingChanged();
        m_syncMessage = syncResultMessage(reply.value);
        Q_EMIT syncMessageChanged();
        const auto &skipped = reply.value ? reply.value->skipped : std::nullopt;
        Q_EMIT syncFinished(reply.value && skipped != QLatin1String("error") &&
                            skipped != QLatin1String("busy"));
        load();
    });
}

void StatusModel::openLocalConsole(const QUrl &base) {
    if (m_openingLocalConsole)
        return;
    m_openingLocalConsole = true;
    Q_EMIT openingLocalConsoleChanged();
    if (!m_localConsoleMessage.isNull()) {
        m_localConsoleMessage = QString();
        Q_EMIT localConsoleMessageChanged();
    }
    const unsigned attempt = ++m_localConsoleAttempt;
    m_client->localViewHandoff(
        this, [this, base, attempt](std::optional<LocalViewHandoff> handoff) {
            if (!handoff) {
                qCWarning(lcStatus,
                          "[QuonBrix] local console: brixd handoff unavailable after retries");
                finishLocalConsole(QStringLiteral("Restart app and retry"));
                return;
            }
            // The token rides in the fragment, which browsers never send to the server.
            QUrl url = base;
            url.setFragment(QStringLiteral("handoff=") + handoff->handoff, QUrl::DecodedMode);
            if (!url.isValid() || !base.isValid() || base.isRelative()) {
                qCWarning(lcStatus, "[QuonBrix] local console: failed to construct handoff URL");
                finishLocalConsole(QStringLiteral("Try again"));
            } else if (!m_openUrl) {
                localConsoleBrowserAnswered(attempt, UrlOpenOutcome::Refused);
            } else {
                m_openUrl(url, this, [this, attempt](UrlOpenOutcome outcome) {
                    localConsoleBrowserAnswered(attempt, outcome);
                });
            }
        });
}

void StatusModel::localConsoleBrowserAnswered(unsigned attempt, UrlOpenOutcome outcome) {
    if (outcome == UrlOpenOutcome::Opened)
        return;
    if (outcome == UrlOpenOutcome::Accepted) {
        finishLocalConsole(QString());
        return;
    }
    qCWarning(lcStatus, "[QuonBrix] local console: NSWorkspace refused browser URL");
    const QString message = QStringLiteral("Open browser and retry");
    if (outcome == UrlOpenOutcome::Refused)
        finishLocalConsole(message);
    else if (attempt == m_localConsoleAttempt) // an older attempt's late refusal is stale
        setLocalConsoleMessage(message);
}

void StatusModel::finishLocalConsole(const QString &message) {
    setLocalConsoleMessage(message);
    m_openingLocalConsole = false;
    Q_EMIT openingLocalConsoleChanged();
    Q_EMIT localConsoleFinished();
}

void StatusModel::setLocalConsoleMessage(const QString &message) {
    if (m_localConsoleMessage == message)
        return;
    m_localConsoleMessage = message;
    Q_EMIT localConsoleMessageChanged();
}

void StatusModel::openUrl(const QUrl &url) {
    if (!m_openUrl)
        return;
    m_openUrl(url, this, [](UrlOpenOutcome outcome) {
        if (outcome == UrlOpenOutcome::Refused || outcome == UrlOpenOutcome::RefusedLater)
            qCWarning(lcStatus, "[QuonBrix] browser: desktop refused a web page URL");
    });
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

    // Before anyone hears of the pass, so its forecasts count what was just read. A failed
    // read leaves the recent readings as they were.
    if (reply.value)
        m_paceHistory.record(m_clock->nowMs(), reply.value->providerLimits.value_or(
                                                   std::vector<ProviderLimitSnapshot>{}));
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
        setEnrollProgress(std::nullopt);
        m_enrollPollTimer.stop();
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

namespace quonbrix {

namespace {

const QString supervisorUnavailable = QStringLiteral("internal: supervisor unavailable");

// "…" with what a POSIX shell would expand inside double quotes escaped.
QString doubleQuoted(const QString &text) {
    QString out = QStringLiteral("\"");
    for (const QChar c : text) {
        if (c == u'"' || c == u'\\' || c == u'$' || c == u'`')
            out += u'\\';
        out += c;
    }
    return out + u'"';
}

} // namespace

void StatusModel::setEnrollProgress(std::optional<EnrollProgress> progress) {
    if (progress == m_enrollProgress)
        return;
    m_enrollProgress = std::move(progress);
    Q_EMIT enrollProgressChanged();
}

void StatusModel::startEnroll() {
    if (m_supervisor.expired() || !m_makeEnroller) {
        setEnrollProgress(
            EnrollProgress{QStringLiteral("error"), std::nullopt, supervisorUnavailable, false});
        return;
    }
    if (!m_enroller)
        m_enroller = m_makeEnroller();
    setEnrollProgress(EnrollProgress{QStringLiteral("pending"), std::nullopt, std::nullopt, false});
    const QPointer<StatusModel> self(this);
    m_enroller->run(
        [self](const EnrollPrompt &prompt) {
            if (!self)
                return;
            self->setEnrollProgress(
                EnrollProgress{QStringLiteral("pending"), prompt, std::nullopt, false});
            self->openPromptPage(prompt);
        },
        [self] {
            if (!self)
                return;
            self->setEnrollProgress(
                EnrollProgress{QStringLiteral("done"), std::nullopt, std::nullopt, true});
            // The daemon reads the new credentials only at start.
            self->m_autoRestartedForEnroll = true;
            if (const auto supervisor = self->m_supervisor.lock())
                supervisor->restart();
            self->pollAfterEnroll();
        },
        [self](const QString &message) {
            if (self)
                self->setEnrollProgress(
                    EnrollProgress{QStringLiteral("error"), std::nullopt, message, false});
        });
}

void StatusModel::openPromptPage(const EnrollPrompt &prompt) {
    const QUrl url(prompt.verificationUriComplete.value_or(prompt.verificationUri),
                   QUrl::StrictMode);
    if (url.isValid() && !url.isRelative())
        openUrl(url);
}

void StatusModel::openApprovalPage() {
    if (m_enrollProgress && m_enrollProgress->prompt)
        openPromptPage(*m_enrollProgress->prompt);
}

void StatusModel::pollAfterEnroll() {
    m_enrollPollTimer.stop();
    m_enrollPollTicks = 0;
    m_enrollPollTimer.start();
}

void StatusModel::unenroll() {
    m_client->clearEnrollment(this, [this](bool answered) {
        if (!answered) {
            m_signOutMessage = QStringLiteral("Sign-out failed — is the daemon running?");
            Q_EMIT signOutMessageChanged();
            return;
        }
        if (!m_signOutMessage.isNull()) {
            m_signOutMessage = QString();
            Q_EMIT signOutMessageChanged();
        }
        // What was shown described the signed-in daemon; the next read tells the truth.
        if (m_status) {
            m_status.reset();
            Q_EMIT statusChanged();
        }
        setEnrollProgress(std::nullopt);
        load();
    });
}

QString StatusModel::enrollCommand(const QString &installedDaemon) const {
    const auto supervisor = m_supervisor.lock();
    const std::optional<QString> bundle = supervisor ? supervisor->trustStorePath() : std::nullopt;
    const QString daemon =
        supervisor ? supervisor->daemonPath().value_or(installedDaemon) : installedDaemon;
    QString line;
    if (bundle)
        line = QStringLiteral("SSL_CERT_FILE=") + doubleQuoted(*bundle) + u' ';
    return line + doubleQuoted(daemon) + QStringLiteral(" enroll");
}

bool StatusModel::isTLSInterceptError(const std::optional<QString> &message) {
    if (!message)
        return false;
    const QString lower = message->toLower();
    return lower.contains(QLatin1String("self signed")) ||
           lower.contains(QLatin1String("self-signed")) ||
           lower.contains(QLatin1String("certificate"));
}

void StatusModel::setDaemonCondition(const QString &condition) {
    if (condition == m_daemonCondition)
        return;
    m_daemonCondition = condition;
    Q_EMIT daemonConditionChanged();
}

} // namespace quonbrix
