#include "support/fake_daemon.h"

#include <QHash>
#include <QHostAddress>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <QUrl>

// Built on QTcpServer rather than Qt HttpServer: the tests need to close the listener and
// reopen it on the same port, to drop a connection without answering, and to answer (or not)
// long after the client gave up on a time-out, which must not touch a socket that is gone. A
// handful of lines of HTTP/1.1 framing are easier to keep honest than working around those.

namespace quonbrix::test {

namespace {

// The client reads the status code only; the phrase is for whoever reads a capture.
QByteArray reasonPhrase(int status) {
    static const QHash<int, QByteArray> phrases{{200, "OK"},
                                                {201, "Created"},
                                                {204, "No Content"},
                                                {400, "Bad Request"},
                                                {404, "Not Found"},
                                                {409, "Conflict"},
                                                {422, "Unprocessable Entity"},
                                                {500, "Internal Server Error"},
                                                {503, "Service Unavailable"}};
    return phrases.value(status, "Status");
}

} // namespace

// Per-connection parser state. Requests on one connection are answered in order, so a delayed
// or hung reply holds back whatever arrives after it on the same connection.
struct FakeDaemon::Connection {
    QByteArray buffer;
    bool busy = false;
};

QByteArray RecordedRequest::header(const QByteArray &name) const {
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

bool RecordedRequest::hasHeader(const QByteArray &name) const {
    return std::any_of(headers.cbegin(), headers.cend(), [&name](const auto &h) {
        return h.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

QJsonObject RecordedRequest::json() const {
    return QJsonDocument::fromJson(body).object();
}

FakeReply FakeReply::json(const QByteArray &body, int status) {
    return {.status = status, .body = body};
}

FakeReply FakeReply::json(const QJsonObject &object, int status) {
    return json(QJsonDocument(object).toJson(QJsonDocument::Compact), status);
}

FakeReply FakeReply::error(int status, const QByteArray &message) {
    return json(QJsonObject{{QStringLiteral("error"), QString::fromUtf8(message)}}, status);
}

FakeReply FakeReply::garbage() {
    return {.body = QByteArrayLiteral("{\"enrolled\": tru\x01\xff garbage")};
}

FakeReply FakeReply::html(int status) {
    return {.status = status,
            .body = QByteArrayLiteral("<!DOCTYPE html><html><head><title>Error</title></head>"
                                      "<body>Oops</body></html>"),
            .contentType = QByteArrayLiteral("text/html; charset=utf-8")};
}

FakeReply FakeReply::hang() {
    return {.kind = Kind::Hang};
}

FakeReply FakeReply::drop() {
    return {.kind = Kind::Drop};
}

FakeReply FakeReply::cut(const QByteArray &body) {
    return {.kind = Kind::Cut, .body = body, .contentType = "application/octet-stream"};
}

FakeReply FakeReply::delayed(int ms) const {
    FakeReply reply = *this;
    reply.delayMs = ms;
    return reply;
}

FakeDaemon::FakeDaemon(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this)) {
    m_clock.start();
    connect(m_server, &QTcpServer::newConnection, this, &FakeDaemon::accept);
    if (m_server->listen(QHostAddress::LocalHost, 0))
        m_port = m_server->serverPort();
    else
        qWarning("FakeDaemon: cannot listen: %s", qUtf8Printable(m_server->errorString()));
}

FakeDaemon::~FakeDaemon() {
    m_server->close();
    // Hung and delayed replies end here: their sockets (and the timers bound to them) go.
    const auto sockets = m_connections.keys();
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        delete m_connections.take(socket);
        delete socket;
    }
}

bool FakeDaemon::isListening() const {
    return m_server->isListening();
}

QString FakeDaemon::base() const {
    return QStringLiteral("http://127.0.0.1:") + QString::number(m_port);
}

Environment FakeDaemon::environment(const QString &home) const {
    return Environment({{QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(m_port)},
                        {QStringLiteral("HOME"), home}});
}

void FakeDaemon::setReply(const QString &path, const FakeReply &reply) {
    m_defaults.insert(path, reply);
}

void FakeDaemon::enqueue(const QString &path, const FakeReply &reply, int times) {
    auto &queue = m_queues[path];
    for (int i = 0; i < times; ++i)
        queue.push_back(reply);
}

void FakeDaemon::refuse() {
    m_server->close();
    const auto sockets = m_connections.keys();
    for (QTcpSocket *socket : sockets)
        dropConnection(socket);
}

bool FakeDaemon::resume() {
    if (m_server->isListening())
        return true;
    return m_server->listen(QHostAddress::LocalHost, m_port);
}

QList<RecordedRequest> FakeDaemon::requests(const QString &path) const {
    if (path.isEmpty())
        return m_requests;
    QList<RecordedRequest> matching;
    for (const RecordedRequest &request : m_requests) {
        if (request.path == path)
            matching.append(request);
    }
    return matching;
}

void FakeDaemon::clearRequests() {
    m_requests.clear();
}

bool FakeDaemon::waitForRequests(const QString &path, int n, int timeoutMs) const {
    QElapsedTimer waited;
    waited.start();
    while (requests(path).size() < n) {
        if (waited.elapsed() >= timeoutMs)
            return false;
        QTest::qWait(5);
    }
    return true;
}

void FakeDaemon::accept() {
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        m_connections.insert(socket, new Connection);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this,
                [this, socket] { dropConnection(socket); });
        // Bytes may already be waiting when the connection is handed over.
        if (socket->bytesAvailable() > 0)
            readFrom(socket);
    }
}

void FakeDaemon::dropConnection(QTcpSocket *socket) {
    Connection *connection = m_connections.take(socket);
    if (!connection)
        return;
    delete connection;
    socket->disconnect(this);
    socket->abort();
    // Deleting the socket also cancels any delayed reply bound to it.
    socket->deleteLater();
}

void FakeDaemon::readFrom(QTcpSocket *socket) {
    Connection *connection = m_connections.value(socket);
    if (!connection)
        return;
    connection->buffer.append(socket->readAll());

    while (!connection->busy) {
        QByteArray &buffer = connection->buffer;
        const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;

        const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        if (requestLine.size() != 3 || !requestLine.at(2).startsWith("HTTP/1.")) {
            answer(socket, FakeReply::error(400, "malformed request line"));
            dropConnection(socket);
            return;
        }

        RecordedRequest request;
        request.method = requestLine.at(0);
        request.path = QUrl::fromEncoded(requestLine.at(1)).path();
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const qsizetype colon = line.indexOf(':');
            if (colon > 0)
                request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
        // The client under test always frames bodies with Content-Length.
        if (request.header(QByteArrayLiteral("Transfer-Encoding")).contains("chunked")) {
            answer(socket, FakeReply::error(501, "chunked bodies are not supported here"));
            dropConnection(socket);
            return;
        }
        const qsizetype length = request.header(QByteArrayLiteral("Content-Length")).toLongLong();
        if (buffer.size() < headEnd + 4 + length)
            return;
        request.body = buffer.mid(headEnd + 4, length);
        buffer.remove(0, headEnd + 4 + length);
        request.arrivedMs = m_clock.elapsed();

        m_requests.append(request);
        const FakeReply reply = nextReply(request.path);
        answer(socket, reply);
        if (!m_connections.contains(socket))
            return; // dropped
    }
}

FakeReply FakeDaemon::nextReply(const QString &path) {
    auto queue = m_queues.find(path);
    if (queue != m_queues.end() && !queue->empty()) {
        FakeReply reply = queue->front();
        queue->pop_front();
        return reply;
    }
    return m_defaults.value(path, FakeReply::error(404, "no such endpoint"));
}

void FakeDaemon::answer(QTcpSocket *socket, const FakeReply &reply) {
    Connection *connection = m_connections.value(socket);
    if (!connection)
        return;

    if (reply.kind == FakeReply::Kind::Hang) {
        connection->busy = true;
        return;
    }
    if (reply.delayMs > 0) {
        connection->busy = true;
        FakeReply now = reply;
        now.delayMs = 0;
        // Bound to the socket: if the client gives up first, the socket goes and so does this.
        QTimer::singleShot(reply.delayMs, Qt::PreciseTimer, socket, [this, socket, now] {
            Connection *c = m_connections.value(socket);
            if (!c)
                return;
            c->busy = false;
            answer(socket, now);
            readFrom(socket);
        });
        return;
    }
    if (reply.kind == FakeReply::Kind::Drop) {
        dropConnection(socket);
        return;
    }

    QByteArray out =
        "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonPhrase(reply.status) + "\r\n";
    out += "Content-Type: " + reply.contentType + "\r\n";
    out += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    out += "Connection: keep-alive\r\n\r\n";
    if (reply.kind == FakeReply::Kind::Cut) {
        socket->write(out + reply.body.left(reply.body.size() / 2));
        // Closes once what was written has gone out, unlike dropConnection's abort.
        delete m_connections.take(socket);
        socket->disconnect(this);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        socket->disconnectFromHost();
        return;
    }
    out += reply.body;
    socket->write(out);
}

} // namespace quonbrix::test
