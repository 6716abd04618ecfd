// The daemon's small replies: /sync, /local-view/handoff and /worklogs/command (the session and
// the error), each decoded fully or not at all and surviving encoding; sync results go on to
// the message the popover and the command line show.

#include "daemon_link/records.h"
#include "features/sharing.h"
#include "features/work_timers.h"
#include "fuzz_input.h"
#include "json/json_codec.h"

#include <QTimeZone>

using namespace quonbrix;

namespace {

template <class T> std::optional<T> roundTrip(const QByteArray &body, const char *what) {
    std::optional<T> value = json::decode<T>(body);
    if (value)
        fuzz::require(json::decode<T>(json::encodeBytes(*value)) == value, what);
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QByteArray body = fuzz::bytesOf(data, size);
    const auto sync = roundTrip<SyncResult>(body, "sync result");
    syncResultMessage(sync);
    roundTrip<LocalViewHandoff>(body, "handoff");
    const auto reply = roundTrip<WorkTimerCommandResponse>(body, "work-timer reply");
    if (reply && reply->session) {
        const QDateTime now = QDateTime::fromMSecsSinceEpoch(1'780'000'000'000, QTimeZone::utc());
        formatElapsedClock(workTimerElapsedSeconds(*reply->session, now));
    }
    roundTrip<WorkTimerErrorResponse>(body, "work-timer error");
    return 0;
}
