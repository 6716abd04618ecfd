#pragma once

#include "daemon_link/records.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

namespace quonbrix {

// Short texts for the figures of the status record. Pure functions of their arguments.

// 999 -> "999", 12345 -> "12.3K", 1500000 -> "1.5M"; the unit is chosen on the integer.
QString formatTokens(qint64 n);
// Below $100 with cents, from $100 on in whole dollars; no thousands separators.
QString formatUSD(double dollars);
// A fraction as a whole percent, halves away from zero, not clamped: 0.87 -> "87%".
QString percent(double fraction);
// "5h window", "Weekly", "Weekly · Opus", "Weekly (model)", or the window as it stands.
QString providerLimitWindowName(const ProviderLimitSnapshot &snapshot);

// Whole minutes as "45m", "2h" or "1h 5m"; hours never fold into days. Seconds are rounded to
// the nearest minute, halves away from zero.
QString formatSecondsAsHours(qint64 seconds);

// An instant relative to `now`, abbreviated: "in 2 days", "5 min. ago", "in 3 hr.". The
// largest unit that is at least one whole step wins; under a second it is "now".
QString relativeTime(double epochMs, const QDateTime &now);

// An absolute stamp for the instant in `zone`: month, day, hour and minute in the locale's
// order and clock, a blank, and the zone's abbreviation (its identifier when it has none).
QString localResetCreditExpiry(double epochMs, const QLocale &locale, const QTimeZone &zone);

// The hour and minute of the instant in `zone`, on the locale's clock: "15:40" or "3:40 PM".
// Empty when the instant is beyond what a date can hold.
QString localClockTime(double epochMs, const QLocale &locale, const QTimeZone &zone);

// The reset-credit badge's help: "3 Codex reset tickets available · earliest expires in 2
// days", or without an expiry just the count part.
QString codexResetCreditsHelp(const CodexResetCreditsStatus &credits, const QDateTime &now);

} // namespace quonbrix
