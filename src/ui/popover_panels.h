#pragma once

// What the popover's status panels say, worked out from one status record.

#include "daemon_link/records.h"
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

struct LimitHeadline {
    QString text;
    Tone tone = Tone::Secondary;
    QString symbol;
    QString remaining; // "4% left"; empty for a stale-only reading
    QString detail;    // "Claude Code · 5h window · provider reported"; empty likewise
};

struct PanelContext {
    QDateTime now;
    QLocale locale;
    QTimeZone zone;
};

// The headline over the limits panel. The Codex 5-hour window never decides it; stale
// readings do (the tray icon ignores them instead). Expects at least one reading.
LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all);
std::vector<view::LimitGroup> limitGroups(const DaemonStatus &status, const PanelContext &context);
view::Credits resetCreditBadge(const CodexResetCreditsStatus &credits, const PanelContext &context);
// The limits panel for a status: the headline and groups, or the unavailable form.
view::Limits limitsPanel(const std::optional<DaemonStatus> &status, const PanelContext &context);

std::vector<view::TodayColumn> todayColumns(const DaemonStatus &status);
std::vector<view::SourceShare> sourceBreakdown(const DaemonStatus &status);
view::Today todayPanel(const std::optional<DaemonStatus> &status);

} // namespace quonbrix
