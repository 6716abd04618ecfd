#pragma once

#include "daemon_link/records.h"
#include "platform/clock.h"
#include "platform/desktop_session.h"

namespace quonbrix {

// Input idle for less than this counts as being at the machine.
inline constexpr double attentionActiveBelowSeconds = 120.0;

// One attention sample from the idle time the desktop just gave, or absent without one: the
// daemon gets no heartbeat rather than an invented figure. Foreground keys are present only
// when known.
std::optional<AttentionHeartbeat> sampleAttention(std::optional<double> idleSeconds,
                                                  ForegroundAppSource *foreground,
                                                  const Clock &clock);

} // namespace quonbrix
