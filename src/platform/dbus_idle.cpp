#include "platform/dbus_idle.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

namespace quonbrix {

namespace {

// A sample every 15 s runs on the GUI thread; a compositor that does not answer quickly is
// treated as having no answer rather than freezing the tray.
constexpr int callTimeoutMs = 250;

const QString mutterService = QStringLiteral("org.gnome.Mutter.IdleMonitor");
const QString kdeService = QStringLiteral("org.freedesktop.ScreenSaver");

std::optional<double> idleMillisecondsCall(QDBusConnection &bus, const QString &service,
                                           const QString &path, const QString &interface,
                                           const QString &method) {
    if (!bus.isConnected())
        return std::nullopt;
    const QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
    const QDBusMessage answer = bus.call(call, QDBus::Block, callTimeoutMs);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().size() != 1)
        return std::nullopt;
    bool ok = false;
    const qulonglong ms = answer.arguments().constFirst().toULongLong(&ok);
    if (!ok)
        return std::nullopt;
    return static_cast<double>(ms) / 1000.0;
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

std::optional<double> MutterIdleTime::idleSeconds() {
    return idleMillisecondsCall(m_bus, mutterService,
                                QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"), mutterService,
                                QStringLiteral("GetIdletime"));
}

KdeScreenSaverIdleTime::KdeScreenSaverIdleTime(QDBusConnection bus)
    : m_bus(std::move(bus)) {}

std::optional<double> KdeScreenSaverIdleTime::idleSeconds() {
    return idleMillisecondsCall(m_bus, kdeService, QStringLiteral("/ScreenSaver"), kdeService,
                                QStringLiteral("GetSessionIdleTime"));
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
                std::optional<double> idleSeconds() override { return session->idleSeconds(); }
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
    if (hasService(bus, kdeService)) {
        auto kde = std::make_unique<KdeScreenSaverIdleTime>(bus);
        // Other desktops register the same name without the idle call; only keep it if it
        // answers.
        if (kde->idleSeconds()) {
            sources.idle = std::move(kde);
            return sources;
        }
    }
    sources.why = wayland ? QStringLiteral("this Wayland session offers neither GNOME's "
                                           "IdleMonitor nor KDE's ScreenSaver idle time")
                          : QStringLiteral("no X11 display with the XScreenSaver extension and "
                                           "no idle service on the session bus");
    return sources;
}

} // namespace quonbrix
