#pragma once

#include "app/status_model.h"
#include "daemon_link/meter_client.h"
#include "features/alerts.h"
#include "platform/attention_sources.h"
#include "platform/desktop_notifier.h"
#include "platform/environment.h"
#include "supervisor/daemon_supervisor.h"
#include "update/update_controller.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QLocale>
#include <QObject>
#include <QTimeZone>
#include <deque>
#include <memory>

namespace quonbrix {

// Everything long-lived that is not a window: the meter client, the status model, the daemon
// supervisor and the attention sources, started and stopped in the one order that works —
// the model reads first (a daemon not up yet just fails those reads), then the daemon is
// launched; on the way out the daemon is stopped before anything else goes.
class AppCore : public QObject {
    Q_OBJECT

public:
    AppCore(Environment env, std::shared_ptr<DaemonSupervisor> supervisor,
            AttentionSources attention, StatusModel::Intervals intervals = {},
            QObject *parent = nullptr);
    ~AppCore() override;

    StatusModel &model() { return *m_model; }
    MeterClient &client() { return *m_client; }
    const Environment &environment() const { return m_env; }

    // Starts the refresh loop and the heartbeats, then the daemon. Once.
    void launch();
    // Stops the daemon and returns once it is gone. Safe to call more than once and before
    // launch(); later calls do nothing.
    void shutdown();
    bool isShutDown() const { return m_shutDown; }

    // The popover has been shown: from now on the model may restart the daemon itself.
    void popoverShown();
    // A sign-in finished elsewhere (`quonbrix signin` in a terminal): the model takes the
    // supervisor as if the popover had been shown, so its enrollment-file rule restarts the
    // daemon, and reads the status now.
    void signInFinishedElsewhere();

    // Where goal and limit warnings go; without one they are worked out and dropped. Set
    // before launch(); `clock` dates the readings and the reset times, which are worded in
    // `locale` and `zone`.
    void setNotifier(DesktopNotifier *notifier, const Clock *clock = &SystemClock::instance(),
                     QLocale locale = QLocale(), QTimeZone zone = QTimeZone::systemTimeZone());

    // Checks for new versions once the first status is in (so a check never delays the
    // figures) and daily after; each new version is announced once. Set before launch().
    void setUpdater(UpdateController *updater);
    UpdateController *updater() const { return m_updater; }

private:
    // Works out what keeps the meter from running, from the supervisor's reports and the
    // model's reads, and tells the model.
    void updateDaemonCondition();

    Environment m_env;
    std::shared_ptr<DaemonSupervisor> m_supervisor;
    AttentionSources m_attention;
    MeterClient *m_client;
    StatusModel *m_model;
    DesktopNotifier *m_notifier = nullptr;
    UpdateController *m_updater = nullptr;
    QLocale m_locale;
    QTimeZone m_zone = QTimeZone::systemTimeZone();
    AlertRules m_alerts;
    // The supervisor's side: a launch that failed, whether brixd runs, its recent exits.
    QString m_launchFailure;
    bool m_daemonRunning = false;
    QElapsedTimer m_runningSince;
    std::deque<QDateTime> m_recentExits;
    bool m_launched = false;
    bool m_shutDown = false;
};

} // namespace quonbrix
