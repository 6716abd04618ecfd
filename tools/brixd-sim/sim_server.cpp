#include "sim_server.h"

#include <QDateTime>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <csignal>
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

// A status nobody should send: valid, but padded to 50 MB, nested 10,000 deep, or with `count`
// projects made from the scenario's first.
QByteArray hostileStatus(const QByteArray &status, const Fault &fault) {
    QJsonObject o = QJsonDocument::fromJson(status).object();
    if (fault.kind == Fault::Kind::Huge) {
        o.insert(QStringLiteral("padding"), QString(50 << 20, u'x'));
    } else if (fault.kind == Fault::Kind::Projects) {
        QJsonObject row = o.value(QStringLiteral("projects")).toArray().first().toObject();
        QJsonArray rows;
        for (int i = 0; i < fault.count; ++i) {
            row.insert(QStringLiteral("key"), QJsonObject{{QStringLiteral("repo"),
                                                           QStringLiteral("acme/repo-%1").arg(i)}});
            rows.append(row);
        }
        o.insert(QStringLiteral("projects"), rows);
    }
    QByteArray body = QJsonDocument(o).toJson(QJsonDocument::Compact);
    if (fault.kind == Fault::Kind::Deep) {
        body.chop(1);
        body += ",\"deep\":" + QByteArray(10'000, '[') + QByteArray(10'000, ']') + '}';
    }
    return body;
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
    const Fault fault = m_fault.at(double(QDateTime::currentMSecsSinceEpoch()) / 1000.0);

    switch (fault.kind) {
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
    case Fault::Kind::Killed:
        logLine(what + QStringLiteral(" -> killed with the request in hand"));
        ::raise(SIGKILL);
        return true;
    case Fault::Kind::Slow:
    case Fault::Kind::None:
    case Fault::Kind::Huge:
    case Fault::Kind::Deep:
    case Fault::Kind::Projects:
        break;
    }

    ApiReply reply = m_endpoints(in);
    if (reply.hold) {
        new PendingReply(std::move(responder), socket);
        logLine(what + QStringLiteral(" -> held open, no answer (%1)").arg(reply.summary));
        return true;
    }
    const bool hostile = fault.kind == Fault::Kind::Huge || fault.kind == Fault::Kind::Deep ||
                         fault.kind == Fault::Kind::Projects;
    if (hostile && in.path == u"/status" && reply.status == 200) {
        reply.body = hostileStatus(reply.body, fault);
        reply.summary +=
            QStringLiteral(", made %1 (%2 bytes)").arg(fault.text()).arg(reply.body.size());
    }
    logLine(QStringLiteral("%1 -> %2 (%3)").arg(what).arg(reply.status).arg(reply.summary));
    if (fault.kind == Fault::Kind::Slow)
        (new PendingReply(std::move(responder), socket))
            ->sendLater(fault.delaySeconds, std::move(reply));
    else
        send(responder, reply);
    return true;
}

void SimServer::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) {
    // handleRequest takes every request; this is only here because the base class asks.
    makeResponder(request, socket).write(StatusCode::NotFound);
}

} // namespace quonbrix::sim
