#pragma once

// An in-process stand-in for brixd's admin API: a loopback HTTP/1.1 server that records every
// request and answers from a per-path script, so tests drive the real client over real sockets.

#include "platform/environment.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QString>
#include <deque>

class QTcpServer;
class QTcpSocket;

namespace quonbrix::test {

struct RecordedRequest {
    QByteArray method;
    QString path; // without the query
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body{};
    qint64 arrivedMs = 0; // since the fake was made, monotonic

    // First value of a header, matched case-insensitively; empty when missing.
    QByteArray header(const QByteArray &name) const;
    bool hasHeader(const QByteArray &name) const;
    // The body parsed as a JSON object; an empty object when it is not one.
    QJsonObject json() const;
};

struct FakeReply {
    enum class Kind {
        Answer, // a complete HTTP response
        Hang,   // read the request, never answer
        Drop,   // read the request, close the connection without a response
        Cut,    // announce the body's length, send half of it and close the connection
    };

    Kind kind = Kind::Answer;
    int status = 200;
    QByteArray body{};
    QByteArray contentType = QByteArrayLiteral("application/json");
    int delayMs = 0;

    static FakeReply json(const QByteArray &body, int status = 200);
    static FakeReply json(const QJsonObject &object, int status = 200);
    // A daemon-side failure the way brixd reports one: a status code and a small JSON object.
    static FakeReply error(int status = 500, const QByteArray &message = "internal error");
    // A 200 whose body is not JSON at all.
    static FakeReply garbage();
    static FakeReply html(int status);
    static FakeReply hang();
    static FakeReply drop();
    static FakeReply cut(const QByteArray &body);

    FakeReply delayed(int ms) const;
};

class FakeDaemon : public QObject {
    Q_OBJECT

public:
    // Listens on 127.0.0.1 at a free port right away.
    explicit FakeDaemon(QObject *parent = nullptr);
    ~FakeDaemon() override;

    bool isListening() const;
    quint16 port() const { return m_port; }
    // "http://127.0.0.1:<port>", the base the client derives from environment().
    QString base() const;
    // QUON_BRIX_ADMIN_PORT pointing here and HOME set to `home`.
    Environment environment(const QString &home) const;

    // The answer for every request to `path` once its queue is empty. Paths without a script
    // get a 404 with a JSON error body.
    void setReply(const QString &path, const FakeReply &reply);
    // One-shot answers, used in order before the default: "fail five times, then succeed".
    void enqueue(const QString &path, const FakeReply &reply, int times = 1);

    // The daemon went away: closes the listener and every open connection (hung ones
    // included), so new connections to the same port are refused.
    void refuse();
    void stop() { refuse(); }
    // Listens again on the same port; false if the port was taken meanwhile.
    bool resume();

    // Requests in arrival order; all of them for an empty path.
    QList<RecordedRequest> requests(const QString &path = {}) const;
    void clearRequests();
    // Runs the event loop until `n` requests to `path` (any path when empty) have arrived.
    bool waitForRequests(const QString &path, int n, int timeoutMs = 5000) const;
    qint64 elapsedMs() const { return m_clock.elapsed(); }

private:
    struct Connection;

    void accept();
    void readFrom(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const FakeReply &reply);
    FakeReply nextReply(const QString &path);
    void dropConnection(QTcpSocket *socket);

    QTcpServer *m_server;
    quint16 m_port = 0;
    QElapsedTimer m_clock;
    QHash<QString, FakeReply> m_defaults;
    QHash<QString, std::deque<FakeReply>> m_queues;
    QList<RecordedRequest> m_requests;
    QHash<QTcpSocket *, Connection *> m_connections;
};

} // namespace quonbrix::test

Q_DECLARE_METATYPE(quonbrix::test::FakeReply)
