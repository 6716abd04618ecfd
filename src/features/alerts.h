#pragma once

#include "daemon_link/records.h"
#include "features/limit_forecast.h"

#include <QDateTime>
#include <QSet>
#include <optional>
#include <vector>

namespace quonbrix {

// One desktop notification. A later one with the same identifier replaces it on screen.
struct DesktopNotification {
    QString identifier;
    QString title;
    QString body;
    // Kept on screen by the notification server until dismissed: a limit at 95 % or more and
    // an exceeded goal.
    bool critical = false;

    bool operator==(const DesktopNotification &) const = default;
};

// The warnings the app raises from each status it loads, each announced once: the goal pace
// warning / goal exceeded notice per usage window, and per provider window instance "provider
// rate limit nearly used" and "runs out in ~N min". Remembers what it announced for as long as
// the app runs.
class AlertRules {
public:
    // The goal notice, if this status calls for one not yet posted. No status or no alert
    // leaves the memory as it is; a normal grading re-arms it.
    std::optional<DesktopNotification> goal(const std::optional<DaemonStatus> &status);
    // One notice per fresh reading at 90 % or more not yet announced, in list order. The Codex
    // 5-hour window is never announced.
    std::vector<DesktopNotification> providerLimits(const std::optional<DaemonStatus> &status,
                                                    const QDateTime &now);

    // One notice per window instance whose run-out at the current pace is less than 30
    // minutes away and before its reset; a pace that slows and picks up again stays silent.
    // Never for the Codex 5-hour window.
    std::vector<DesktopNotification> forecasts(const std::optional<DaemonStatus> &status,
                                               const ForecastContext &context);

    // The rules in this order, for the end of a status pass.
    std::vector<DesktopNotification> afterPass(const std::optional<DaemonStatus> &status,
                                               const ForecastContext &context);

private:
    std::optional<QString> m_lastAlertKey;
    QSet<QString> m_notifiedLimitKeys;
    QSet<QString> m_notifiedRunOutKeys;
};

} // namespace quonbrix
