#include "features/alerts.h"

#include "features/formatting.h"
#include "features/provider_limits.h"
#include "log/log_categories.h"

#include <algorithm>

namespace quonbrix {

namespace {
constexpr double nearlyUsedPercent = 90.0;
}

std::optional<DesktopNotification> AlertRules::goal(const std::optional<DaemonStatus> &status) {
    if (!status || !status->alert)
        return std::nullopt;
    const AlertState &alert = *status->alert;
    const bool warn = alert.state == QLatin1String("warn");
    if (!warn && alert.state != QLatin1String("over")) {
        m_lastAlertKey.reset();
        return std::nullopt;
    }
    const QString window = status->currentWindow ? status->currentWindow->start : status->period;
    const QString key = alert.state + u'-' + window;
    if (m_lastAlertKey == key)
        return std::nullopt;
    m_lastAlertKey = key;

    const double used =
        std::max({alert.windowRatio, alert.weeklyRatio, alert.projectedWeeklyRatio});
    return DesktopNotification{QStringLiteral("quon-brix-") + key,
                               warn ? QStringLiteral("quon-brix goal pace warning")
                                    : QStringLiteral("quon-brix goal exceeded"),
                               percent(used) + QStringLiteral(" used · ") +
                                   formatTokens(alert.windowHeadroom) +
                                   QStringLiteral(" tokens left for this window"),
                               !warn};
}

std::vector<DesktopNotification>
AlertRules::providerLimits(const std::optional<DaemonStatus> &status, const QDateTime &now) {
    std::vector<DesktopNotification> out;
    if (!status || !status->providerLimits)
        return out;
    for (const ProviderLimitSnapshot &s : *status->providerLimits) {
        if (isCodexFiveHourWindow(s))
            continue;
        if (s.stale.value_or(false))
            continue;
        if (!(s.usedPercent >= nearlyUsedPercent)) // NaN never passes
            continue;
        const auto rounded = roundToInt64(s.usedPercent);
        if (!rounded) {
            // Daemon input never takes the app down; an impossible figure is just not shown.
            qCWarning(lcAlerts,
                      "[QuonBrix] alerts: skipped a %s reading with an impossible "
                      "usedPercent",
                      qUtf8Printable(s.source));
            continue;
        }
        const QString key = limitIdentityKey(s);
        if (m_notifiedLimitKeys.contains(key))
            continue;
        m_notifiedLimitKeys.insert(key);
        QString body = QStringLiteral("Provider rate limit nearly used");
        if (s.resetsAtMs)
            body += QStringLiteral(" · resets ") + relativeTime(*s.resetsAtMs, now);
        out.push_back({QStringLiteral("quon-brix-provider-limit-") + key,
                       providerDisplayName(s.source) + u' ' + providerLimitWindowName(s) +
                           QStringLiteral(" at ") + QString::number(*rounded) + u'%',
                       body, limitSeverity(s.usedPercent) == LimitSeverity::Critical});
    }
    return out;
}

std::vector<DesktopNotification> AlertRules::forecasts(const std::optional<DaemonStatus> &status,
                                                       const ForecastContext &context) {
    std::vector<DesktopNotification> out;
    if (!status || !status->providerLimits)
        return out;
    for (const ProviderLimitSnapshot &s : *status->providerLimits) {
        if (isCodexFiveHourWindow(s))
            continue;
        const auto notice = runOutNotice(s, context);
        if (!notice)
            continue;
        const QString key = limitIdentityKey(s);
        if (m_notifiedRunOutKeys.contains(key))
            continue;
        m_notifiedRunOutKeys.insert(key);
        out.push_back({QStringLiteral("quon-brix-forecast-") + key, notice->title, notice->body});
    }
    return out;
}

std::vector<DesktopNotification> AlertRules::afterPass(const std::optional<DaemonStatus> &status,
                                                       const ForecastContext &context) {
    std::vector<DesktopNotification> out;
    if (auto g = goal(status))
        out.push_back(std::move(*g));
    auto limits = providerLimits(status, context.now);
    out.insert(out.end(), std::make_move_iterator(limits.begin()),
               std::make_move_iterator(limits.end()));
    auto runOuts = forecasts(status, context);
    out.insert(out.end(), std::make_move_iterator(runOuts.begin()),
               std::make_move_iterator(runOuts.end()));
    return out;
}

} // namespace quonbrix
