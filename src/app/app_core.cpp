#include "app/app_core.h"

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
    // Both warning rules run at the end of every pass, goal first, with the status just read.
    connect(m_model, &StatusModel::passFinished, this,
            [this](const std::optional<DaemonStatus> &status) {
                for (const DesktopNotification &n : m_alerts.afterPass(status, m_clock->now()))
                    if (m_notifier)
                        m_notifier->post(n.identifier, n.title, n.body, n.critical);
            });
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

void AppCore::setNotifier(DesktopNotifier *notifier, const Clock *clock) {
    m_notifier = notifier;
    if (clock)
        m_clock = clock;
}

void AppCore::popoverShown() {
    m_model->setSupervisor(m_supervisor);
}

void AppCore::signInFinishedElsewhere() {
    popoverShown();
    m_model->refresh();
}

} // namespace quonbrix
