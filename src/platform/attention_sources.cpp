#include "platform/attention_sources.h"

#include "log/log_categories.h"
#include "platform/dbus_idle.h"
#include "platform/hyprland_ipc.h"
#include "platform/sway_ipc.h"
#include "platform/wayland_idle.h"

namespace quonbrix {

namespace {

// The X11 connection answers both questions; the idle side borrows it from the focus side.
class BorrowedIdleTime final : public IdleTimeSource {
public:
    explicit BorrowedIdleTime(IdleTimeSource *source)
        : m_source(source) {}
    void queryIdleSeconds(QObject *context, Answer answer) override {
        m_source->queryIdleSeconds(context, std::move(answer));
    }
    QString name() const override { return m_source->name(); }

private:
    IdleTimeSource *m_source;
};

bool isWaylandSession(const Environment &env) {
    return env.value(QStringLiteral("XDG_SESSION_TYPE"), QString()) == QLatin1String("wayland") ||
           env.contains(QStringLiteral("WAYLAND_DISPLAY"));
}

bool openX11(const Environment &env, AttentionSources &sources) {
    const QString display = env.value(QStringLiteral("DISPLAY"), QString());
    auto x11 = display.isEmpty() ? nullptr : X11DesktopSession::open(display);
    if (!x11)
        return false;
    sources.idle = std::make_unique<BorrowedIdleTime>(x11.get());
    sources.foreground = x11.get();
    sources.foregroundOwner = std::move(x11);
    return true;
}

// GNOME's and Plasma's compositors offer idle time over the session bus; the others (sway,
// Hyprland, …) only through a Wayland protocol.
std::unique_ptr<IdleTimeSource> compositorIdleTime(const Environment &env, QDBusConnection bus,
                                                   bool wayland) {
    if (auto mutter = MutterIdleTime::probe(bus))
        return mutter;
    if (auto kde = KdeScreenSaverIdleTime::probe(bus))
        return kde;
    const auto socket = wayland ? WaylandIdleTime::socketPath(env) : std::nullopt;
    return socket ? WaylandIdleTime::open(*socket) : nullptr;
}

// Only sway and Hyprland tell a client which window has the focus; GNOME and Plasma have no
// public interface for it, so the foreground keys stay absent there.
std::unique_ptr<ForegroundAppSource> compositorFocus(const Environment &env, QString &name) {
    const QString swaySocket = env.value(QStringLiteral("SWAYSOCK"), QString());
    if (!swaySocket.isEmpty()) {
        name = QStringLiteral("sway IPC");
        return std::make_unique<SwayFocus>(swaySocket);
    }
    if (const auto hyprland = HyprlandFocus::socketDirectory(env)) {
        name = QStringLiteral("Hyprland IPC");
        return std::make_unique<HyprlandFocus>(*hyprland);
    }
    return nullptr;
}

} // namespace

AttentionSources openAttentionSources(const Environment &env, QDBusConnection bus) {
    AttentionSources sources;
    QString focusName;
    const bool wayland = isWaylandSession(env);
    // A Wayland session never asks Xwayland: it sees only X11 clients' input and windows.
    if (!wayland && openX11(env, sources)) {
        focusName = sources.idle->name();
    } else {
        sources.idle = compositorIdleTime(env, bus, wayland);
        if (wayland) {
            sources.foregroundOwner = compositorFocus(env, focusName);
            sources.foreground = sources.foregroundOwner.get();
        }
    }
    if (!sources.idle)
        sources.why = wayland ? QStringLiteral("this Wayland session offers neither GNOME's "
                                               "IdleMonitor, KDE's ScreenSaver idle time nor a "
                                               "Wayland idle-notification protocol")
                              : QStringLiteral("no X11 display with the XScreenSaver extension "
                                               "and no idle service on the session bus");
    qCInfo(lcAttention, "[QuonBrix] attention: idle time from %s, focused application from %s",
           sources.idle ? qUtf8Printable(sources.idle->name()) : "nowhere",
           focusName.isEmpty() ? "nowhere" : qUtf8Printable(focusName));
    return sources;
}

} // namespace quonbrix
