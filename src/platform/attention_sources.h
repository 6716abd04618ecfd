#pragma once

#include "platform/desktop_session.h"
#include "platform/environment.h"

#include <QDBusConnection>
#include <memory>

namespace quonbrix {

// Where this session's attention samples come from. `idle` is null when the desktop offers
// no idle time at all; `why` then says what was looked for, for the log.
struct AttentionSources {
    std::unique_ptr<IdleTimeSource> idle;
    std::unique_ptr<ForegroundAppSource> foregroundOwner;
    ForegroundAppSource *foreground = nullptr;
    QString why;
};

// X11 sessions use the X server directly. Wayland sessions use what the compositor offers:
// idle time from GNOME's idle monitor, KDE's screen saver (both on the session bus) or the
// Wayland idle protocols, probed in that order; the focused application from sway's or
// Hyprland's IPC. Logs the choice. Called once at start-up; the probes wait a quarter of a
// second at most each.
AttentionSources openAttentionSources(const Environment &env, QDBusConnection bus);

} // namespace quonbrix
