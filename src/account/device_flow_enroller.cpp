#include "account/device_flow_enroller.h"

#include "files/private_files.h"
#include "log/log_categories.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <climits>
#include <cmath>

namespace quonbrix {

namespace {

const QString kClientId = QStringLiteral("quon-brix");
const QString kStartPath = QStringLiteral("/v1/auth/device/start");
const QString kPollPath = QStringLiteral("/v1/auth/device/poll");
const QString kUserInfoPath = QStringLiteral("/v1/auth/device/userinfo");
const QString kGrantType = QStringLiteral("urn:ietf:params:oauth:grant-type:device_code");
const QString kDefaultApiBase = QStringLiteral("https://api.quon.app");
const QString kEnrollmentFile = QStringLiteral("enrollment.json");
constexpr qint64 kDefaultLifetimeSeconds = 900;
constexpr qint64 kDefaultIntervalSeconds = 5;
constexpr qint64 kSlowDownStepSeconds = 5;

const QString kExpired = QStringLiteral("Sign-in window expired. Try again.");
const QString kMalformedStart = QStringLiteral("Malformed /device/start response");

// What came back for one request. A request that got no HTTP answer at all (refused, dropped,
// timed out) carries the transport's own description instead.
struct Answer {
    std::optional<QString> transportError;
    int status = -1; // -1: the answer was not HTTP
    QJsonObject object;

    bool is2xx() const { return status >= 200 && status <= 299; }
};

// Qt reports HTTP error statuses as content (2xx), protocol-invalid (302) and server (4xx)
// error codes; the rest mean the connection itself failed.
bool isTransportFailure(QNetworkReply::NetworkError e) {
    return e != QNetworkReply::NoError &&
           (e < QNetworkReply::ContentAccessDenied || e == QNetworkReply::ProtocolUnknownError ||
            e == QNetworkReply::ProtocolFailure);
}

Answer readAnswer(QNetworkReply *reply) {
    Answer answer;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (isTransportFailure(reply->error())) {
        answer.transportError = reply->errorString();
        return answer;
    }
    if (status.isValid())
        answer.status = status.toInt();
    const QJsonDocument doc = QJsonDocument::fromJson(reply->readAll());
    if (doc.isObject())
        answer.object = doc.object();
    return answer;
}

// A JSON number with no fractional part, within the range a double holds exactly.
std::optional<qint64> integerValue(const QJsonValue &value) {
    if (!value.isDouble())
        return std::nullopt;
    const double d = value.toDouble();
    constexpr double kExactLimit = 9007199254740992.0; // 2^53
    if (!(std::fabs(d) <= kExactLimit) || std::trunc(d) != d)
        return std::nullopt;
    return qint64(d);
}

std::optional<QString> stringValue(const QJsonObject &object, const QString &key) {
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

// Percent-encodes a form value: everything outside the URL query's characters, and also the
// four that would end or split the value ("+", "&", "=", "?").
QByteArray formValue(const QString &value) {
    return QUrl::toPercentEncoding(value, QByteArrayLiteral("!$'()*,/:;@"));
}

void realWait(std::chrono::seconds delay, QObject *context, std::function<void()> then) {
    // A timer counts in int milliseconds; the server's interval is not trusted to fit.
    const qint64 ms = std::clamp<qint64>(delay.count(), 0, INT_MAX / 1000) * 1000;
    QTimer::singleShot(int(ms), context, std::move(then));
}

} // namespace

namespace deviceflow {

std::optional<Started> readStart(const QJsonObject &o) {
    const std::optional<QString> code = stringValue(o, QStringLiteral("device_code"));
    const std::optional<QString> userCode = stringValue(o, QStringLiteral("user_code"));
    std::optional<QString> page = stringValue(o, QStringLiteral("verification_uri_complete"));
    if (!page)
        page = stringValue(o, QStringLiteral("verification_uri"));
    if (!code || !userCode || !page)
        return std::nullopt;
    const qint64 lifetime =
        integerValue(o.value(QStringLiteral("expires_in"))).value_or(kDefaultLifetimeSeconds);
    const qint64 interval = std::max<qint64>(
        1, integerValue(o.value(QStringLiteral("interval"))).value_or(kDefaultIntervalSeconds));
    return Started{*code, *userCode, *page, lifetime, interval};
}

PollAnswer readPoll(int status, const QJsonObject &o) {
    const std::optional<QString> access = stringValue(o, QStringLiteral("access_token"));
    const std::optional<QString> refresh = stringValue(o, QStringLiteral("refresh_token"));
    if (status == 200 && access && refresh)
        return {PollAnswer::Kind::Approved, *access, *refresh, {}};
    const std::optional<QString> error = stringValue(o, QStringLiteral("error"));
    if (!error)
        return {PollAnswer::Kind::Failed,
                {},
                {},
                QStringLiteral("Sign-in failed (HTTP %1)").arg(status)};
    if (*error == QLatin1String("authorization_pending"))
        return {PollAnswer::Kind::Pending, {}, {}, {}};
    if (*error == QLatin1String("slow_down"))
        return {PollAnswer::Kind::SlowDown, {}, {}, {}};
    if (*error == QLatin1String("expired_token"))
        return {PollAnswer::Kind::Failed, {}, {}, kExpired};
    if (*error == QLatin1String("access_denied"))
        return {PollAnswer::Kind::Failed, {}, {}, QStringLiteral("Sign-in was denied.")};
    return {PollAnswer::Kind::Failed, {}, {}, QStringLiteral("Sign-in error: ") + *error};
}

} // namespace deviceflow

// One sign-in from start to end. Deleting it cancels it: its timers and callbacks are bound to
// it, and its network request is aborted.
struct DeviceFlowEnroller::Run : QObject {
    DeviceFlowEnroller *owner;
    std::function<void(const EnrollPrompt &)> onPrompt;
    std::function<void()> onDone;
    std::function<void(const QString &)> onError;
    QString apiBase;
    QString deviceCode;
    qint64 interval = kDefaultIntervalSeconds;
    double deadlineMs = 0;
    QPointer<QNetworkReply> reply;
    bool cancelled = false;

