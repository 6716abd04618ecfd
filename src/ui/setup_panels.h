#pragma once

// What the popover says to change the set-up: the "Settings & integrations" group, the AI
// client set-up screen and the setup guide.

#include "app/mcp_setup.h"
#include "app/status_model.h"
#include "popover_link/popover_records.h"

namespace quonbrix {

// `guideCopied`: the agent guide was copied since the popover opened (the row's done mark).
view::Settings settingsGroup(const StatusModel &model, bool guideCopied);
view::McpSetup mcpSetupScreen(const McpSetup &setup);
view::Guide setupGuide(bool signedIn);

} // namespace quonbrix
