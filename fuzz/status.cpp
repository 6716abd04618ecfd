// The daemon's /status body: it decodes fully or not at all, what decodes encodes back to the
// same record, and everything the popover, the tray's alerts and the command line work out from
// a status (reset instants, relative times, figures, timers) takes any decoded value.

#include "daemon_link/records.h"
#include "features/alerts.h"
#include "features/formatting.h"
#include "features/limit_forecast.h"
#include "features/provider_limits.h"
#include "features/sharing.h"
#include "features/today_figures.h"
#include "features/work_timers.h"
#include "fuzz_input.h"
#include "json/json_codec.h"

using namespace quonbrix;

namespace {

void figures(const DaemonStatus &status, const QDateTime &now) {
    const QLocale locale(QLocale::English, QLocale::UnitedStates);
    const QTimeZone zone("Asia/Tokyo");
    if (status.providerLimits) {
        const auto &limits = *status.providerLimits;
        limitHeadline(limits);
        groupProviderLimits(limits);
        highestFreshReading(limits);
        for (const ProviderLimitSnapshot &reading : limits) {
            limitIdentityKey(reading);
            usedPercentText(reading.usedPercent);
            limitSeverity(reading.usedPercent);
            providerLimitWindowName(reading);
            if (reading.resetsAtMs) {
                relativeTime(*reading.resetsAtMs, now);
                localResetCreditExpiry(*reading.resetsAtMs, locale, zone);
            }
            if (reading.capturedAtMs)
                relativeTime(*reading.capturedAtMs, now);
        }
    }
    if (status.codexResetCredits) {
        codexResetCreditsHelp(*status.codexResetCredits, now);
        if (status.codexResetCredits->earliestExpiresAtMs)
            localResetCreditExpiry(*status.codexResetCredits->earliestExpiresAtMs, locale, zone);
    }
    for (const TodayFigure &figure : todayFigures(status))
        todayFigureText(figure);
    sourceSharesText(todaySourceShares(status));
    sharingSummary(sharingCounts(status.consent));
    if (status.lastPushAt)
        relativeTime(*status.lastPushAt, now);
    if (status.currentWindow)
        formatTokens(status.currentWindow->estimatedTokens);
    if (status.alert) {
        percent(status.alert->windowRatio);
        percent(status.alert->projectedWeeklyRatio);
    }
    if (status.attention)
        formatSecondsAsHours(status.attention->activeSeconds);
    if (status.projects)
        for (const StatusProjectRow &row : *status.projects) {
            formatTokens(row.tokens);
            formatUSD(row.estCost);
        }
    for (const WorkSession *session : openWorkTimers(status))
        formatElapsedClock(workTimerElapsedSeconds(*session, now));
    // The forecast, with a recent reading of each window in its history as well.
    PaceHistory history;
    if (status.providerLimits) {
        history.record(double(now.toMSecsSinceEpoch()) - 20 * 60'000.0, *status.providerLimits);
        history.record(double(now.toMSecsSinceEpoch()), *status.providerLimits);
    }
    const ForecastContext context{now, &history, locale, zone};
    if (status.providerLimits)
        limitHeadline(*status.providerLimits, context);
    AlertRules alerts;
    alerts.afterPass(status, context);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::optional<DaemonStatus> status =
        json::decode<DaemonStatus>(fuzz::bytesOf(data, size));
    if (!status)
        return 0;
    fuzz::require(json::decode<DaemonStatus>(json::encodeBytes(*status)) == status,
                  "a decoded status does not survive encoding");
    figures(*status, QDateTime::fromMSecsSinceEpoch(1'780'000'000'000, QTimeZone::utc()));
    return 0;
}
