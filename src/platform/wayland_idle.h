#pragma once

#include "platform/desktop_session.h"
#include "platform/environment.h"

#include <memory>

namespace quonbrix {

// Idle time on compositors that offer idle notifications instead of a query (sway, Hyprland,
// other wlroots compositors): ext_idle_notifier_v1 where advertised, else KDE's
// org_kde_kwin_idle, the only one sway 1.7 has. The compositor says "idle" after a second
// without input and "resumed" at the next input; the idle time is counted from there. Runs
// on a Wayland connection of its own, read from the event loop, so a query never waits.
class WaylandIdleTime final : public IdleTimeSource {
public:
    // The compositor's socket: $WAYLAND_DISPLAY, under $XDG_RUNTIME_DIR unless absolute.
    static std::optional<QString> socketPath(const Environment &env);
    // Null when nothing listens at `socketPath`, the compositor does not list its globals
    // within a quarter of a second, or it has no seat or neither protocol.
    static std::unique_ptr<WaylandIdleTime> open(const QString &socketPath);
    ~WaylandIdleTime() override;

    // Absent once the compositor has closed the connection.
    void queryIdleSeconds(QObject *, Answer answer) override;
    QString name() const override;

    struct Private;

private:
    explicit WaylandIdleTime(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d;
};

} // namespace quonbrix
