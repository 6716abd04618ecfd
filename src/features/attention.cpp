#include "features/attention.h"

namespace quonbrix {

std::optional<AttentionHeartbeat> sampleAttention(std::optional<double> idleSeconds,
                                                  ForegroundAppSource *foreground,
                                                  const Clock &clock) {
    if (!idleSeconds)
        return std::nullopt;
    AttentionHeartbeat heartbeat;
    heartbeat.idleSeconds = *idleSeconds;
    heartbeat.active = *idleSeconds < attentionActiveBelowSeconds;
    if (foreground) {
        if (const auto app = foreground->foregroundApp()) {
            heartbeat.foregroundBundleId = app->id;
            heartbeat.foregroundName = app->name;
        }
    }
    heartbeat.ts = clock.nowMs();
    return heartbeat;
}

} // namespace quonbrix
