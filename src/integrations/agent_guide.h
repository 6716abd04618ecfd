#pragma once

// The agent guide shipped with the app: the same Markdown the daemon's brix_guide tool serves.
// "Copy agent guide" copies only its project-rules block.

#include <QString>
#include <optional>

namespace quonbrix::integrations {

// The guide's full text (a resource built into the program); absent when it cannot be read.
std::optional<QString> agentGuideText();

// The part between the project-rules markers: the inside of its ```markdown fence when it has
// one, else the marked text trimmed; the whole text when a marker is missing or out of order.
QString projectRules(const QString &guide);

} // namespace quonbrix::integrations
