#pragma once

// When a provider window runs out at the current pace. One rule for the popover's rows and
// headline, the tooltips, the command line and the notice.

#include "daemon_link/records.h"
#include "features/provider_limits.h"

#include <QDateTime>
#include <QHash>
#include <QLocale>
#include <QTimeZone>
#include <deque>
#include <optional>
#include <vector>

namespace quonbrix {

// A window's used percentage and when the app saw it.
struct PaceSample {
    double atMs = 0;
    double usedPercent = 0;
};

// The recent readings of each window instance (by limitIdentityKey): about the last half hour,
// a sample a minute at most. Held in memory only; a restart starts from nothing.
class PaceHistory {
public:
    // Adds one status pass's fresh readings, seen at `nowMs`. Instances no longer reported (a
    // reset moved, so the window is a new one) are dropped with their samples.
    void record(double nowMs, const std::vector<ProviderLimitSnapshot> &readings);
    // Oldest first; empty for an instance not seen yet.
    const std::deque<PaceSample> &samples(const QString &identityKey) const;

private:
    QHash<QString, std::deque<PaceSample>> m_rings;
};

struct LimitForecast {
    double runOutMs = 0; // always before resetMs
    double resetMs = 0;
};

// When a fresh reading reaches 100 % at its pace, if that comes before its reset. The pace is
// the window's average since it started (reset less windowMinutes), or, once the same instance
// has been seen for ten minutes, that of the recent readings. Nothing for a stale reading, one
// without windowMinutes or resetsAtMs, one used up, one in the first 5 % of its window, a pace
// of zero, or numbers that cannot be (NaN, negative, a window that has not started or is over).
std::optional<LimitForecast> limitForecast(double nowMs, const ProviderLimitSnapshot &reading,
                                           const PaceHistory &history);

// What forecasts are worked out and worded with.
struct ForecastContext {
    QDateTime now;
    const PaceHistory *history = nullptr; // none for a one-off command: window averages only
    QLocale locale;
    QTimeZone zone;
};

// The row's line: "runs out ~15:40 at this pace"; empty without a forecast.
QString runOutRowText(const ProviderLimitSnapshot &reading, const ForecastContext &context);

struct RunOut {
    const ProviderLimitSnapshot *reading = nullptr;
    LimitForecast forecast;
};
// The soonest run-out among the readings that may alarm (never the Codex 5-hour window).
std::optional<RunOut> earliestRunOut(const std::vector<ProviderLimitSnapshot> &all,
                                     const ForecastContext &context);
// For the tooltips: "Claude Code 5h window runs out ~15:40 at this pace"; empty without one.
QString earliestRunOutLine(const std::vector<ProviderLimitSnapshot> &all,
                           const ForecastContext &context);

// The headline, its detail naming the earliest run-out when there is one: "… · provider
// reported · runs out ~15:40 at this pace" when it is the deciding reading's, else with the
// window's name.
LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all,
                            const ForecastContext &context);

// A window about to run out, for the notice: the soon-running-out rule of the alerts.
struct RunOutNotice {
    QString title; // "Claude Code 5h window runs out in ~12 min"
    QString body;  // "At this pace the limit is reached at 15:40, before it resets at 16:10."
};
// The notice for a reading whose run-out is less than 30 minutes away; none otherwise.
std::optional<RunOutNotice> runOutNotice(const ProviderLimitSnapshot &reading,
                                         const ForecastContext &context);

} // namespace quonbrix
