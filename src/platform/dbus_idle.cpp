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

AttentionSources openAttentionSources(const Environment &env, QDBusConnection bus) {
    AttentionSources sources;
    const QString sessionType = env.value(QStringLiteral("XDG_SESSION_TYPE"), QString());
    const auto display = env.value(QStringLiteral("DISPLAY"));
    const bool wayland =
        sessionType == QLatin1String("wayland") || env.contains(QStringLiteral("WAYLAND_DISPLAY"));
    if (!wayland && display && !display->isEmpty()) {
        if (auto x11 = X11DesktopSession::open(*display)) {
            X11DesktopSession *session = x11.get();
            sources.foreground = session;
            sources.foregroundOwner = std::move(x11);
            // The same connection answers both questions; the idle side borrows it.
            struct Borrowed final : IdleTimeSource {
                explicit Borrowed(X11DesktopSession *s)
                    : session(s) {}
                void queryIdleSeconds(QObject *context, Answer answer) override {
                    session->queryIdleSeconds(context, std::move(answer));
                }
                QString name() const override { return session->name(); }
                X11DesktopSession *session;
            };
            sources.idle = std::make_unique<Borrowed>(session);
            return sources;
        }
    }
    // Wayland: a client cannot see other clients' input or windows, so only the compositor's
    // own services can tell. Neither GNOME nor Plasma names the focused application over a
    // public interface, so the foreground keys stay absent there.
    if (hasService(bus, mutterService)) {
        sources.idle = std::make_unique<MutterIdleTime>(bus);
        return sources;
    }
    // Other desktops register the screen saver's name without the idle call; only keep it if
    // it answers.
    if (hasService(bus, kdeService) &&
        secondsFrom(bus.call(kdeCall(), QDBus::Block, probeTimeoutMs))) {
        sources.idle = std::make_unique<KdeScreenSaverIdleTime>(bus);
        return sources;
    }
    sources.why = wayland ? QStringLiteral("this Wayland session offers neither GNOME's "
                                           "IdleMonitor nor KDE's ScreenSaver idle time")
                          : QStringLiteral("no X11 display with the XScreenSaver extension and "
                                           "no idle service on the session bus");
    return sources;
}

} // namespace quonbrix
