#pragma once

#include "platform/environment.h"

#include <QStringList>

namespace quonbrix::cli {

// quonbrix mcp status | install [--client NAME|all] | snippet --client NAME
int mcpCommand(const QStringList &args, const Environment &env);
// quonbrix guide: the agent guide's project rules, for appending to AGENTS.md.
int guideCommand(const QStringList &args);

} // namespace quonbrix::cli
