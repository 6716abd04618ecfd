#include "app/app_core.h"

namespace quonbrix {

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

void AppCore::popoverShown() {
    m_model->setSupervisor(m_supervisor);
}

} // namespace quonbrix
