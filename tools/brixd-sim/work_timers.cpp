#include "work_timers.h"

#include "daemon_link/records.h"
#include "relative_time.h"
#include "json/json_codec.h"

#include <QRandomGenerator>
#include <algorithm>

namespace quonbrix::sim {

namespace {

// Enough replies to cover any client's retries; older keys are forgotten.
constexpr size_t rememberedReplies = 1000;

QString randomId(const char *prefix) {
    static const char alphabet[] = "abcdefghijkmnopqrstuvwxyz23456789";
    QString id = QLatin1String(prefix);
    for (int i = 0; i < 12; ++i)
        id += QLatin1Char(alphabet[QRandomGenerator::global()->bounded(int(sizeof alphabet) - 1)]);
    return id;
}

CommandReply error(int status, const char *code, const QString &message, const QString &summary) {
    WorkTimerErrorResponse body{QLatin1String(code), message};
    return {status, json::encode(body), summary + QStringLiteral(" refused: ") + message};
}

bool isOpen(const WorkSession &s) {
    return s.status == u"running" || s.status == u"paused";
}

} // namespace

WorkTimerBook::WorkTimerBook(const Clock &clock, QString timeZone)
    : m_clock(clock)
    , m_timeZone(std::move(timeZone)) {}

void WorkTimerBook::seed(std::vector<WorkSession> sessions) {
    std::vector<size_t> byUpdate(sessions.size());
    for (size_t i = 0; i < byUpdate.size(); ++i)
        byUpdate[i] = i;
    // ISO 8601 UTC texts of one form sort like the instants they name.
    std::stable_sort(byUpdate.begin(), byUpdate.end(), [&](size_t a, size_t b) {
        return sessions[a].updatedAt < sessions[b].updatedAt;
    });
    const size_t base = m_sessions.size();
    for (WorkSession &s : sessions)
        m_sessions.push_back({std::move(s), 0});
    for (size_t i : byUpdate)
        m_sessions[base + i].touched = ++m_touches;
}

CommandReply WorkTimerBook::handle(const QByteArray &body) {
    QString why;
    const std::optional<WorkTimerCommand> command = json::decode<WorkTimerCommand>(body, &why);
    if (!command)
        return error(400, "invalid-request",
                     QStringLiteral("Not a work timer command (%1)").arg(why),
                     QStringLiteral("timer command"));
    if (command->idempotencyKey.trimmed().isEmpty())
        return error(400, "invalid-request", QStringLiteral("idempotencyKey must not be blank"),
                     QStringLiteral("timer ") + command->action);
    const auto seen = m_replies.constFind(command->idempotencyKey);
    if (seen != m_replies.constEnd()) {
        CommandReply again = *seen;
        again.summary = QStringLiteral("timer ") + command->action +
                        QStringLiteral(" repeated; first reply sent again");
        return again;
    }
    CommandReply reply = apply(*command);
    remember(command->idempotencyKey, reply);
    return reply;
}

CommandReply WorkTimerBook::apply(const WorkTimerCommand &command) {
    const QString &action = command.action;
    const QString what = QStringLiteral("timer ") + action;
    if (action == u"start")
        return start(command);
    static const QStringList transitions{QStringLiteral("pause"), QStringLiteral("resume"),
                                         QStringLiteral("complete"), QStringLiteral("cancel")};
    if (!transitions.contains(action))
        return error(400, "unknown-action",
                     QStringLiteral("Unknown action \"%1\"").arg(action.left(40)), what);
    const QString id = command.workSessionId.value_or(QString()).trimmed();
    if (id.isEmpty())
        return error(400, "invalid-request",
                     QStringLiteral("workSessionId is required to ") + action, what);
    Entry *entry = find(id);
    if (!entry)
        return error(404, "not-found", QStringLiteral("No such work session"),
                     what + u' ' + id.left(40));
    return transition(*entry, action);
}

CommandReply WorkTimerBook::start(const WorkTimerCommand &command) {
    const QString label = command.projectLabel.value_or(QString()).trimmed();
    if (label.isEmpty())
        return error(400, "invalid-request",
                     QStringLiteral("projectLabel is required to start a timer"),
                     QStringLiteral("timer start"));
    const QString now = isoUtc(m_clock.now());
    WorkSession s;
    s.schemaVersion = QStringLiteral("1");
    s.id = randomId("ws_");
    s.projectLabel = label;
    s.status = QStringLiteral("running");
    s.segments.push_back(newSegment(now));
    s.createdAt = now;
    s.updatedAt = now;
    s.revision = 1;
    m_sessions.push_back({s, ++m_touches});
    return {200, json::encode(WorkTimerCommandResponse{s}),
            QStringLiteral("timer start %1 \"%2\": running").arg(s.id, label)};
}

CommandReply WorkTimerBook::transition(Entry &entry, const QString &action) {
    WorkSession &s = entry.session;
    const QString what = QStringLiteral("timer %1 %2").arg(action, s.id);
    const bool running = s.status == u"running";
    const bool paused = s.status == u"paused";
    const bool allowed = action == u"pause" ? running : action == u"resume" ? paused : isOpen(s);
    if (!allowed)
        return error(409, "invalid-transition",
                     QStringLiteral("Cannot %1 a session that is %2").arg(action, s.status), what);

    const QString now = isoUtc(m_clock.now());
    if (action == u"resume") {
        s.segments.push_back(newSegment(now));
        s.status = QStringLiteral("running");
    } else {
        for (WorkSegment &segment : s.segments) {
            if (!segment.endedAt)
                segment.endedAt = now;
        }
        s.status = action == u"pause"      ? QStringLiteral("paused")
                   : action == u"complete" ? QStringLiteral("completed")
                                           : QStringLiteral("cancelled");
        if (action == u"complete")
            s.completedAt = now;
    }
    s.updatedAt = now;
    ++s.revision;
    entry.touched = ++m_touches;
    return {200, json::encode(WorkTimerCommandResponse{s}), what + QStringLiteral(": ") + s.status};
}

WorkTimerBook::Entry *WorkTimerBook::find(const QString &id) {
    const auto it = std::find_if(m_sessions.begin(), m_sessions.end(),
                                 [&](const Entry &e) { return e.session.id == id; });
    return it == m_sessions.end() ? nullptr : &*it;
}

void WorkTimerBook::remember(const QString &key, const CommandReply &reply) {
    m_replies.insert(key, reply);
    m_replyOrder.push_back(key);
    if (m_replyOrder.size() > rememberedReplies) {
        m_replies.remove(m_replyOrder.front());
        m_replyOrder.pop_front();
    }
}

WorkSegment WorkTimerBook::newSegment(const QString &now) const {
    return {randomId("seg_"), now, std::nullopt, m_timeZone};
}

std::vector<WorkSession> WorkTimerBook::openSessions() const {
    std::vector<WorkSession> out;
    for (const Entry &e : m_sessions) {
        if (isOpen(e.session))
            out.push_back(e.session);
    }
    return out;
}

std::optional<WorkSession> WorkTimerBook::current() const {
    const Entry *best = nullptr;
    for (const Entry &e : m_sessions) {
        if (isOpen(e.session) && (!best || e.touched > best->touched))
            best = &e;
    }
    return best ? std::optional<WorkSession>(best->session) : std::nullopt;
}

} // namespace quonbrix::sim
