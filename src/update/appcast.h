#pragma once

#include "update/update_records.h"

#include <QByteArray>
#include <QString>
#include <variant>

namespace quonbrix {

// Orders version strings the way people read them: numerically by component (1.10.0 after
// 1.9.2, 1.2 the same as 1.2.0), and a pre-release before its release (1.2.0-rc1 before 1.2.0,
// rc1 before rc2). Negative, zero or positive like a comparison function.
int compareVersions(const QString &a, const QString &b);

// The newest installable item of an RSS appcast with the Sparkle namespace, or why there is
// none ("the feed is not valid XML: …", "the feed lists no versions for Linux").
std::variant<UpdateOffer, QString> newestInAppcast(const QByteArray &xml);

} // namespace quonbrix
