#include "app/app_core.h"

#include <QTimer>

#include "app/sign_in_process.h"
#include "platform/helper_programs.h"

#include <QCoreApplication>
#include <QUuid>

namespace quonbrix {

namespace {
const QString localTimerBody = QStringLiteral("Local work timer");
}

AppCore::AppCore(Environment env, std::shared_ptr<DaemonSupervisor> supervisor,
                 AttentionSources attention, StatusModel::Intervals intervals, QObject *parent)
    : QObject(parent)
    , m_env(std::move(env))
    , m_supervisor(std::move(supervisor))
    , m_attention(std::move(attention))
    , m_client(new MeterClient(MeterClient::baseFromEnvironment(m_env), {}, this))
    , m_model(new StatusModel(m_client, m_env, intervals, this)) {
    m_model->setAttentionSources(m_attention.idle.get(), m_attention.foreground,
                                 &SystemClock::instance(), m_attention.why);
    // The device flow runs in the quonbrix-signin helper: the tray loads neither TLS nor the
    // keyring's libraries.
    m_model->setEnrollerFactory([] {
        return std::make_unique<SignInProcess>(
            helperProgram(QCoreApplication::applicationDirPath(), SignInProcess::helperName));
    });
    // The warning rules run at the end of every pass, goal first, with the status just read.
    connect(m_model, &StatusModel::passFinished, this,
            [this](const std::optional<DaemonStatus> &status) {
                for (const DesktopNotification &n :
                     m_alerts.afterPass(status, m_model->forecastContext(m_locale, m_zone)))
                    if (m_notifier)
                        m_notifier->post(n.identifier, n.title, n.body, n.critical);
            });
    if (m_supervisor) {
        connect(m_supervisor.get(), &DaemonSupervisor::launchFailed, this,
                [this](const QString &message) {
                    m_launchFailure = message;
                    updateDaemonCondition();
                });
        connect(m_supervisor.get(), &DaemonSupervisor::daemonStarted, this, [this] {
            m_launchFailure.clear();
            m_daemonRunning = true;
            m_runningSince.start();
            updateDaemonCondition();
        });
        connect(m_supervisor.get(), &DaemonSupervisor::daemonExited, this, [this] {
            m_daemonRunning = false;
            m_recentExits.push_back(QDateTime::currentDateTimeUtc());
            updateDaemonCondition();
        });
    }
    connect(m_model, &StatusModel::passFinished, this, &AppCore::updateDaemonCondition);
    // Every successful timer command is a notification of its own (a fresh UUID each time).
    connect(m_model, &StatusModel::workTimerSucceeded, this,
            [this](const QString &action, const QString &sessionId,
                   const std::optional<QString> &label, const QString &message) {
                if (!m_notifier)
                    return;
                m_notifier->post(QStringLiteral("quon-brix-work-timer-") + sessionId + u'-' +
                                     action + u'-' +
                                     QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(),
                                 message, label.value_or(localTimerBody));
            });
}

AppCore::~AppCore() {
    shutdown();
}

void AppCore::launch() {
    if (m_launched || m_shutDown)
        return;
    m_launched = true;
    m_model->start();
    if (m_supervisor)
        m_supervisor->start();
}

void AppCore::shutdown() {
    if (m_shutDown)
        return;
    m_shutDown = true;
    if (m_supervisor)
        m_supervisor->stop();
}

void AppCore::setUpdater(UpdateController *updater) {
    m_updater = updater;
    if (!updater)
        return;
    auto started = std::make_shared<QMetaObject::Connection>();
    *started = connect(m_model, &StatusModel::statusChanged, updater, [this, updater, started] {
        if (!m_model->status())
            return;
        disconnect(*started);
        // After this pass has been shown, not inside it.
        QTimer::singleShot(0, updater, &UpdateController::start);
    });
    connect(updater, &UpdateController::newVersionFound, this, [this](const UpdateOffer &offer) {
        if (!m_notifier || !m_updater)
            return;
        QString body;
        switch (m_updater->options().kind) {
        case InstallKind::Package:
            body = QStringLiteral("Update with your package manager.");
            break;
        case InstallKind::SelfContained:
            body = QStringLiteral("Install it from Settings & integrations.");
            break;
        case InstallKind::ReadOnly:
            body = QStringLiteral("Download it from %1.")
                       .arg(offer.notesUrl.isEmpty() ? offer.url : offer.notesUrl);
            break;
        }
        m_notifier->post(QStringLiteral("quon-brix-update-") + offer.version,
                         QStringLiteral("QuonBrix %1 is available").arg(offer.displayVersion),
                         body);
    });
}

void AppCore::setNotifier(DesktopNotifier *notifier, const Clock *clock, QLocale locale,
                          QTimeZone zone) {
    m_notifier = notifier;
    // The readings that pace a forecast are dated by the same clock as the notices.
    m_model->setClock(clock);
    m_locale = std::move(locale);
    m_zone = std::move(zone);
}

void AppCore::updateDaemonCondition() {
    const QDateTime minuteAgo = QDateTime::currentDateTimeUtc().addSecs(-60);
    while (!m_recentExits.empty() && m_recentExits.front() < minuteAgo)
        m_recentExits.pop_front();
    QString condition;
    if (!m_launchFailure.isEmpty()) {
        condition = m_launchFailure;
    } else if (m_recentExits.size() >= 3) {
        condition = QStringLiteral("brixd keeps stopping — restarted %1 times in the last minute")
                        .arg(m_recentExits.size());
    } else if (m_daemonRunning && !m_model->daemonHealthy() && m_runningSince.isValid() &&
               m_runningSince.elapsed() >= 10'000) {
        QString address = m_client->base();
        address.remove(QStringLiteral("http://"));
        condition = QStringLiteral("brixd is running but does not answer on ") + address;
    }
    m_model->setDaemonCondition(condition);
}

void AppCore::popoverShown() {
    m_model->setSupervisor(m_supervisor);
}

void AppCore::signInFinishedElsewhere() {
    popoverShown();
    m_model->refresh();
}

} // namespace quonbrix
