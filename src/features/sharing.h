#pragma once

#include "daemon_link/records.h"

namespace quonbrix {

// The one-line answer of a sync, for the popover and the command line.
QString syncResultMessage(const std::optional<SyncResult> &result);
// The words for a skipped sync's code.
QString syncSkipReason(const QString &skipped, const SyncResult &result);

struct SharingCounts {
    qsizetype shared = 0;
    qsizetype total = 0;
};
SharingCounts sharingCounts(const ConsentState &consent);
// "2 project labels shared. Details stay in console." and its siblings.
QString sharingSummary(SharingCounts counts);

} // namespace quonbrix
