#pragma once

#include "daemon_link/records.h"

#include <QDateTime>
#include <QUuid>
#include <vector>

namespace quonbrix {

// The busy identifier of a start, which has no session yet.
inline const QString workTimerStartBusyID = QStringLiteral("__start__");

// One line of the popover's feedback under the timers, newest last.
struct WorkTimerFeedback {
    QUuid id;
    std::optional<QString> sessionId;
    std::optional<QString> projectLabel;
    QString message;
    bool isError = false;
};

// Keeps the list to the four newest entries after appending one.
void appendFeedback(std::vector<WorkTimerFeedback> &list, WorkTimerFeedback entry);

// Seconds worked in a session: each segment's whole seconds (a running or unreadable end
// counts up to `now`, an unreadable start or an end before the start counts nothing), summed.
qint64 workTimerElapsedSeconds(const WorkSession &session, const QDateTime &now);

// An ISO 8601 internet time stamp with a zone ("2026-01-05T09:30:00.250Z", fraction optional).
std::optional<QDateTime> parseInternetDateTime(const QString &text);

// "Timer started", "Timer paused", … for each action.
QString workTimerSuccessMessage(const QString &action);

// A project label as typed, without surrounding white space; absent when nothing is left.
std::optional<QString> trimmedProjectLabel(const QString &typed);

// "01:02:03".
QString formatElapsedClock(qint64 seconds);

// Neither completed nor cancelled: the daemon may still list such a session for a moment.
bool isOpenWorkTimer(const WorkSession &session);
// The open sessions among the daemon's, in its order.
std::vector<const WorkSession *> openWorkTimers(const DaemonStatus &status);
// "No open timers", "1 open timer", "3 open timers".
QString openTimersText(qsizetype count);

} // namespace quonbrix
