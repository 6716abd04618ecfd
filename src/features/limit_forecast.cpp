#include "features/limit_forecast.h"

#include "features/formatting.h"

#include <algorithm>
#include <cmath>

namespace quonbrix {

namespace {

constexpr double minuteMs = 60'000.0;
// Providers use hours and weeks; a window longer than a year is a broken figure.
constexpr double longestWindowMinutes = 366.0 * 24 * 60;
// The window's first minutes say too little about its pace.
constexpr double earliestShare = 0.05;
// How long an instance must have been watched before its recent readings set the pace, and
// how far back they reach.
constexpr double recentAfterMs = 10 * minuteMs;
constexpr double recentSpanMs = 30 * minuteMs;
constexpr double sampleEveryMs = minuteMs;
constexpr std::size_t ringCapacity = 64;
constexpr double noticeWithinMinutes = 30.0;

double epochMs(const QDateTime &t) {
    return double(t.toMSecsSinceEpoch());
}

const PaceHistory &noHistory() {
    static const PaceHistory empty;
    return empty;
}

QString windowTitle(const ProviderLimitSnapshot &reading) {
    return providerDisplayName(reading.source) + u' ' + providerLimitWindowName(reading);
}

std::optional<LimitForecast> forecastIn(const ProviderLimitSnapshot &reading,
                                        const ForecastContext &context) {
    return limitForecast(epochMs(context.now), reading,
                         context.history ? *context.history : noHistory());
}

} // namespace

void PaceHistory::record(double nowMs, const std::vector<ProviderLimitSnapshot> &readings) {
    QHash<QString, std::deque<PaceSample>> kept;
    for (const ProviderLimitSnapshot &reading : readings) {
        const QString key = limitIdentityKey(reading);
        if (!kept.contains(key))
            kept.insert(key, m_rings.value(key));
        if (!std::isfinite(nowMs) || reading.stale.value_or(false) ||
            !(reading.usedPercent >= 0 && reading.usedPercent <= 100))
            continue;
        std::deque<PaceSample> &ring = kept[key];
        // A clock set back makes the samples' ages meaningless.
        if (!ring.empty() && nowMs < ring.back().atMs)
            ring.clear();
        if (!ring.empty() && nowMs - ring.back().atMs < sampleEveryMs)
            continue;
        ring.push_back({nowMs, reading.usedPercent});
        // Keep one sample at least half an hour old, so the recent pace spans the half hour.
        while (ring.size() > 2 && nowMs - ring[1].atMs >= recentSpanMs)
            ring.pop_front();
        while (ring.size() > ringCapacity)
            ring.pop_front();
    }
    m_rings = std::move(kept);
}

const std::deque<PaceSample> &PaceHistory::samples(const QString &identityKey) const {
    static const std::deque<PaceSample> none;
    const auto it = m_rings.constFind(identityKey);
    return it == m_rings.cend() ? none : *it;
}

std::optional<LimitForecast> limitForecast(double nowMs, const ProviderLimitSnapshot &reading,
                                           const PaceHistory &history) {
    if (reading.stale.value_or(false) || !reading.windowMinutes || !reading.resetsAtMs)
        return std::nullopt;
    const double used = reading.usedPercent;
    const double minutes = *reading.windowMinutes;
    const double resetMs = *reading.resetsAtMs;
    // Written so that NaN fails each test.
    if (!std::isfinite(nowMs) || !std::isfinite(resetMs))
        return std::nullopt;
    if (!(used >= 0 && used < 100) || !(minutes > 0 && minutes <= longestWindowMinutes))
        return std::nullopt;
    const double windowMs = minutes * minuteMs;
    const double elapsedMs = nowMs - (resetMs - windowMs);
    if (!(elapsedMs >= earliestShare * windowMs && elapsedMs <= windowMs))
        return std::nullopt;

    double pace = used / elapsedMs; // percent per millisecond
    const std::deque<PaceSample> &recent = history.samples(limitIdentityKey(reading));
    if (!recent.empty() && nowMs - recent.front().atMs >= recentAfterMs)
        pace = (used - recent.front().usedPercent) / (nowMs - recent.front().atMs);
    // A falling figure (the provider corrected it) is no pace either.
    if (!(pace > 0))
        return std::nullopt;
    const double runOutMs = nowMs + (100 - used) / pace;
    if (!(runOutMs < resetMs))
        return std::nullopt;
    return LimitForecast{runOutMs, resetMs};
}

QString runOutRowText(const ProviderLimitSnapshot &reading, const ForecastContext &context) {
    const auto forecast = forecastIn(reading, context);
    const QString at =
        forecast ? localClockTime(forecast->runOutMs, context.locale, context.zone) : QString();
    return at.isEmpty() ? QString()
                        : QStringLiteral("runs out ~") + at + QStringLiteral(" at this pace");
}

std::optional<RunOut> earliestRunOut(const std::vector<ProviderLimitSnapshot> &all,
                                     const ForecastContext &context) {
    std::optional<RunOut> first;
    for (const ProviderLimitSnapshot &reading : all) {
        if (isCodexFiveHourWindow(reading))
            continue;
        const auto forecast = forecastIn(reading, context);
        if (forecast && (!first || forecast->runOutMs < first->forecast.runOutMs))
            first = RunOut{&reading, *forecast};
    }
    return first;
}

QString earliestRunOutLine(const std::vector<ProviderLimitSnapshot> &all,
                           const ForecastContext &context) {
    const auto first = earliestRunOut(all, context);
    const QString text = first ? runOutRowText(*first->reading, context) : QString();
    return text.isEmpty() ? QString() : windowTitle(*first->reading) + u' ' + text;
}

LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all,
                            const ForecastContext &context) {
    LimitHeadline headline = limitHeadline(all);
    const auto first = earliestRunOut(all, context);
    const QString text = first ? runOutRowText(*first->reading, context) : QString();
    if (text.isEmpty() || headline.detail.isEmpty())
        return headline;
    headline.detail += QStringLiteral(" · ");
    if (first->reading != headlineReading(all))
        headline.detail += windowTitle(*first->reading) + u' ';
    headline.detail += text;
    return headline;
}

std::optional<RunOutNotice> runOutNotice(const ProviderLimitSnapshot &reading,
                                         const ForecastContext &context) {
    const auto forecast = forecastIn(reading, context);
    if (!forecast)
        return std::nullopt;
    const double minutesLeft = (forecast->runOutMs - epochMs(context.now)) / minuteMs;
    if (!(minutesLeft < noticeWithinMinutes))
        return std::nullopt;
    const QString runOutAt = localClockTime(forecast->runOutMs, context.locale, context.zone);
    const QString resetAt = localClockTime(forecast->resetMs, context.locale, context.zone);
    if (runOutAt.isEmpty() || resetAt.isEmpty())
        return std::nullopt;
    // Under 30 and not negative, so the rounding always fits.
    const qint64 shown = std::max<qint64>(1, roundToInt64(minutesLeft).value_or(1));
    return RunOutNotice{windowTitle(reading) + QStringLiteral(" runs out in ~") +
                            QString::number(shown) + QStringLiteral(" min"),
                        QStringLiteral("At this pace the limit is reached at ") + runOutAt +
                            QStringLiteral(", before it resets at ") + resetAt + u'.'};
}

} // namespace quonbrix
