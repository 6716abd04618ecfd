#include "ui/popover_panels.h"

#include "features/formatting.h"
#include "features/provider_limits.h"

#include <algorithm>
#include <cmath>

namespace quonbrix {

namespace {

const QString barHelp =
    QStringLiteral("Provider rate limit used (account-level, reported by the provider)");
const QString staleHelp = QStringLiteral("Provider reading is stale");

// "91%": a daemon percentage (not a fraction) rounded to a whole number.
QString wholePercent(double usedPercent) {
    const auto rounded = roundToInt64(usedPercent);
    return rounded ? QString::number(*rounded) + u'%' : QStringLiteral("—");
}

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

LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all) {
    const ProviderLimitSnapshot *top = nullptr;
    for (const auto &s : all) {
        if (s.source == QLatin1String("codex") && s.window == QLatin1String("session"))
            continue;
        if (std::isnan(s.usedPercent))
            continue;
        if (!top || s.usedPercent > top->usedPercent)
            top = &s;
    }
    if (!top)
        return {QStringLiteral("Provider reading is stale"), Tone::Secondary,
                QStringLiteral("clock"), QString(), QString()};

    LimitHeadline h;
    const double used = top->usedPercent;
    if (used >= 95.0) {
        h.text = QStringLiteral("Almost at a provider limit");
        h.tone = Tone::Red;
    } else if (used >= 80.0) {
        h.text = QStringLiteral("Watch your remaining headroom");
        h.tone = Tone::Orange;
    } else {
        h.text = QStringLiteral("You can keep working");
        h.tone = Tone::Green;
    }
    h.symbol = used >= 80.0 ? QStringLiteral("exclamationmark.triangle")
                            : QStringLiteral("checkmark.circle");
    const qint64 left = std::max<qint64>(0, roundToInt64(100.0 - used).value_or(0));
    h.remaining = QString::number(left) + QStringLiteral("% left");
    h.detail = providerDisplayName(top->source) + QStringLiteral(" · ") +
               providerLimitWindowName(*top) + QStringLiteral(" · provider reported");
    return h;
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
            row.percent = wholePercent(s->usedPercent);
            if (s->resetsAtMs)
                row.resets = QStringLiteral("resets ") + relativeTime(*s->resetsAtMs, context.now);
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
    limits.unavailableHeading = QStringLiteral("Provider headroom unavailable");
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
    const LimitHeadline h = limitHeadline(*status->providerLimits);
    limits.headline = {h.text, toneColor(h.tone), view::symbolUrl(h.symbol), h.remaining, h.detail};
    limits.groups = limitGroups(*status, context);
    return limits;
}

std::vector<view::TodayColumn> todayColumns(const DaemonStatus &status) {
    std::vector<view::TodayColumn> columns;
    columns.push_back({formatTokens(status.output), QStringLiteral("output tokens"),
                       QStringLiteral("Output-token split by local source"),
                       view::symbolUrl(QStringLiteral("info.circle"))});
    // The estimate is the whole API-list-price figure only when every token had a price.
    const bool complete =
        status.unpricedTokens.value_or(0) == 0 && status.indeterminateTokens.value_or(0) == 0;
    if (complete)
        columns.push_back({formatUSD(status.estCost), QStringLiteral("API equivalent"), {}, {}});
    else
        columns.push_back(
            {status.pricedSubtotal ? formatUSD(*status.pricedSubtotal) : QStringLiteral("—"),
             QStringLiteral("priced API subtotal"),
             {},
             {}});
    if (status.attention)
        columns.push_back({formatSecondsAsHours(status.attention->activeSeconds),
                           QStringLiteral("coding time"),
                           {},
                           {}});
    return columns;
}

std::vector<view::SourceShare> sourceBreakdown(const DaemonStatus &status) {
    const double claude = double(std::max<qint64>(0, status.claudeCodeOutput));
    const double codex = double(std::max<qint64>(0, status.codexOutput));
    const double total = claude + codex;
    const auto share = [total](const QString &name, double part) {
        const double f = total > 0 ? part / total : 0.0;
        return view::SourceShare{name, f, percent(f)};
    };
    return {share(QStringLiteral("Claude"), claude), share(QStringLiteral("Codex"), codex)};
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
