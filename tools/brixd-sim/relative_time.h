#pragma once

// Scenario files write instants relative to the moment they are served, so that a scenario
// looks current whether it is run today or in a year: "now", "now-90m", "now+2h", "now+3d",
// "now-1d-2h" (units s, m, h, d, w; a fraction such as "now-1.5h" is allowed).
//
// A placeholder takes the form its key has on the wire:
//   - keys ending in "Ms", and lastPushAt / expiresAt: epoch milliseconds (a JSON number);
//   - "period": the local calendar date, yyyy-MM-dd;
//   - any other key: ISO 8601 UTC text with milliseconds.

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace quonbrix::sim {

enum class TimeForm { EpochMs, CalendarDate, IsoText };

TimeForm timeFormForKey(QStringView key);

// True for "now" and for anything starting "now+" or "now-" (well-formed or not), so that a
// typo fails loudly instead of being served as text.
bool looksLikePlaceholder(QStringView text);

// The placeholder's offset from now in milliseconds; absent when it is malformed.
std::optional<qint64> placeholderOffsetMs(QStringView text);

struct ResolvedTree {
    QJsonObject tree;
    // The nearest instant after `anchor` that a placeholder named, as an offset; absent when
    // every placeholder lies in the past or at now.
    std::optional<qint64> nearestFutureOffsetMs;
};

// Replaces every placeholder in `tree`, taking `anchor` as now. A malformed placeholder fails
// the whole tree; `error` then names its path.
std::optional<ResolvedTree> resolvePlaceholders(const QJsonObject &tree, const QDateTime &anchor,
                                                QString *error);

// The daemon's ISO 8601 form: UTC, milliseconds, "Z".
QString isoUtc(const QDateTime &t);

} // namespace quonbrix::sim
