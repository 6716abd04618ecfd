#include "features/today_figures.h"

#include "features/formatting.h"

#include <QStringList>
#include <algorithm>

namespace quonbrix {

std::vector<TodayFigure> todayFigures(const DaemonStatus &status) {
    std::vector<TodayFigure> figures;
    figures.push_back({formatTokens(status.output), QStringLiteral("output tokens"),
                       QStringLiteral("Output-token split by local source")});
    // The estimate is the whole API-list-price figure only when every token had a price.
    const bool complete =
        status.unpricedTokens.value_or(0) == 0 && status.indeterminateTokens.value_or(0) == 0;
    if (complete)
        figures.push_back({formatUSD(status.estCost), QStringLiteral("API equivalent"), {}});
    else
        figures.push_back(
            {status.pricedSubtotal ? formatUSD(*status.pricedSubtotal) : QStringLiteral("—"),
             QStringLiteral("priced API subtotal"),
             {}});
    if (status.attention)
        figures.push_back({formatSecondsAsHours(status.attention->activeSeconds),
                           QStringLiteral("coding time"),
                           {}});
    return figures;
}

QString todayFigureText(const TodayFigure &figure) {
    return figure.value + u' ' + figure.caption;
}

std::vector<SourceShare> todaySourceShares(const DaemonStatus &status) {
    const double claude = double(std::max<qint64>(0, status.claudeCodeOutput));
    const double codex = double(std::max<qint64>(0, status.codexOutput));
    const double total = claude + codex;
    const auto share = [total](const QString &name, double part) {
        const double f = total > 0 ? part / total : 0.0;
        return SourceShare{name, f, percent(f)};
    };
    return {share(QStringLiteral("Claude"), claude), share(QStringLiteral("Codex"), codex)};
}

QString sourceSharesText(const std::vector<SourceShare> &shares) {
    QStringList parts;
    for (const SourceShare &s : shares)
        parts << s.name + u' ' + s.percent;
    return parts.join(QStringLiteral(" · "));
}

} // namespace quonbrix
