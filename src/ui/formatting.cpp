#include "ui/formatting.h"

#include "features/provider_limits.h"

namespace quonbrix {

QString formatTokens(qint64 n) {
    if (n < 1000)
        return QString::number(n);
    if (n < 1000000)
        return QString::asprintf("%.1fK", double(n) / 1000.0);
    return QString::asprintf("%.1fM", double(n) / 1000000.0);
}

QString formatUSD(double dollars) {
    if (dollars < 100.0)
        return QString::asprintf("$%.2f", dollars);
    return QString::asprintf("$%.0f", dollars);
}

QString percent(double fraction) {
    const auto whole = roundToInt64(fraction * 100.0);
    // Daemon figures can be anything; an impossible ratio shows as a dash, not a crash.
    if (!whole)
        return QStringLiteral("—");
    return QString::number(*whole) + QLatin1Char('%');
}

QString providerLimitWindowName(const ProviderLimitSnapshot &snapshot) {
    const QString &w = snapshot.window;
    if (w == QLatin1String("session"))
        return QStringLiteral("5h window");
    if (w == QLatin1String("week"))
        return QStringLiteral("Weekly");
    if (w == QLatin1String("week_scoped")) {
        if (snapshot.scopeLabel && !snapshot.scopeLabel->isEmpty())
            return QStringLiteral("Weekly · ") + *snapshot.scopeLabel;
        return QStringLiteral("Weekly (model)");
    }
    return w;
}

} // namespace quonbrix
