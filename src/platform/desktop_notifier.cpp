#include "platform/desktop_notifier.h"

#include "log/log_categories.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace quonbrix {

namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
} // namespace

DesktopNotifier::DesktopNotifier(QDBusConnection bus, Options options, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_options(std::move(options)) {
    m_bus.connect(service, path, service, QStringLiteral("NotificationClosed"), this,
                  SLOT(onClosed(uint, uint)));
}

void DesktopNotifier::post(const QString &identifier, const QString &title, const QString &body,
                           bool critical) {
    if (!m_bus.isConnected()) {
        if (!m_loggedFailure)
            qCInfo(lcNotifications,
                   "[QuonBrix] notifications: no session bus, notifications are off");
        m_loggedFailure = true;
        Q_EMIT posted(identifier, false);
        return;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, service, QStringLiteral("Notify"));
    const QVariantMap hints{
        {QStringLiteral("desktop-entry"), m_options.desktopEntry},
        {QStringLiteral("sound-name"), m_options.soundName},
        // The notification protocol's byte: 1 normal, 2 critical.
        {QStringLiteral("urgency"), QVariant::fromValue(uchar(critical ? 2 : 1))},
    };
    call << m_options.appName << m_ids.value(identifier) << m_options.icon << title << body
         << QStringList() << hints << qint32(-1);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    ++m_pending;
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier](QDBusPendingCallWatcher *w) {
                w->deleteLater();
                --m_pending;
                const QDBusPendingReply<uint> reply = *w;
                if (reply.isError()) {
                    if (!m_loggedFailure)
                        qCWarning(lcNotifications).noquote()
                            << "[QuonBrix] notifications: the notification service did not take"
                               " a notification:"
                            << reply.error().message();
                    m_loggedFailure = true;
                    m_ids.remove(identifier);
                    Q_EMIT posted(identifier, false);
                    return;
                }
                m_ids.insert(identifier, reply.value());
                Q_EMIT posted(identifier, true);
            });
}

void DesktopNotifier::onClosed(uint id, uint) {
    for (auto it = m_ids.begin(); it != m_ids.end(); ++it) {
        if (it.value() == id) {
            m_ids.erase(it);
            return;
        }
    }
}

} // namespace quonbrix
