#pragma once

// What the popover's work side says: "Current work" (timers), "Local projects", "Cloud sync
// (optional)", the header's update button and the footer, worded from the status model.

#include "app/status_model.h"
#include "popover_link/popover_records.h"

#include <QDateTime>

namespace quonbrix {

// Elapsed clocks are read at `now`.
view::Work workPanel(const StatusModel &model, const QDateTime &now);
// Whether any open timer runs, so its clock needs to tick.
bool anyTimerRunning(const std::optional<DaemonStatus> &status);
view::Projects projectsPanel(const std::optional<DaemonStatus> &status);
view::Sharing sharingPanel(const std::optional<DaemonStatus> &status);
view::Button updateButton(const StatusModel &model);
view::Footer footer(const StatusModel &model);

} // namespace quonbrix
