#include "features/work_timers.h"

#include <QRegularExpression>

namespace quonbrix {

void appendFeedback(std::vector<WorkTimerFeedback> &list, WorkTimerFeedback entry) {
    list.push_back(std::move(entry));
    if (list.size() >= 5)
        list.erase(list.begin(), list.end() - 4);
}

std::optional<QDateTime> parseInternetDateTime(const QString &text) {
    // Date with dashes, time with colons, optional fraction, and a zone: Z or ±hh:mm.
    static const QRegularExpression form(QStringLiteral(
        "^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(\\.\\d+)?(Z|[+-]\\d{2}:\\d{2})$"));
    if (!form.match(text).hasMatch())
        return std::nullopt;
    const QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!parsed.isValid())
        return std::nullopt;
    return parsed;
}

qint64 workTimerElapsedSeconds(const WorkSession &session, const QDateTime &now) {
    qint64 total = 0;
    for (const WorkSegment &segment : session.segments) {
        const auto start = parseInternetDateTime(segment.startedAt);
        if (!start)
            continue;
        std::optional<QDateTime> end;
        if (segment.endedAt)
            end = parseInternetDateTime(*segment.endedAt);
        const qint64 ms = start->msecsTo(end.value_or(now));
        // Truncated toward zero per segment; a clock that went back never subtracts time.
        total += std::max<qint64>(0, ms / 1000);
    }
    return total;
}

QString workTimerSuccessMessage(const QString &action) {
    if (action == QLatin1String("start"))
        return QStringLiteral("Timer started");
    if (action == QLatin1String("pause"))
        return QStringLiteral("Timer paused");
    if (action == QLatin1String("resume"))
        return QStringLiteral("Timer resumed");
    if (action == QLatin1String("complete"))
        return QStringLiteral("Timer completed");
    if (action == QLatin1String("cancel"))
        return QStringLiteral("Timer cancelled");
    return QStringLiteral("Timer updated");
}

std::optional<QString> trimmedProjectLabel(const QString &typed) {
    const QString label = typed.trimmed();
    if (label.isEmpty())
        return std::nullopt;
    return label;
}

QString formatElapsedClock(qint64 seconds) {
    const qint64 s = std::max<qint64>(0, seconds);
    return QString::asprintf("%02lld:%02lld:%02lld", s / 3600, (s / 60) % 60, s % 60);
}

bool isOpenWorkTimer(const WorkSession &session) {
    return !session.completedAt && session.status != QLatin1String("completed") &&
           session.status != QLatin1String("cancelled");
}

std::vector<const WorkSession *> openWorkTimers(const DaemonStatus &status) {
    std::vector<const WorkSession *> open;
    if (status.workTimers)
        for (const WorkSession &session : *status.workTimers)
            if (isOpenWorkTimer(session))
                open.push_back(&session);
    return open;
}

QString openTimersText(qsizetype count) {
    if (count <= 0)
        return QStringLiteral("No open timers");
    return QString::number(count) +
           (count == 1 ? QStringLiteral(" open timer") : QStringLiteral(" open timers"));
}

} // namespace quonbrix
