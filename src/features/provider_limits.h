#pragma once

#include "daemon_link/records.h"

namespace quonbrix {

// "claude-code" -> "Claude Code", "codex" -> "Codex", anything else as it stands.
QString providerDisplayName(const QString &source);

// The fresh reading with the highest usedPercent (first one on a tie), or null when every
// reading is stale or there is none. Stale readings never alarm the user.
const ProviderLimitSnapshot *highestFreshReading(const std::vector<ProviderLimitSnapshot> &all);

// x rounded to the nearest integer, halves away from zero; absent when x is not finite or the
// result does not fit in 64 bits. Daemon figures go through this before any integer cast.
std::optional<qint64> roundToInt64(double x);

enum class LimitSeverity { Fine, Warning, Critical };
// 95 % or more is critical, 80 % or more a warning.
LimitSeverity limitSeverity(double usedPercent);

} // namespace quonbrix
