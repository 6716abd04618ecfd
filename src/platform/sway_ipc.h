#pragma once

#include "platform/desktop_session.h"

#include <memory>

namespace quonbrix {

// The focused application on sway, from its IPC socket ($SWAYSOCK): the focused window's
// app_id, or an Xwayland window's X11 class. sway tells about every focus change, so the
// answer is kept ready and a sample never waits on sway. A socket that goes away or speaks
// something else leaves no application (logged once).
class SwayFocus final : public ForegroundAppSource {
public:
    // Starts connecting; the first answer comes with sway's first reply.
    explicit SwayFocus(const QString &socketPath);
    ~SwayFocus() override;
    std::optional<ForegroundApp> foregroundApp() override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace quonbrix