    explicit Run(DeviceFlowEnroller *enroller)
        : QObject(enroller)
        , owner(enroller) {}

    ~Run() override { abortRequest(); }

    void abortRequest() {
        if (!reply)
            return;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
        reply = nullptr;
    }

    void send(QNetworkRequest request, const QByteArray &verb, const QByteArray &body,
              std::function<void(const Answer &)> handler) {
        request.setTransferTimeout(int(owner->m_options.requestTimeout.count()));
        QNetworkAccessManager *network = owner->m_network;
        reply = verb == "GET" ? network->get(request) : network->post(request, body);
        connect(reply, &QNetworkReply::finished, this, [this, handler = std::move(handler)] {
            QNetworkReply *finished = reply;
            reply = nullptr;
            const Answer answer = readAnswer(finished);
            finished->deleteLater();
            handler(answer);
        });
    }

    // Ask for a code.
    void start() {
        QNetworkRequest request(QUrl(apiBase + kStartPath));
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArrayLiteral("application/json"));
        const QJsonObject body{{QStringLiteral("client_id"), kClientId}};
        send(request, "POST", QJsonDocument(body).toJson(QJsonDocument::Compact),
             [this](const Answer &answer) { started(answer); });
    }

    // Show the code and the page, then poll until the code's lifetime is up.
    void started(const Answer &answer) {
        if (answer.transportError)
            return fail(*answer.transportError);
        if (!answer.is2xx())
            return fail(QStringLiteral("Sign-in failed to start (HTTP %1)").arg(answer.status));

        const std::optional<deviceflow::Started> start = deviceflow::readStart(answer.object);
        if (!start)
            return fail(kMalformedStart);
        const qint64 lifetime = start->lifetimeSeconds;
        interval = start->intervalSeconds;
        deviceCode = start->deviceCode;
        const QString &userCode = start->userCode;

        const QString page =
            rewriteVerificationForLocalDev(start->page, apiBase, userCode, owner->m_options.env);
        qCInfo(lcAccount).noquote()
            << QStringLiteral("[QuonBrix] sign-in: waiting for approval in the browser (code "
                              "valid for %1 s, polling every %2 s)")
                   .arg(lifetime)
                   .arg(interval);
        QPointer<Run> self(this);
        onPrompt(EnrollPrompt{userCode, page, page, lifetime});
        if (!self || cancelled)
            return; // the prompt's handler started another sign-in or cancelled this one
        deadlineMs = owner->m_options.clock->nowMs() + double(lifetime) * 1000.0;
        waitThenPoll();
    }

