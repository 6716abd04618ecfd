#pragma once

// What the popover says to change the set-up: the "Settings & integrations" group, the AI
// client set-up screen and the setup guide.

#include "app/mcp_setup.h"
#include "app/status_model.h"
#include "popover_link/popover_records.h"
#include "update/update_controller.h"

namespace quonbrix {

// `guideCopied`: the agent guide was copied since the popover opened (the row's done mark).
// `updater` adds the update row, `startsAtLogin` the autostart switch; either may be absent.
view::Settings settingsGroup(const StatusModel &model, bool guideCopied,
                             const UpdateController *updater = nullptr,
                             std::optional<bool> startsAtLogin = std::nullopt);
// The update row on its own, for the popover and the tests.
view::SetupRow updateRow(const UpdateController &updater);
view::McpSetup mcpSetupScreen(const McpSetup &setup);
view::Guide setupGuide(bool signedIn);

} // namespace quonbrix
