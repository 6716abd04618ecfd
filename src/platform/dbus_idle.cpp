#include "platform/dbus_idle.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>

namespace quonbrix {

namespace {

// Samples are 15 s apart; an idle time that comes later than this describes a moment long
// gone, so that tick sends no heartbeat.
constexpr int queryTimeoutMs = 1000;
// Start-up only, before the tray shows: whether a screen saver service has the idle call.
constexpr int probeTimeoutMs = 250;

const QString mutterService = QStringLiteral("org.gnome.Mutter.IdleMonitor");
const QString kdeService = QStringLiteral("org.freedesktop.ScreenSaver");

QDBusMessage mutterCall() {
    return QDBusMessage::createMethodCall(mutterService,
                                          QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"),
                                          mutterService, QStringLiteral("GetIdletime"));
}

QDBusMessage kdeCall() {
    return QDBusMessage::createMethodCall(kdeService, QStringLiteral("/ScreenSaver"), kdeService,
                                          QStringLiteral("GetSessionIdleTime"));
}

std::optional<double> secondsFrom(const QDBusMessage &answer) {
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().size() != 1)
        return std::nullopt;
    bool ok = false;
    const qulonglong ms = answer.arguments().constFirst().toULongLong(&ok);
    if (!ok)
        return std::nullopt;
    return static_cast<double>(ms) / 1000.0;
}

void queryIdleMilliseconds(const QDBusConnection &bus, const QDBusMessage &call, QObject *context,
                           IdleTimeSource::Answer answer) {
    // A call on a closed connection fails at once and still reports through the watcher.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, queryTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, answer = std::move(answer)] {
                         watcher->deleteLater();
                         answer(secondsFrom(watcher->reply()));
                     });
}

bool hasService(QDBusConnection &bus, const QString &service) {
    if (!bus.isConnected() || !bus.interface())
        return false;
    const QDBusReply<bool> reply = bus.interface()->isServiceRegistered(service);
    return reply.isValid() && reply.value();
}

} // namespace

MutterIdleTime::MutterIdleTime(QDBusConnection bus)
    : m_bus(std::move(bus)) {}

void MutterIdleTime::queryIdleSeconds(QObject *context, Answer answer) {
    queryIdleMilliseconds(m_bus, mutterCall(), context, std::move(answer));
}

KdeScreenSaverIdleTime::KdeScreenSaverIdleTime(QDBusConnection bus)
    : m_bus(std::move(bus)) {}

void KdeScreenSaverIdleTime::queryIdleSeconds(QObject *context, Answer answer) {
    queryIdleMilliseconds(m_bus, kdeCall(), context, std::move(answer));
}

std::unique_ptr<MutterIdleTime> MutterIdleTime::probe(QDBusConnection bus) {
    if (!hasService(bus, mutterService))
        return nullptr;
    return std::make_unique<MutterIdleTime>(bus);
}

std::unique_ptr<KdeScreenSaverIdleTime> KdeScreenSaverIdleTime::probe(QDBusConnection bus) {
    if (!hasService(bus, kdeService) ||
        !secondsFrom(bus.call(kdeCall(), QDBus::Block, probeTimeoutMs)))
        return nullptr;
    return std::make_unique<KdeScreenSaverIdleTime>(bus);
}

} // namespace quonbrix
