#pragma once

#include "daemon_link/records.h"
#include "platform/clock.h"
#include "platform/desktop_session.h"

namespace quonbrix {

// Input idle for less than this counts as being at the machine.
inline constexpr double attentionActiveBelowSeconds = 120.0;

// One attention sample, or absent when there is no idle-time source: the daemon gets no
// heartbeat rather than an invented figure. Foreground keys are present only when known.
std::optional<AttentionHeartbeat>
sampleAttention(IdleTimeSource *idle, ForegroundAppSource *foreground, const Clock &clock);

} // namespace quonbrix
