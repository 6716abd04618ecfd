#pragma once

#include "daemon_link/records.h"
#include "platform/environment.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>

namespace quonbrix {

// Time-outs of the daemon link. They are idle time-outs: a request fails when nothing arrives
// for that long. Tests shorten them instead of waiting for minutes.
struct MeterClientTimeouts {
    std::chrono::milliseconds request{60'000};
    std::chrono::milliseconds sync{180'000};
    std::chrono::milliseconds handoffRetryDelay{300};
    int handoffAttempts = 6;
};

// Why a call yielded no value. Callers that only need "value or nothing" ignore it; the
// command line uses it to tell a dead daemon from one that talks nonsense.
enum class ReplyFailure { None, Unreachable, Unreadable };

template <class T> struct Reply {
    std::optional<T> value;
    ReplyFailure failure = ReplyFailure::None;
    QString detail; // for logs only; never shown as a user message
};

// The only road to the daemon's admin API on the loopback interface. Every call is
// asynchronous and ends in a value or absent; nothing is thrown and nothing is retried except
// the local-console handoff. Callbacks run on the thread the client lives on, and only while
// `context` is alive.
class MeterClient : public QObject {
    Q_OBJECT

public:
    explicit MeterClient(QString base, MeterClientTimeouts timeouts = {},
                         QObject *parent = nullptr);

    static constexpr auto defaultAdminPort = "8511";
    // "http://127.0.0.1:" plus $QUON_BRIX_ADMIN_PORT taken verbatim, else the default port.
    static QString baseFromEnvironment(const Environment &env);
    // A base that does not make a valid URL is a configuration fault the app refuses to start on.
    static bool isUsableBase(const QString &base);

    const QString &base() const { return m_base; }
    QUrl urlFor(const QString &path) const;

    void status(QObject *context, std::function<void(Reply<DaemonStatus>)> done) const;
    void syncNow(QObject *context, std::function<void(Reply<SyncResult>)> done) const;
    void localViewHandoff(QObject *context,
                          std::function<void(std::optional<LocalViewHandoff>)> done) const;
    void workTimer(QObject *context, const QString &action,
                   const std::optional<QString> &workSessionId,
                   const std::optional<QString> &projectLabel,
                   std::function<void(WorkTimerCommandOutcome)> done) const;
    // Fire and forget: the answer is not read and failures are dropped.
    void sendAttentionHeartbeat(const AttentionHeartbeat &heartbeat) const;
    // POST /enroll/clear; `done` learns whether the daemon answered at all.
    void clearEnrollment(QObject *context, std::function<void(bool answered)> done) const;

    // A fresh idempotency key: "mac-" and an upper-case canonical UUID. The daemon matches on
    // the prefix, so it stays even on Linux.
    static QString newIdempotencyKey();

    struct Transport {
        bool answered = false; // an HTTP reply arrived in full, or was cut off for its length
        bool tooLarge = false;
        int httpStatus = 0;
        QByteArray body;
        QString error;
    };

private:
    void get(const QString &path, QObject *context, std::function<void(Transport)> done) const;
    void post(const QString &path, const std::optional<QByteArray> &body,
              std::chrono::milliseconds timeout, QObject *context,
              std::function<void(Transport)> done) const;
    void send(QNetworkReply *reply, QObject *context, std::function<void(Transport)> done) const;
    void handoffAttempt(int attempt, QPointer<QObject> context,
                        std::function<void(std::optional<LocalViewHandoff>)> done) const;

    QString m_base;
    MeterClientTimeouts m_timeouts;
    QNetworkAccessManager *m_nam;
};

// ~/.quon-brix/admin-token, trimmed; empty when missing or unreadable.
QString readAdminToken(const Environment &env);

} // namespace quonbrix
