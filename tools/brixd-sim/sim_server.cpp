#include "sim_server.h"

#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <cstdio>

namespace quonbrix::sim {

namespace {

using StatusCode = QHttpServerResponder::StatusCode;

const QByteArray jsonType = QByteArrayLiteral("application/json");

void send(QHttpServerResponder &responder, const ApiReply &reply) {
    if (reply.status == 204)
        responder.write(StatusCode::NoContent);
    else
        responder.write(reply.body, reply.contentType, StatusCode(reply.status));
}

// Keeps a responder alive until the reply is due, as a child of the connection's socket: when
// the client hangs up, the socket goes and takes the pending reply with it.
class PendingReply : public QObject {
public:
    PendingReply(QHttpServerResponder &&responder, QTcpSocket *socket)
        : QObject(socket)
        , m_responder(std::move(responder)) {}

    void sendLater(double seconds, ApiReply reply) {
        QTimer::singleShot(qRound64(seconds * 1000), this, [this, reply = std::move(reply)] {
            send(m_responder, reply);
            deleteLater();
        });
    }

private:
    QHttpServerResponder m_responder;
};

QByteArray methodName(QHttpServerRequest::Method m) {
    switch (m) {
    case QHttpServerRequest::Method::Get:
        return "GET";
    case QHttpServerRequest::Method::Post:
        return "POST";
    case QHttpServerRequest::Method::Put:
        return "PUT";
    case QHttpServerRequest::Method::Delete:
        return "DELETE";
    case QHttpServerRequest::Method::Head:
        return "HEAD";
    case QHttpServerRequest::Method::Options:
        return "OPTIONS";
    case QHttpServerRequest::Method::Patch:
        return "PATCH";
    default:
        return "OTHER";
    }
}

} // namespace

void logLine(const QString &text) {
    QString clean = text.left(300);
    for (QChar &c : clean) {
        if (c.category() == QChar::Other_Control)
            c = u' ';
    }
    const QByteArray line = "brixd-sim: " + clean.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}

SimServer::SimServer(Endpoints endpoints, Fault fault, QObject *parent)
    : QAbstractHttpServer(parent)
    , m_endpoints(std::move(endpoints))
    , m_fault(fault) {}

void SimServer::stopListening() {
    const QList<QTcpServer *> listeners = servers();
    for (QTcpServer *listener : listeners)
        listener->close();
}

bool SimServer::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) {
    const ApiRequest in{methodName(request.method()), request.url().path(), request.query(),
                        request.body(), request.value(QByteArrayLiteral("authorization"))};
    // The path only: a query may carry a sign-in code.
    const QString what = QString::fromLatin1(in.method) + u' ' + in.path.left(100);
    QHttpServerResponder responder = makeResponder(request, socket);

    switch (m_fault.kind) {
    case Fault::Kind::ServerError:
        responder.write(QJsonDocument(QJsonObject{
                            {QStringLiteral("error"), QStringLiteral("simulated failure")}}),
                        StatusCode::InternalServerError);
        logLine(what + QStringLiteral(" -> 500 (simulated failure)"));
        return true;
    case Fault::Kind::Garbage:
        responder.write(QByteArrayLiteral("<html>brixd is having a moment {\"status\":"), jsonType,
                        StatusCode::Ok);
        logLine(what + QStringLiteral(" -> 200 with a body that is not JSON"));
        return true;
    case Fault::Kind::Hang:
        new PendingReply(std::move(responder), socket);
        logLine(what + QStringLiteral(" -> held open, no answer"));
        return true;
    case Fault::Kind::Slow:
    case Fault::Kind::None:
        break;
    }

    ApiReply reply = m_endpoints(in);
    if (reply.hold) {
        new PendingReply(std::move(responder), socket);
        logLine(what + QStringLiteral(" -> held open, no answer (%1)").arg(reply.summary));
        return true;
    }
    logLine(QStringLiteral("%1 -> %2 (%3)").arg(what).arg(reply.status).arg(reply.summary));
    if (m_fault.kind == Fault::Kind::Slow)
        (new PendingReply(std::move(responder), socket))
            ->sendLater(m_fault.delaySeconds, std::move(reply));
    else
        send(responder, reply);
    return true;
}

void SimServer::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) {
    // handleRequest takes every request; this is only here because the base class asks.
    makeResponder(request, socket).write(StatusCode::NotFound);
}

} // namespace quonbrix::sim
