#include "daemon_link/meter_client.h"

#include "daemon_link/records.h"
#include "log/log_categories.h"
#include "json/json_codec.h"

#include <QFile>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>
#include <QUuid>
#include <memory>

namespace quonbrix {

namespace {

// Hundreds of times any status the daemon sends (a busy day's is tens of kB). A longer body is
// not read on: a daemon gone wrong cannot fill the tray's memory, and the reply is unreadable.
constexpr qint64 kMaxBodyBytes = qint64(8) << 20;
constexpr qint64 kReadChunkBytes = qint64(1) << 20;

template <class T> Reply<T> decodeReply(const MeterClient::Transport &t) {
    Reply<T> reply;
    if (!t.answered) {
        reply.failure = ReplyFailure::Unreachable;
        reply.detail = t.error;
        return reply;
    }
    if (t.tooLarge) {
        reply.failure = ReplyFailure::Unreadable;
        reply.detail = QStringLiteral("HTTP %1, a body of more than %2 bytes")
                           .arg(t.httpStatus)
                           .arg(kMaxBodyBytes);
        return reply;
    }
    reply.value = json::decode<T>(t.body, &reply.detail);
    if (!reply.value) {
        reply.failure = ReplyFailure::Unreadable;
        reply.detail = QStringLiteral("HTTP %1, %2").arg(t.httpStatus).arg(reply.detail);
    }
    return reply;
}

} // namespace

MeterClient::MeterClient(QString base, MeterClientTimeouts timeouts, QObject *parent)
    : QObject(parent)
    , m_base(std::move(base))
    , m_timeouts(timeouts)
    , m_nam(new QNetworkAccessManager(this)) {
    // Loopback traffic must never be sent through a proxy from the environment.
    m_nam->setProxy(QNetworkProxy::NoProxy);
}

QString MeterClient::baseFromEnvironment(const Environment &env) {
    const QString port =
        env.value(QStringLiteral("QUON_BRIX_ADMIN_PORT"), QLatin1String(defaultAdminPort));
    return QStringLiteral("http://127.0.0.1:") + port;
}

bool MeterClient::isUsableBase(const QString &base) {
    const QUrl url(base, QUrl::StrictMode);
    return url.isValid() && !url.host().isEmpty();
}

QUrl MeterClient::urlFor(const QString &path) const {
    return QUrl(m_base + path);
}

QString MeterClient::newIdempotencyKey() {
    return QStringLiteral("mac-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

void MeterClient::get(const QString &path, QObject *context,
                      std::function<void(Transport)> done) const {
    QNetworkRequest request(urlFor(path));
    request.setTransferTimeout(int(m_timeouts.request.count()));
    send(m_nam->get(request), context, std::move(done));
}

void MeterClient::post(const QString &path, const std::optional<QByteArray> &body,
                       std::chrono::milliseconds timeout, QObject *context,
                       std::function<void(Transport)> done) const {
    QNetworkRequest request(urlFor(path));
    request.setTransferTimeout(int(timeout.count()));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    send(m_nam->post(request, body.value_or(QByteArray())), context, std::move(done));
}

void MeterClient::send(QNetworkReply *reply, QObject *context,
                       std::function<void(Transport)> done) const {
    QPointer<QObject> guard(context);
    // The body is taken as it arrives, so that one past the limit is cut off early; the
    // network side holds at most a chunk meanwhile instead of reading ahead without end.
    reply->setReadBufferSize(kReadChunkBytes);
    auto body = std::make_shared<QByteArray>();
    auto tooLarge = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::readyRead, reply, [reply, body, tooLarge] {
        if (*tooLarge)
            return;
        if (body->size() + reply->bytesAvailable() > kMaxBodyBytes) {
            *tooLarge = true;
            body->clear();
            reply->abort();
            return;
        }
        body->append(reply->readAll());
    });
    connect(reply, &QNetworkReply::finished, reply,
            [reply, guard, body, tooLarge, done = std::move(done)] {
                reply->deleteLater();
                if (!guard)
                    return;
                Transport t;
                const QVariant code = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
                // Error codes below 100 are transport failures (refused, reset, timed out,
                // cancelled); HTTP error statuses still carry a body that the caller decodes or
                // rejects. An answer cut off for its length was an answer.
                const bool transportFailed =
                    reply->error() != QNetworkReply::NoError && int(reply->error()) < 100;
                t.httpStatus = code.toInt();
                t.tooLarge = *tooLarge;
                t.answered = code.isValid() && (!transportFailed || t.tooLarge);
                if (t.answered && !t.tooLarge)
                    t.body = *body + reply->readAll();
                else if (!t.answered)
                    t.error = reply->errorString();
                done(std::move(t));
            });
}

void MeterClient::status(QObject *context, std::function<void(Reply<DaemonStatus>)> done) const {
    get(QStringLiteral("/status"), context,
        [done = std::move(done)](Transport t) { done(decodeReply<DaemonStatus>(t)); });
}

void MeterClient::syncNow(QObject *context, std::function<void(Reply<SyncResult>)> done) const {
    post(QStringLiteral("/sync"), std::nullopt, m_timeouts.sync, context,
         [done = std::move(done)](Transport t) { done(decodeReply<SyncResult>(t)); });
}

void MeterClient::localViewHandoff(
    QObject *context, std::function<void(std::optional<LocalViewHandoff>)> done) const {
    handoffAttempt(0, context, std::move(done));
}

void MeterClient::handoffAttempt(int attempt, QPointer<QObject> context,
                                 std::function<void(std::optional<LocalViewHandoff>)> done) const {
    post(QStringLiteral("/local-view/handoff"), std::nullopt, m_timeouts.request, context,
         [this, attempt, context, done = std::move(done)](Transport t) mutable {
             if (auto handoff = decodeReply<LocalViewHandoff>(t).value) {
                 done(std::move(handoff));
                 return;
             }
             if (attempt + 1 >= m_timeouts.handoffAttempts) {
                 done(std::nullopt);
                 return;
             }
             QTimer::singleShot(m_timeouts.handoffRetryDelay, this,
                                [this, attempt, context, done = std::move(done)]() mutable {
                                    handoffAttempt(attempt + 1, context, std::move(done));
                                });
         });
}

void MeterClient::workTimer(QObject *context, const QString &action,
                            const std::optional<QString> &workSessionId,
                            const std::optional<QString> &projectLabel,
                            std::function<void(WorkTimerCommandOutcome)> done) const {
    const WorkTimerCommand command{action, workSessionId, projectLabel, newIdempotencyKey()};
    post(QStringLiteral("/worklogs/command"), json::encodeBytes(command), m_timeouts.request,
         context, [done = std::move(done)](Transport t) {
             WorkTimerCommandOutcome outcome;
             if (!t.answered) {
                 outcome.error = QStringLiteral("Timer command failed — is the daemon running?");
             } else if (t.httpStatus >= 200 && t.httpStatus <= 299) {
                 if (auto response = json::decode<WorkTimerCommandResponse>(t.body))
                     outcome.session = std::move(response->session);
                 else
                     outcome.error = QStringLiteral("Timer command returned an invalid response");
             } else {
                 const auto error = json::decode<WorkTimerErrorResponse>(t.body);
                 if (error && error->message)
                     outcome.error = *error->message;
                 else if (error && error->errorCode)
                     outcome.error = *error->errorCode;
                 else
                     outcome.error = QStringLiteral("Timer command failed");
             }
             done(std::move(outcome));
         });
}

void MeterClient::sendAttentionHeartbeat(const AttentionHeartbeat &heartbeat) const {
    post(QStringLiteral("/attention/heartbeat"), json::encodeBytes(heartbeat), m_timeouts.request,
         m_nam, [](Transport) {});
}

void MeterClient::clearEnrollment(QObject *context, std::function<void(bool)> done) const {
    post(QStringLiteral("/enroll/clear"), std::nullopt, m_timeouts.request, context,
         [done = std::move(done)](Transport t) { done(t.answered); });
}

QString readAdminToken(const Environment &env) {
    QFile file(env.privateDir() + QStringLiteral("/admin-token"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).trimmed();
}

} // namespace quonbrix
