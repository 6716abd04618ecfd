#include "api.h"

#include "enrollment.h"

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QJsonDocument>

namespace quonbrix::sim {

namespace {

QByteArray compact(const QJsonObject &o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

ApiReply errorReply(int status, const QString &code, const QString &message) {
    return {status,
            compact({{QStringLiteral("errorCode"), code}, {QStringLiteral("message"), message}}),
            message};
}

} // namespace

Api::Api(SimState &state, std::optional<QString> forcedSyncSkip, QString privateDir)
    : m_state(state)
    , m_forcedSyncSkip(std::move(forcedSyncSkip))
    , m_privateDir(std::move(privateDir)) {}

ApiReply Api::handle(const ApiRequest &request) {
    const bool get = request.method == "GET";
    const bool post = request.method == "POST";
    const QString &path = request.path;

    if (get && path == u"/status")
        return {200, json::encodeBytes(m_state.status()), QStringLiteral("status")};
    if (post && path == u"/sync")
        return sync();
    if (post && path == u"/local-view/handoff")
        return {200, json::encodeBytes(m_state.issueHandoff()),
                QStringLiteral("local-view handoff issued")};
    if (post && path == u"/worklogs/command") {
        const CommandReply reply = m_state.timers().handle(request.body);
        return {reply.httpStatus, compact(reply.body), reply.summary};
    }
    if (post && path == u"/attention/heartbeat")
        return heartbeat(request.body);
    if (post && path == u"/enroll/clear") {
        m_state.clearEnrollment();
        return {200, compact({{QStringLiteral("ok"), true}}),
                QStringLiteral("signed out: ") + forgetEnrollment(m_privateDir)};
    }
    return errorReply(404, QStringLiteral("not-found"), QStringLiteral("No such endpoint"));
}

ApiReply Api::sync() {
    const SyncResult r = m_state.sync(m_forcedSyncSkip);
    const QString summary =
        r.skipped
            ? QStringLiteral("sync skipped (%1), collected %2").arg(*r.skipped).arg(r.collected)
            : QStringLiteral("sync pushed %1").arg(r.pushed);
    return {200, json::encodeBytes(r), summary};
}

ApiReply Api::heartbeat(const QByteArray &body) {
    QString why;
    const std::optional<AttentionHeartbeat> beat = json::decode<AttentionHeartbeat>(body, &why);
    if (!beat)
        return errorReply(400, QStringLiteral("invalid-request"),
                          QStringLiteral("Not an attention heartbeat (%1)").arg(why));
    m_state.recordHeartbeat(*beat);
    return {204,
            {},
            beat->active ? QStringLiteral("attention heartbeat: active")
                         : QStringLiteral("attention heartbeat: idle")};
}

} // namespace quonbrix::sim
