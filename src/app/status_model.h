#pragma once

#include "account/enroller.h"
#include "daemon_link/meter_client.h"
#include "daemon_link/records.h"
#include "features/limit_forecast.h"
#include "features/work_timers.h"
#include "platform/clock.h"
#include "platform/desktop_session.h"
#include "platform/environment.h"
#include "platform/url_opener.h"
#include "supervisor/daemon_restarter.h"

#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <functional>
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
        // After a sign-in: how often the daemon is read until it reports the sign-in, and how
        // many reads (about 46 s) before the ordinary refresh carries on alone.
        std::chrono::milliseconds enrollPoll{1'500};
        int enrollPollReads = 31;
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
    // The provider readings of the recent passes, which pace the limit forecasts.
    const PaceHistory &paceHistory() const { return m_paceHistory; }
    // Forecasts as of now, in the given locale and zone.
    ForecastContext forecastContext(QLocale locale = QLocale(),
                                    QTimeZone zone = QTimeZone::systemTimeZone()) const {
        return {m_clock->now(), &m_paceHistory, std::move(locale), std::move(zone)};
    }
    // What dates the passes' readings; the system clock unless set.
    void setClock(const Clock *clock) { m_clock = clock ? clock : &SystemClock::instance(); }
    // What keeps the meter from running, worded for the person at the desk ("brixd was not
    // found — …"); empty while nothing is known to be wrong.
    QString daemonCondition() const { return m_daemonCondition; }
    void setDaemonCondition(const QString &condition);
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
    // Asks the desktop for the idle time and returns at once; the heartbeat goes to the daemon
    // when the answer comes. No answer, no heartbeat; failures are dropped.
    void sendAttentionHeartbeat();

    // Held weakly: the shell hands it over when the popover first opens.
    void setSupervisor(std::weak_ptr<DaemonRestarter> supervisor);

    // Work timers. Each returns at once; a command for a session (or a start) already in
    // flight is ignored. Outcomes land in workTimerFeedback(), newest last, four at most.
    Q_INVOKABLE void startWorkTimer(const QString &projectLabel);
    Q_INVOKABLE void pauseWorkTimer(const QString &id) { act(QStringLiteral("pause"), id); }
    Q_INVOKABLE void resumeWorkTimer(const QString &id) { act(QStringLiteral("resume"), id); }
    Q_INVOKABLE void completeWorkTimer(const QString &id) { act(QStringLiteral("complete"), id); }
    Q_INVOKABLE void cancelWorkTimer(const QString &id) { act(QStringLiteral("cancel"), id); }
    const std::vector<WorkTimerFeedback> &workTimerFeedback() const { return m_feedback; }

    // Asks the daemon to collect and push now; the outcome is syncMessage(). Ignored while a
    // sync runs.
    Q_INVOKABLE void syncNow();
    // Opens the local console page `base` in the browser with a one-time handoff token in the
    // URL fragment. Ignored while one is opening, which ends once the desktop took or refused
    // the URL; a refusal the desktop reports later still shows as the message.
    void openLocalConsole(const QUrl &base);
    // Hands a URL to the browser and returns at once; a refusal is logged.
    void openUrl(const QUrl &url);
    // How URLs reach the browser, in the manner of UrlOpener::open.
    using UrlOpenFunction = std::function<void(const QUrl &, QObject *context, UrlOpenDone)>;
    void setUrlOpener(UrlOpenFunction opener) { m_openUrl = std::move(opener); }

    // Sign-in. The enroller is made when a sign-in first starts; without a factory or a
    // supervisor a sign-in fails at once.
    using EnrollerFactory = std::function<std::unique_ptr<Enroller>()>;
    void setEnrollerFactory(EnrollerFactory factory) { m_makeEnroller = std::move(factory); }
    const std::optional<EnrollProgress> &enrollProgress() const { return m_enrollProgress; }
    // Starts a sign-in, cancelling one that runs. The approval page opens in the browser once
    // the code is known; when it is done the daemon is restarted and watched until it reports
    // the sign-in.
    void startEnroll();
    // Opens the running sign-in's approval page again.
    void openApprovalPage();
    // Asks the daemon to forget the sign-in, then reads it afresh. A daemon that does not
    // answer leaves everything as it was and says so in signOutMessage().
    void unenroll();
    QString signOutMessage() const { return m_signOutMessage; }
    bool isWatchingEnrollment() const { return m_enrollPollTimer.isActive(); }
    // The line that signs in from a terminal with the daemon itself: its path double-quoted
    // for a POSIX shell, " enroll", and an SSL_CERT_FILE assignment first when there is a CA
    // bundle. `installedDaemon` stands in when no daemon was found.
    QString enrollCommand(const QString &installedDaemon) const;
    // Whether a sign-in failure looks like a TLS-inspecting network (a certificate problem).
    static bool isTLSInterceptError(const std::optional<QString> &message);

Q_SIGNALS:
    void daemonConditionChanged();
    void statusChanged();
    void enrollProgressChanged();
    void signOutMessageChanged();
    void daemonHealthyChanged();
    void syncingChanged();
    void syncMessageChanged();
    void openingLocalConsoleChanged();
    void localConsoleMessageChanged();
    void workTimerBusyIDsChanged();
    // The end of a pass, after status, health and the enrollment check were updated. The
    // notification rules hang off this, in that order, with the status just loaded.
    void passFinished(const std::optional<quonbrix::DaemonStatus> &status);
    void workTimerFeedbackChanged();
    // A timer command succeeded; the shell turns this into a desktop notification.
    void workTimerSucceeded(const QString &action, const QString &sessionId,
                            const std::optional<QString> &projectLabel, const QString &message);
    // A sync or console command finished (after its message was set). A sync is `ok` unless
    // the daemon could not be asked or reported an error or a sync already running.
    void syncFinished(bool ok);
    void localConsoleFinished();

private:
    void sendAttention(std::optional<double> idleSeconds);
    void localConsoleBrowserAnswered(unsigned attempt, UrlOpenOutcome outcome);
    void finishLocalConsole(const QString &message);
    void setLocalConsoleMessage(const QString &message);
    void act(const QString &action, const QString &id);
    void performWorkTimer(const QString &action, const QString &busyID,
                          const std::optional<QString> &sessionId,
                          const std::optional<QString> &projectLabel);
    void setBusy(const QString &id, bool busy);
    void load();
    void apply(Reply<DaemonStatus> reply);
    void handleEnrollment();
    void setEnrollProgress(std::optional<EnrollProgress> progress);
    void openPromptPage(const EnrollPrompt &prompt);
    void pollAfterEnroll();

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
    PaceHistory m_paceHistory;
    QString m_daemonCondition;
    bool m_daemonHealthy = false;
    bool m_syncing = false;
    QString m_syncMessage;
    bool m_openingLocalConsole = false;
    QString m_localConsoleMessage;
    unsigned m_localConsoleAttempt = 0;
    QSet<QString> m_workTimerBusyIDs;
    std::vector<WorkTimerFeedback> m_feedback;
    UrlOpenFunction m_openUrl;
    bool m_autoRestartedForEnroll = false;
    EnrollerFactory m_makeEnroller;
    std::unique_ptr<Enroller> m_enroller;
    std::optional<EnrollProgress> m_enrollProgress;
    QTimer m_enrollPollTimer;
    qint64 m_enrollPollTicks = 0;
    QString m_signOutMessage;
    std::optional<ReplyFailure> m_lastLoggedFailure;
};

} // namespace quonbrix
