#include "supervisor/daemon_restarter.h"

namespace quonbrix {

// Out of line so the vtable lives in exactly one object file.
DaemonRestarter::~DaemonRestarter() = default;

} // namespace quonbrix
