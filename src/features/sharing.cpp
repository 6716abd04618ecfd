#include "features/sharing.h"

namespace quonbrix {

namespace {
QString counted(qint64 n, const char *noun) {
    return QString::number(n) + u' ' + QString::fromLatin1(noun) +
           (n == 1 ? QString() : QStringLiteral("s"));
}
} // namespace

QString syncSkipReason(const QString &skipped, const SyncResult &) {
    if (skipped == QLatin1String("consent-off"))
        return QStringLiteral("Sharing paused — turn it back on in the console");
    if (skipped == QLatin1String("not-enrolled"))
        return QStringLiteral("Not enrolled");
    if (skipped == QLatin1String("busy"))
        return QStringLiteral("A sync is already running");
    if (skipped == QLatin1String("error"))
        return QStringLiteral("Sync failed — check your connection");
    return QStringLiteral("Nothing to sync");
}

QString syncResultMessage(const std::optional<SyncResult> &result) {
    if (!result)
        return QStringLiteral("Sync failed — is the daemon running?");
    if (result->skipped) {
        // A machine that is not signed in still refreshed its local rows: that is a success.
        if (*result->skipped == QLatin1String("not-enrolled") && result->collected >= 1)
            return QStringLiteral("Refreshed ") + counted(result->collected, "local row");
        return syncSkipReason(*result->skipped, *result);
    }
    if (result->pushed > 0)
        return QStringLiteral("Synced ") + counted(result->pushed, "row");
    return QStringLiteral("Already up to date");
}

SharingCounts sharingCounts(const ConsentState &consent) {
    SharingCounts counts;
    for (const auto &[key, project] : consent.projects) {
        ++counts.total;
        if (project.shared)
            ++counts.shared;
    }
    return counts;
}

QString sharingSummary(SharingCounts counts) {
    if (counts.total == 0)
        return QStringLiteral("Choose project sharing in the web console.");
    if (counts.shared > 0)
        return counted(counts.shared, "project label") +
               QStringLiteral(" shared. Details stay in console.");
    return counted(counts.total, "project label") + QStringLiteral(" available in console.");
}

} // namespace quonbrix
