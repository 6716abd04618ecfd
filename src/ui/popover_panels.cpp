#include "ui/popover_panels.h"

#include "features/formatting.h"
#include "features/provider_limits.h"
#include "features/today_figures.h"

#include <algorithm>
#include <cmath>

namespace quonbrix {

namespace {

const QString barHelp =
    QStringLiteral("Provider rate limit used (account-level, reported by the provider)");
const QString staleHelp = QStringLiteral("Provider reading is stale");

} // namespace

QString toneColor(Tone tone) {
    switch (tone) {
    case Tone::Green:
        return QStringLiteral("#2fa84f");
    case Tone::Orange:
        return QStringLiteral("#e88600");
    case Tone::Red:
        return QStringLiteral("#e0342b");
    case Tone::Secondary:
        break;
    }
    return QStringLiteral("#808086");
}

QString providerColor(const QString &source) {
    if (source == QLatin1String("claude-code"))
        return QStringLiteral("#d97757");
    if (source == QLatin1String("codex"))
        return QStringLiteral("#10a37f");
    return QStringLiteral("#8e8e93");
}

Tone headlineTone(std::optional<LimitSeverity> severity) {
    if (!severity)
        return Tone::Secondary;
    switch (*severity) {
    case LimitSeverity::Critical:
        return Tone::Red;
    case LimitSeverity::Warning:
        return Tone::Orange;
    case LimitSeverity::Fine:
        break;
    }
    return Tone::Green;
}

QString headlineSymbol(std::optional<LimitSeverity> severity) {
    if (!severity)
        return QStringLiteral("clock");
    return *severity == LimitSeverity::Fine ? QStringLiteral("checkmark.circle")
                                            : QStringLiteral("exclamationmark.triangle");
}

view::Credits resetCreditBadge(const CodexResetCreditsStatus &credits,
                               const PanelContext &context) {
    const qint64 n = resetTicketCount(credits);
    view::Credits badge;
    badge.text = QString::number(n) + QStringLiteral(" reset ") +
                 (n == 1 ? QStringLiteral("ticket") : QStringLiteral("tickets"));
    if (credits.earliestExpiresAtMs)
        badge.expiry =
            QStringLiteral("Earliest expiry ") +
            localResetCreditExpiry(*credits.earliestExpiresAtMs, context.locale, context.zone);
    badge.help = codexResetCreditsHelp(credits, context.now);
    badge.symbol = view::symbolUrl(QStringLiteral("ticket.fill"));
    return badge;
}

std::vector<view::LimitGroup> limitGroups(const DaemonStatus &status, const PanelContext &context) {
    std::vector<view::LimitGroup> out;
    if (!status.providerLimits)
        return out;
    const ForecastContext forecast = context.forecast();
    for (const ProviderLimitGroup &group : groupProviderLimits(*status.providerLimits)) {
        view::LimitGroup g;
        g.source = group.source;
        if (group.source == QLatin1String("claude-code") || group.source == QLatin1String("codex"))
            g.heading = providerDisplayName(group.source);
        else
            g.heading = QStringLiteral("AI tool: ") + group.source;
        g.color = providerColor(group.source);
        if (group.source == QLatin1String("codex") && status.codexResetCredits)
            g.credits = resetCreditBadge(*status.codexResetCredits, context);
        for (const ProviderLimitSnapshot *s : group.snapshots) {
            view::LimitRow row;
            if (s->window != QLatin1String("session"))
                row.symbol = view::symbolUrl(QStringLiteral("calendar"));
            row.windowName = providerLimitWindowName(*s);
            row.fraction =
                std::isnan(s->usedPercent) ? 0.0 : std::clamp(s->usedPercent / 100.0, 0.0, 1.0);
            row.percent = usedPercentText(s->usedPercent);
            if (s->resetsAtMs)
                row.resets = QStringLiteral("resets ") + relativeTime(*s->resetsAtMs, context.now);
            row.runOut = runOutRowText(*s, forecast);
            row.runOutColor = toneColor(Tone::Orange);
            row.stale = s->stale.value_or(false);
            row.help = row.stale ? staleHelp : barHelp;
            g.rows.push_back(std::move(row));
        }
        out.push_back(std::move(g));
    }
    return out;
}

view::Limits limitsPanel(const std::optional<DaemonStatus> &status, const PanelContext &context) {
    view::Limits limits;
    limits.title = QStringLiteral("Can I keep working?");
    limits.unavailableHeading = providerHeadroomUnavailableText();
    limits.unavailableText =
        QStringLiteral("Run Claude Code or Codex once. If no reading appears, update the app. A "
                       "token goal is not used as a substitute.");
    limits.unavailableSymbol = view::symbolUrl(QStringLiteral("questionmark.circle"));
    limits.creditsLabel = QStringLiteral("Codex reset tickets");
    if (!status)
        return limits;
    if (status->codexResetCredits)
        limits.unavailableCredits = resetCreditBadge(*status->codexResetCredits, context);
    limits.hasReadings = status->providerLimits && !status->providerLimits->empty();
    if (!limits.hasReadings)
        return limits;
    const LimitHeadline h = limitHeadline(*status->providerLimits, context.forecast());
    limits.headline = {h.text, toneColor(headlineTone(h.severity)),
                       view::symbolUrl(headlineSymbol(h.severity)), h.remaining, h.detail};
    limits.groups = limitGroups(*status, context);
    return limits;
}

std::vector<view::TodayColumn> todayColumns(const DaemonStatus &status) {
    std::vector<view::TodayColumn> columns;
    for (const TodayFigure &figure : todayFigures(status))
        columns.push_back(
            {figure.value, figure.caption, figure.help,
             figure.help.isEmpty() ? QString() : view::symbolUrl(QStringLiteral("info.circle"))});
    return columns;
}

std::vector<view::SourceShare> sourceBreakdown(const DaemonStatus &status) {
    std::vector<view::SourceShare> shares;
    for (const SourceShare &share : todaySourceShares(status))
        shares.push_back({share.name, share.fraction, share.percent});
    return shares;
}

view::Today todayPanel(const std::optional<DaemonStatus> &status) {
    view::Today today;
    today.title = QStringLiteral("Today");
    if (status) {
        today.columns = todayColumns(*status);
        today.shares = sourceBreakdown(*status);
    }
    return today;
}

} // namespace quonbrix
