#include "features/provider_limits.h"

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

std::optional<qint64> roundToInt64(double x) {
    const double r = std::round(x);
    // 2^63 is exactly representable; anything at or beyond it (or NaN) does not fit.
    if (!(r >= -9223372036854775808.0 && r < 9223372036854775808.0))
        return std::nullopt;
    return qint64(r);
}

LimitSeverity limitSeverity(double usedPercent) {
    if (usedPercent >= 95.0)
        return LimitSeverity::Critical;
    if (usedPercent >= 80.0)
        return LimitSeverity::Warning;
    return LimitSeverity::Fine;
}

} // namespace quonbrix
