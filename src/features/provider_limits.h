#pragma once

#include "daemon_link/records.h"
#include <QStringList>

namespace quonbrix {

// "claude-code" -> "Claude Code", "codex" -> "Codex", anything else as it stands.
QString providerDisplayName(const QString &source);

// The fresh reading with the highest usedPercent (first one on a tie), or null when every
// reading is stale or there is none. Stale readings never alarm the user.
const ProviderLimitSnapshot *highestFreshReading(const std::vector<ProviderLimitSnapshot> &all);

// x rounded to the nearest integer, halves away from zero; absent when x is not finite or the
// result does not fit in 64 bits. Daemon figures go through this before any integer cast.
std::optional<qint64> roundToInt64(double x);
// x with its fraction dropped, absent likewise.
std::optional<qint64> truncToInt64(double x);

// The Codex 5-hour window: listed, but it never decides the headline or raises an alert.
bool isCodexFiveHourWindow(const ProviderLimitSnapshot &snapshot);

// Order of a provider's windows on screen: the 5-hour window, the weekly one, per-model weekly
// ones, then anything else.
int windowRank(const QString &window);

// The distinct sources in order of first appearance; a later duplicate never moves a group.
QStringList orderedProviderLimitSources(const std::vector<ProviderLimitSnapshot> &all);

struct ProviderLimitGroup {
    QString source;
    std::vector<const ProviderLimitSnapshot *> snapshots; // by window rank, ties in list order
};
// The readings grouped per source for display, groups and rows in the order above.
std::vector<ProviderLimitGroup> groupProviderLimits(const std::vector<ProviderLimitSnapshot> &all);

// Names one window instance, so an alert fires once per instance: source|window|scope|reset,
// the reset part being whole minutes of resetsAtMs (jitter within a minute is the same
// instance), else the period, else empty. A reset too large for 64 bits counts as missing.
QString limitIdentityKey(const ProviderLimitSnapshot &snapshot);

// Reset tickets the Codex account can spend now; 0 when not reported.
qint64 resetTicketCount(const CodexResetCreditsStatus &credits);

enum class LimitSeverity { Fine, Warning, Critical };
// 95 % or more is critical, 80 % or more a warning.
LimitSeverity limitSeverity(double usedPercent);

// A daemon percentage (not a fraction) as a limit row shows it: rounded to a whole number,
// "91%", or "—" when it is no number.
QString usedPercentText(double usedPercent);

// The words over the limits: the popover's headline and the command line's limit lines.
struct LimitHeadline {
    QString text; // "You can keep working", …, or "Provider reading is stale"
    // The deciding reading's grade; absent when no reading could decide.
    std::optional<LimitSeverity> severity;
    QString remaining; // "4% left"; empty when no reading could decide
    QString detail;    // "Claude Code · 5h window · provider reported"; empty likewise
};
// The reading that decides the headline: the highest, the first on a tie. The Codex 5-hour
// window never decides it; stale readings do (the tray icon ignores them instead). Null when
// no reading can decide.
const ProviderLimitSnapshot *headlineReading(const std::vector<ProviderLimitSnapshot> &all);
// "N% left" is 100 less the percentage the deciding row shows, so the two always add up to 100.
LimitHeadline limitHeadline(const std::vector<ProviderLimitSnapshot> &all);
// What stands in for the headline when the daemon has no reading at all.
QString providerHeadroomUnavailableText();

} // namespace quonbrix
