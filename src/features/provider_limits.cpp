#include "features/provider_limits.h"

#include "features/formatting.h"

#include <algorithm>
#include <cmath>

namespace quonbrix {

QString providerDisplayName(const QString &source) {
    if (source == QLatin1String("claude-code"))
        return QStringLiteral("Claude Code");
    if (source == QLatin1String("codex"))
        return QStringLiteral("Codex");
    return source;
}

const ProviderLimitSnapshot *highestFreshReading(const std::vector<ProviderLimitSnapshot> &all) {
    const ProviderLimitSnapshot *best = nullptr;
    for (const auto &snapshot : all) {
        if (snapshot.stale.value_or(false))
            continue;
        if (!best || snapshot.usedPercent > best->usedPercent)
            best = &snapshot;
    }
    return best;
}

namespace {

std::optional<qint64> toInt64(double whole) {
    // 2^63 is exactly representable; anything at or beyond it (or NaN) does not fit.
    if (!(whole >= -9223372036854775808.0 && whole < 9223372036854775808.0))
        return std::nullopt;
    return qint64(whole);
}

} // namespace

std::optional<qint64> roundToInt64(double x) {
    return toInt64(std::round(x));
}

std::optional<qint64> truncToInt64(double x) {
    return toInt64(std::trunc(x));
}

bool isCodexFiveHourWindow(const ProviderLimitSnapshot &snapshot) {
    return snapshot.source == QLatin1String("codex") && snapshot.window == QLatin1String("session");
}

int windowRank(const QString &window) {
    if (window == QLatin1String("session"))
        return 0;
    if (window == QLatin1String("week"))
        return 1;
    if (window == QLatin1String("week_scoped"))
        return 2;
    return 3;
}

QStringList orderedProviderLimitSources(const std::vector<ProviderLimitSnapshot> &all) {
    QStringList sources;
    for (const auto &snapshot : all)
        if (!sources.contains(snapshot.source))
            sources << snapshot.source;
    return sources;
}

std::vector<ProviderLimitGroup> groupProviderLimits(const std::vector<ProviderLimitSnapshot> &all) {
    std::vector<ProviderLimitGroup> groups;
    for (const QString &source : orderedProviderLimitSources(all)) {
        ProviderLimitGroup group{source, {}};
        for (const auto &snapshot : all)
            if (snapshot.source == source)
                group.snapshots.push_back(&snapshot);
        std::stable_sort(group.snapshots.begin(), group.snapshots.end(),
                         [](const ProviderLimitSnapshot *a, const ProviderLimitSnapshot *b) {
                             return windowRank(a->window) < windowRank(b->window);
                         });
        groups.push_back(std::move(group));
    }
    return groups;
}

QString limitIdentityKey(const ProviderLimitSnapshot &snapshot) {
    // A reset instant out of any integer's range keys like a reading without one.
    const std::optional<qint64> minutes =
        snapshot.resetsAtMs ? truncToInt64(*snapshot.resetsAtMs / 60000.0) : std::nullopt;
    const QString reset = minutes ? QString::number(*minutes) : snapshot.period.value_or(QString());
    return snapshot.source + u'|' + snapshot.window + u'|' +
           snapshot.scopeLabel.value_or(QString()) + u'|' + reset;
}

qint64 resetTicketCount(const CodexResetCreditsStatus &credits) {
    return credits.availableCount.value_or(0);
}

LimitSeverity limitSeverity(double usedPercent) {
    if (usedPercent >= 95.0)
        return LimitSeverity::Critical;
    if (usedPercent >= 80.0)
        return LimitSeverity::Warning;
    return LimitSeverity::Fine;
}

QString usedPercentText(double usedPercent) {
    const auto rounded = roundToInt64(usedPercent);
    return rounded ? QString::number(*rounded) + u'%' : QStringLiteral("—");
}

const ProviderLimitSnapshot *headlineReading(const std::vector<ProviderLimitSnapshot> &all) {
    const ProviderLimitSnapshot *top = nullptr;
    for (const auto &s : all) {
        if (isCodexFiveHourWindow(s))
            continue;
        if (std::isnan(s.usedPercent))
            continue;
        if (!top || s.usedPercent > top->usedPercent)
            top = &s;
    }
    return top;
}

LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all) {
    const ProviderLimitSnapshot *top = headlineReading(all);
    if (!top)
        return {QStringLiteral("Provider reading is stale"), std::nullopt, {}, {}};

    LimitHeadline h;
    h.severity = limitSeverity(top->usedPercent);
    switch (*h.severity) {
    case LimitSeverity::Critical:
        h.text = QStringLiteral("Almost at a provider limit");
        break;
    case LimitSeverity::Warning:
        h.text = QStringLiteral("Watch your remaining headroom");
        break;
    case LimitSeverity::Fine:
        h.text = QStringLiteral("You can keep working");
        break;
    }
    // From the rounded figure the row shows (80.5 shows "81%", so "19% left"); clamped
    // before subtracting, as a daemon figure can be anything up to ±2^63.
    const double used = top->usedPercent;
    const qint64 shown =
        std::clamp<qint64>(roundToInt64(used).value_or(used > 0 ? 100 : 0), 0, 100);
    h.remaining = QString::number(100 - shown) + QStringLiteral("% left");
    h.detail = providerDisplayName(top->source) + QStringLiteral(" · ") +
               providerLimitWindowName(*top) + QStringLiteral(" · provider reported");
    return h;
}

QString providerHeadroomUnavailableText() {
    return QStringLiteral("Provider headroom unavailable");
}

} // namespace quonbrix
