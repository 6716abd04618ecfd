#pragma once

#include "platform/environment.h"

#include <QStringList>

namespace quonbrix::cli {

// quonbrix update --check: our version and the newest the feed offers.
int updateCommand(const QStringList &args, const Environment &env);
// quonbrix autostart on|off|status
int autostartCommand(const QStringList &args, const Environment &env);

} // namespace quonbrix::cli
