#pragma once

// What the popover's status panels say, worked out from one status record.

#include "daemon_link/records.h"
#include "features/limit_forecast.h"
#include "features/provider_limits.h"
#include "popover_link/popover_records.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>
#include <vector>

namespace quonbrix {

// Colours by meaning, as "#rrggbb".
enum class Tone { Green, Orange, Red, Secondary };
QString toneColor(Tone tone);
// The small circle before a provider's group.
QString providerColor(const QString &source);

struct PanelContext {
    QDateTime now;
    QLocale locale;
    QTimeZone zone;
    // The recent readings that pace the run-out forecasts; none: window averages only.
    const PaceHistory *history = nullptr;

    ForecastContext forecast() const { return {now, history, locale, zone}; }
};

// The headline's colour and symbol for the deciding reading's grade (none: no reading decided).
Tone headlineTone(std::optional<LimitSeverity> severity);
QString headlineSymbol(std::optional<LimitSeverity> severity);
std::vector<view::LimitGroup> limitGroups(const DaemonStatus &status, const PanelContext &context);
view::Credits resetCreditBadge(const CodexResetCreditsStatus &credits, const PanelContext &context);
// The limits panel for a status: the headline and groups, or the unavailable form.
view::Limits limitsPanel(const std::optional<DaemonStatus> &status, const PanelContext &context);

// The Today panel: the figures and shares of features/today_figures, as the popover's records.
std::vector<view::TodayColumn> todayColumns(const DaemonStatus &status);
std::vector<view::SourceShare> sourceBreakdown(const DaemonStatus &status);
view::Today todayPanel(const std::optional<DaemonStatus> &status);

} // namespace quonbrix
