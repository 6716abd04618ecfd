#pragma once

// The daemon's admin endpoints, as plain request-in, reply-out: no sockets here, so the
// fault modes and the transport live elsewhere (sim_server.h).

#include "sim_state.h"

#include <QByteArray>
#include <QString>
#include <QUrlQuery>
#include <optional>

namespace quonbrix::sim {

struct ApiRequest {
    QByteArray method; // "GET", "POST", …
    QString path;
    QUrlQuery query;
    QByteArray body;
    QByteArray authorization; // the header's value, empty when absent
};

struct ApiReply {
    int status = 200;
    QByteArray body; // empty for 204
    // One line for the log. Never a token or a code.
    QString summary;
    QByteArray contentType = QByteArrayLiteral("application/json");
    // No answer at all: the connection stays open until the client gives up.
    bool hold = false;
};

class Api {
public:
    // `privateDir` is ~/.quon-brix, where the enrollment file lives.
    Api(SimState &state, std::optional<QString> forcedSyncSkip, QString privateDir);

    ApiReply handle(const ApiRequest &request);

private:
    ApiReply sync();
    ApiReply heartbeat(const QByteArray &body);

    SimState &m_state;
    std::optional<QString> m_forcedSyncSkip;
    QString m_privateDir;
};

} // namespace quonbrix::sim
