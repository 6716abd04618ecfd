#pragma once

// The work-timer log: sessions that are started for a project label, paused, resumed,
// completed or cancelled, one segment per running stretch. It keeps every session for the life
// of the process; the status lists the open ones.

#include "daemon_link/records.h"
#include "platform/clock.h"

#include <QHash>
#include <QJsonObject>
#include <deque>

namespace quonbrix::sim {

struct CommandReply {
    int httpStatus = 200;
    QJsonObject body;
    // One line for the log: the action and the session, never anything secret.
    QString summary;
};

class WorkTimerBook {
public:
    WorkTimerBook(const Clock &clock, QString timeZone);

    // Open sessions that exist before the first command (from the scenario). The one updated
    // last counts as the most recently touched.
    void seed(std::vector<WorkSession> sessions);

    // Handles one POST /worklogs/command body. A repeated idempotency key gets the first
    // reply again and changes nothing.
    CommandReply handle(const QByteArray &body);

    // Running and paused sessions, oldest first.
    std::vector<WorkSession> openSessions() const;
    // The open session touched last, if any.
    std::optional<WorkSession> current() const;

private:
    struct Entry {
        WorkSession session;
        quint64 touched = 0;
    };

    CommandReply apply(const WorkTimerCommand &command);
    CommandReply start(const WorkTimerCommand &command);
    CommandReply transition(Entry &entry, const QString &action);
    Entry *find(const QString &id);
    void remember(const QString &key, const CommandReply &reply);
    WorkSegment newSegment(const QString &now) const;

    const Clock &m_clock;
    QString m_timeZone;
    std::vector<Entry> m_sessions;
    quint64 m_touches = 0;
    QHash<QString, CommandReply> m_replies;
    std::deque<QString> m_replyOrder;
};

} // namespace quonbrix::sim
