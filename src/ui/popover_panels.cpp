#include "ui/popover_panels.h"

#include "features/formatting.h"
#include "features/provider_limits.h"

#include <algorithm>
#include <cmath>

namespace quonbrix {

QColor toneColor(Tone tone) {
    switch (tone) {
    case Tone::Green:
        return QColor(0x2f, 0xa8, 0x4f);
    case Tone::Orange:
        return QColor(0xe8, 0x86, 0x00);
    case Tone::Red:
        return QColor(0xe0, 0x34, 0x2b);
    case Tone::Secondary:
        break;
    }
    return QColor(0x80, 0x80, 0x86);
}

QColor providerColor(const QString &source) {
    if (source == QLatin1String("claude-code"))
        return QColor(0xd9, 0x77, 0x57);
    if (source == QLatin1String("codex"))
        return QColor(0x10, 0xa3, 0x7f);
    return QColor(0x8e, 0x8e, 0x93);
}

namespace {

// "91%": a daemon percentage (not a fraction) rounded to a whole number.
QString wholePercent(double usedPercent) {
    const auto rounded = roundToInt64(usedPercent);
    return rounded ? QString::number(*rounded) + u'%' : QStringLiteral("—");
}

} // namespace

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

ResetCreditBadge resetCreditBadge(const CodexResetCreditsStatus &credits,
                                  const PanelContext &context) {
    const qint64 n = resetTicketCount(credits);
    ResetCreditBadge badge;
    badge.text = QString::number(n) + QStringLiteral(" reset ") +
                 (n == 1 ? QStringLiteral("ticket") : QStringLiteral("tickets"));
    if (credits.earliestExpiresAtMs)
        badge.expiry =
            QStringLiteral("Earliest expiry ") +
            localResetCreditExpiry(*credits.earliestExpiresAtMs, context.locale, context.zone);
    badge.help = codexResetCreditsHelp(credits, context.now);
    return badge;
}

std::vector<LimitGroup> limitGroups(const DaemonStatus &status, const PanelContext &context) {
    std::vector<LimitGroup> out;
    if (!status.providerLimits)
        return out;
    for (const ProviderLimitGroup &group : groupProviderLimits(*status.providerLimits)) {
        LimitGroup g;
        g.source = group.source;
        if (group.source == QLatin1String("claude-code") || group.source == QLatin1String("codex"))
            g.heading = providerDisplayName(group.source);
        else
            g.heading = QStringLiteral("AI tool: ") + group.source;
        if (group.source == QLatin1String("codex") && status.codexResetCredits)
            g.credits = resetCreditBadge(*status.codexResetCredits, context);
        for (const ProviderLimitSnapshot *s : group.snapshots) {
            LimitRow row;
            if (s->window != QLatin1String("session"))
                row.symbol = QStringLiteral("calendar");
            row.window = providerLimitWindowName(*s);
            row.fraction =
                std::isnan(s->usedPercent) ? 0.0 : std::clamp(s->usedPercent / 100.0, 0.0, 1.0);
            row.percent = wholePercent(s->usedPercent);
            if (s->resetsAtMs)
                row.resets = QStringLiteral("resets ") + relativeTime(*s->resetsAtMs, context.now);
            row.stale = s->stale.value_or(false);
            row.help = row.stale ? panel_text::staleHelp : panel_text::barHelp;
            g.rows.push_back(std::move(row));
        }
        out.push_back(std::move(g));
    }
    return out;
}

std::vector<TodayColumn> todayColumns(const DaemonStatus &status) {
    std::vector<TodayColumn> columns;
    columns.push_back({formatTokens(status.output), QStringLiteral("output tokens"),
                       QStringLiteral("Output-token split by local source")});
    // The estimate is the whole API-list-price figure only when every token had a price.
    const bool complete =
        status.unpricedTokens.value_or(0) == 0 && status.indeterminateTokens.value_or(0) == 0;
    if (complete)
        columns.push_back({formatUSD(status.estCost), QStringLiteral("API equivalent"), {}});
    else
        columns.push_back(
            {status.pricedSubtotal ? formatUSD(*status.pricedSubtotal) : QStringLiteral("—"),
             QStringLiteral("priced API subtotal"),
             {}});
    if (status.attention)
        columns.push_back({formatSecondsAsHours(status.attention->activeSeconds),
                           QStringLiteral("coding time"),
                           {}});
    return columns;
}

std::vector<SourceShare> sourceBreakdown(const DaemonStatus &status) {
    const double claude = double(std::max<qint64>(0, status.claudeCodeOutput));
    const double codex = double(std::max<qint64>(0, status.codexOutput));
    const double total = claude + codex;
    const auto share = [total](const QString &name, double part) {
        const double f = total > 0 ? part / total : 0.0;
        return SourceShare{name, f, percent(f)};
    };
    return {share(QStringLiteral("Claude"), claude), share(QStringLiteral("Codex"), codex)};
}

} // namespace quonbrix