    void waitThenPoll() {
        if (owner->m_options.clock->nowMs() >= deadlineMs)
            return fail(kExpired);
        QPointer<Run> self(this);
        owner->m_options.wait(std::chrono::seconds(interval), this, [self] {
            if (self && !self->cancelled)
                self->poll();
        });
    }

    void poll() {
        QNetworkRequest request(QUrl(apiBase + kPollPath));
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArrayLiteral("application/x-www-form-urlencoded"));
        const QByteArray form = "grant_type=" + kGrantType.toUtf8() +
                                "&device_code=" + formValue(deviceCode) +
                                "&client_id=" + formValue(kClientId);
        send(request, "POST", form, [this](const Answer &answer) { polled(answer); });
    }

    // The answer to one poll.
    void polled(const Answer &answer) {
        if (answer.transportError)
            return fail(*answer.transportError);
        if (answer.status < 0)
            return fail(QStringLiteral("Sign-in poll got a non-HTTP response"));

        const deviceflow::PollAnswer poll = deviceflow::readPoll(answer.status, answer.object);
        switch (poll.kind) {
        case deviceflow::PollAnswer::Kind::Approved:
            return resolveAccount(poll.access, poll.refresh);
        case deviceflow::PollAnswer::Kind::Pending:
            qCDebug(lcAccount).noquote() << QStringLiteral("[QuonBrix] sign-in: approval pending");
            return waitThenPoll();
        case deviceflow::PollAnswer::Kind::SlowDown:
            interval += kSlowDownStepSeconds;
            qCDebug(lcAccount).noquote()
                << QStringLiteral("[QuonBrix] sign-in: asked to slow down, polling every %1 s")
                       .arg(interval);
            return waitThenPoll();
        case deviceflow::PollAnswer::Kind::Failed:
            return fail(poll.message);
        }
    }

    // Which account approved.
    void resolveAccount(const QString &access, const QString &refresh) {
        qCInfo(lcAccount).noquote()
            << QStringLiteral("[QuonBrix] sign-in: approved, looking up the account");
        QNetworkRequest request(QUrl(apiBase + kUserInfoPath));
        request.setRawHeader(QByteArrayLiteral("authorization"),
                             QByteArrayLiteral("Bearer ") + access.toUtf8());
        send(request, "GET", {}, [this, access, refresh](const Answer &answer) {
            if (answer.transportError)
                return fail(*answer.transportError);
            if (!answer.is2xx())
                return fail(
                    QStringLiteral("Could not resolve your account (HTTP %1)").arg(answer.status));
            // A missing or non-string id is written as an empty string, not an error.
            const QString orgId = answer.object.value(QStringLiteral("org_id")).toString();
            const QString userId = answer.object.value(QStringLiteral("user_id")).toString();
            storeTokens(access, refresh, orgId, userId);
        });
    }

