#pragma once

#include "daemon_link/records.h"

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

} // namespace quonbrix
