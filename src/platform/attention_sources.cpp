#include "platform/attention_sources.h"

#include "platform/dbus_idle.h"

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

} // namespace

AttentionSources openAttentionSources(const Environment &env, QDBusConnection bus) {
    AttentionSources sources;
    const QString sessionType = env.value(QStringLiteral("XDG_SESSION_TYPE"), QString());
    const auto display = env.value(QStringLiteral("DISPLAY"));
    const bool wayland =
        sessionType == QLatin1String("wayland") || env.contains(QStringLiteral("WAYLAND_DISPLAY"));
    if (!wayland && display && !display->isEmpty()) {
        if (auto x11 = X11DesktopSession::open(*display)) {
            sources.idle = std::make_unique<BorrowedIdleTime>(x11.get());
            sources.foreground = x11.get();
            sources.foregroundOwner = std::move(x11);
            return sources;
        }
    }
    // Wayland: a client cannot see other clients' input or windows, so only the compositor's
    // own services can tell. Neither GNOME nor Plasma names the focused application over a
    // public interface, so the foreground keys stay absent there.
    if ((sources.idle = MutterIdleTime::probe(bus)))
        return sources;
    if ((sources.idle = KdeScreenSaverIdleTime::probe(bus)))
        return sources;
    sources.why = wayland ? QStringLiteral("this Wayland session offers neither GNOME's "
                                           "IdleMonitor nor KDE's ScreenSaver idle time")
                          : QStringLiteral("no X11 display with the XScreenSaver extension and "
                                           "no idle service on the session bus");
    return sources;
}

} // namespace quonbrix
