#pragma once

#include <QString>

namespace quonbrix {

// Where one of the app's helper programs (quonbrix-popover, quonbrix-signin) is: installed in
// ../libexec/quonbrix/ beside the bin/ the app runs from, or next to the app in a build tree.
// The installed path when neither exists, so that a failure names where it was looked for.
QString helperProgram(const QString &applicationDir, const QString &name);

} // namespace quonbrix
