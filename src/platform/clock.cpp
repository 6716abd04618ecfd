#include "platform/clock.h"

namespace quonbrix {

const SystemClock &SystemClock::instance() {
    static const SystemClock clock;
    return clock;
}

} // namespace quonbrix
