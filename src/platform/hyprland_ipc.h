#pragma once

#include "platform/desktop_session.h"
#include "platform/environment.h"

#include <memory>

namespace quonbrix {

// The focused application on Hyprland, from its two sockets: ".socket.sock" answers
// "j/activewindow" once at the start, ".socket2.sock" then reports every focus change, so
// the answer is kept ready and a sample never waits on Hyprland. The id is the window's
// class; an event socket that goes away or speaks something else leaves no application
// (logged once).
class HyprlandFocus final : public ForegroundAppSource {
public:
    // The instance's socket folder from $HYPRLAND_INSTANCE_SIGNATURE:
    // $XDG_RUNTIME_DIR/hypr/<signature> (Hyprland 0.40 on), else /tmp/hypr/<signature>.
    static std::optional<QString> socketDirectory(const Environment &env);
    // Starts connecting; the first answer comes with Hyprland's first reply.
    explicit HyprlandFocus(const QString &socketDirectory);
    ~HyprlandFocus() override;
    std::optional<ForegroundApp> foregroundApp() override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace quonbrix
