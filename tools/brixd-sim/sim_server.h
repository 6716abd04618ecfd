#pragma once

// The HTTP side: every request goes through one handler, which applies the fault mode and
// otherwise hands the request to the endpoints (the admin Api or the AccountApi). Replies that
// come late (slow) or never (hang) keep their responder on the heap, tied to the connection, so
// a client that gives up frees it.

#include "api.h"
#include "options.h"

#include <QAbstractHttpServer>
#include <functional>

namespace quonbrix::sim {

class SimServer : public QAbstractHttpServer {
public:
    using Endpoints = std::function<ApiReply(const ApiRequest &)>;

    SimServer(Endpoints endpoints, Fault fault, QObject *parent = nullptr);

    // Stops accepting connections; requests already in hand are dropped with the process.
    void stopListening();

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    Endpoints m_endpoints;
    Fault m_fault;
};

// One line on stderr, prefixed "brixd-sim: ", with control characters taken out.
void logLine(const QString &text);

} // namespace quonbrix::sim
