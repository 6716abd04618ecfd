#include "platform/single_instance.h"

#include "log/log_categories.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace quonbrix {

SingleInstance::SingleInstance(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus)) {}

SingleInstance::~SingleInstance() {
    if (m_owner) {
        m_bus.unregisterObject(objectPath);
        m_bus.unregisterService(serviceName);
    }
}

SingleInstance::Claim SingleInstance::claim() {
    if (!m_bus.isConnected() || !m_bus.interface())
        return Claim::NoBus;
    if (!m_bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots))
        qCWarning(lcShell) << "[QuonBrix] shell: could not export the activation object";
    const auto reply =
        m_bus.interface()->registerService(serviceName, QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        m_owner = true;
        return Claim::Primary;
    }
    m_bus.unregisterObject(objectPath);
    const QDBusMessage call = QDBusMessage::createMethodCall(
        serviceName, objectPath, QStringLiteral("app.quonbrix.QuonBrix"),
        QStringLiteral("Activate"));
    const QDBusMessage answer = m_bus.call(call, QDBus::Block, 2000);
    if (answer.type() == QDBusMessage::ReplyMessage)
        return Claim::ActivatedOther;
    // The owner is wedged or went away between the two calls; better two trays than none.
    qCWarning(lcShell) << "[QuonBrix] shell: another instance holds the session name but "
                          "did not answer:"
                       << answer.errorMessage();
    return Claim::NoBus;
}

void SingleInstance::Activate() {
    Q_EMIT activationRequested();
}

void SingleInstance::SignedIn() {
    Q_EMIT signedInElsewhere();
}

bool SingleInstance::reportSignIn(QDBusConnection bus) {
    if (!bus.isConnected())
        return false;
    const QDBusMessage call = QDBusMessage::createMethodCall(
        serviceName, objectPath, QStringLiteral("app.quonbrix.QuonBrix"),
        QStringLiteral("SignedIn"));
    return bus.call(call, QDBus::Block, 2000).type() == QDBusMessage::ReplyMessage;
}

} // namespace quonbrix