    // The refresh token first, then the access token.
    void storeTokens(const QString &access, const QString &refresh, const QString &orgId,
                     const QString &userId) {
        TokenStore *tokens = owner->m_options.tokens;
        if (!tokens)
            return fail(tokens::saveFailed);
        tokens->store(tokens::refreshAccount, refresh, this,
                      [this, tokens, access, orgId, userId](std::optional<QString> error) {
                          if (cancelled)
                              return;
                          if (error)
                              return fail(*error);
                          tokens->store(tokens::accessAccount, access, this,
                                        [this, orgId, userId](std::optional<QString> error) {
                                            if (cancelled)
                                                return;
                                            if (error)
                                                return fail(*error);
                                            writeEnrollment(orgId, userId);
                                        });
                      });
    }

    // Last, so that a sign-in that failed on the way leaves no enrollment file.
    void writeEnrollment(const QString &orgId, const QString &userId) {
        const QString dir = owner->m_options.env.privateDir();
        const QJsonObject record{{QStringLiteral("orgId"), orgId},
                                 {QStringLiteral("userId"), userId}};
        std::optional<QString> failure = files::preparePrivateDir(dir);
        if (!failure)
            failure = files::writeOwnerOnly(dir + u'/' + kEnrollmentFile,
                                            QJsonDocument(record).toJson(QJsonDocument::Compact));
        if (failure)
            return fail(*failure);
        qCInfo(lcAccount).noquote() << QStringLiteral("[QuonBrix] sign-in: done");
        finish([done = onDone] { done(); });
    }

    void fail(const QString &message) {
        qCWarning(lcAccount).noquote() << QStringLiteral("[QuonBrix] sign-in failed: ") + message;
        finish([onError = onError, message] { onError(message); });
    }

    // The run ends before its callback, so the callback may start the next one.
    void finish(const std::function<void()> &callback) {
        if (cancelled)
            return;
        cancelled = true;
        if (owner->m_run == this)
            owner->m_run = nullptr;
        deleteLater();
        if (callback)
            callback();
    }
};

DeviceFlowEnroller::DeviceFlowEnroller(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
    , m_network(new QNetworkAccessManager(this)) {
    if (!m_options.wait)
        m_options.wait = realWait;
    if (!m_options.clock)
        m_options.clock = &SystemClock::instance();
}

DeviceFlowEnroller::~DeviceFlowEnroller() {
    cancel();
}

void DeviceFlowEnroller::run(std::function<void(const EnrollPrompt &)> onPrompt,
                             std::function<void()> onDone,
                             std::function<void(const QString &message)> onError) {
    cancel();
    auto *run = new Run(this);
    run->onPrompt = onPrompt ? std::move(onPrompt) : [](const EnrollPrompt &) {};
    run->onDone = onDone ? std::move(onDone) : [] {};
    run->onError = onError ? std::move(onError) : [](const QString &) {};
    run->apiBase = apiBase();
    m_run = run;
    qCInfo(lcAccount).noquote() << QStringLiteral("[QuonBrix] sign-in: starting against ") +
                                       run->apiBase;
    run->start();
}

void DeviceFlowEnroller::cancel() {
    Run *run = std::exchange(m_run, nullptr);
    if (!run)
        return;
    qCInfo(lcAccount).noquote() << QStringLiteral("[QuonBrix] sign-in: cancelled");
    run->cancelled = true;
    run->abortRequest();
    run->deleteLater();
}

bool DeviceFlowEnroller::isRunning() const {
    return m_run != nullptr;
}

QString DeviceFlowEnroller::apiBase() const {
    QString base = m_options.env.value(QStringLiteral("QUON_ACCOUNT_API_BASE"), QString());
    if (!base.startsWith(QLatin1String("http")))
        return kDefaultApiBase;
    if (base.endsWith(u'/'))
        base.chop(1);
    return base;
}

QString DeviceFlowEnroller::rewriteVerificationForLocalDev(const QString &url,
                                                           const QString &apiBase,
                                                           const QString &userCode,
                                                           const Environment &env) {
    if (!apiBase.contains(QLatin1String("://localhost")) &&
        !apiBase.contains(QLatin1String("://127.0.0.1")))
        return url;
    return env.consoleBase() + QStringLiteral("/activate?code=") + userCode;
}

} // namespace quonbrix
