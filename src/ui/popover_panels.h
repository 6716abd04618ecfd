#pragma once

// What the popover's status panels say, worked out from one status record: plain values the
// popover model hands to QML as they are.

#include "daemon_link/records.h"

#include <QColor>
#include <QDateTime>
#include <QLocale>
#include <QTimeZone>
#include <vector>

namespace quonbrix {

// Colours by meaning; the QML palette decides the exact shade.
enum class Tone { Green, Orange, Red, Secondary };
QColor toneColor(Tone tone);
// The small circle before a provider's group.
QColor providerColor(const QString &source);

struct LimitHeadline {
    QString text;
    Tone tone = Tone::Secondary;
    QString symbol;
    QString remaining; // "4% left"; empty for a stale-only reading
    QString detail;    // "Claude Code · 5h window · provider reported"; empty likewise
};

struct ResetCreditBadge {
    QString text;   // "3 reset tickets"
    QString expiry; // "Earliest expiry 11/25 9:00 AM JST", or empty
    QString help;
};

struct LimitRow {
    QString symbol; // "calendar" for weekly windows, else empty
    QString window;
    double fraction = 0; // for the bar, 0…1
    QString percent;     // "91%"
    QString resets;      // "resets in 2 days", or empty without a reset instant
    bool stale = false;
    QString help; // the row's help: stale or not
};

struct LimitGroup {
    QString source;
    QString heading;
    std::optional<ResetCreditBadge> credits;
    std::vector<LimitRow> rows;
};

struct TodayColumn {
    QString value;
    QString caption;
    QString help;
};

struct SourceShare {
    QString name;
    double fraction = 0;
    QString percent;
};

struct PanelContext {
    QDateTime now;
    QLocale locale;
    QTimeZone zone;
};

// The headline over the limits panel. The Codex 5-hour window never decides it; stale
// readings do (the tray icon ignores them instead). Expects at least one reading.
LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all);
std::vector<LimitGroup> limitGroups(const DaemonStatus &status, const PanelContext &context);
ResetCreditBadge resetCreditBadge(const CodexResetCreditsStatus &credits,
                                  const PanelContext &context);

std::vector<TodayColumn> todayColumns(const DaemonStatus &status);
std::vector<SourceShare> sourceBreakdown(const DaemonStatus &status);

// The texts that never change.
namespace panel_text {
inline const QString limitsTitle = QStringLiteral("Can I keep working?");
inline const QString barHelp =
    QStringLiteral("Provider rate limit used (account-level, reported by the provider)");
inline const QString staleHelp = QStringLiteral("Provider reading is stale");
inline const QString unavailableHeading = QStringLiteral("Provider headroom unavailable");
inline const QString unavailableText =
    QStringLiteral("Run Claude Code or Codex once. If no reading appears, update the app. A "
                   "token goal is not used as a substitute.");
inline const QString unavailableCredits = QStringLiteral("Codex reset tickets");
inline const QString todayTitle = QStringLiteral("Today");
} // namespace panel_text

} // namespace quonbrix
