#include "daemon_link/meter_client.h"
#include "daemon_link/records.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "json/json_codec.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;
using namespace std::chrono_literals;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;
using quonbrix::test::quickTimeouts;
using quonbrix::test::RecordedRequest;

namespace {

// Collects the one result of an asynchronous client call.
template <class T> struct Capture {
    std::optional<T> value;
    int calls = 0;

    auto sink() {
        return [this](T v) {
            value = std::move(v);
            ++calls;
        };
    }
    bool wait(int timeoutMs = 5000) {
        QElapsedTimer waited;
        waited.start();
        while (calls == 0 && waited.elapsed() < timeoutMs)
            QTest::qWait(5);
        return calls > 0;
    }
};

QJsonObject sessionJson(const QString &id, const QString &label) {
    return QJsonObject{
        {QStringLiteral("schemaVersion"), QStringLiteral("1")},
        {QStringLiteral("id"), id},
        {QStringLiteral("projectLabel"), label},
        {QStringLiteral("status"), QStringLiteral("running")},
        {QStringLiteral("segments"),
         QJsonArray{
             QJsonObject{{QStringLiteral("id"), QStringLiteral("seg_1")},
                         {QStringLiteral("startedAt"), QStringLiteral("2026-11-23T08:00:00Z")},
                         {QStringLiteral("timeZone"), QStringLiteral("Europe/Berlin")}}}},
        {QStringLiteral("createdAt"), QStringLiteral("2026-11-23T08:00:00Z")},
        {QStringLiteral("updatedAt"), QStringLiteral("2026-11-23T08:00:00Z")},
        {QStringLiteral("revision"), 1},
    };
}

QByteArray handoffBody() {
    return QByteArrayLiteral(R"({"handoff":"hnd-7Q2x","expiresAt":1795424460000})");
}

QSet<QString> keysOf(const QJsonObject &object) {
    const QStringList keys = object.keys();
    return QSet<QString>(keys.cbegin(), keys.cend());
}

const QRegularExpression idempotencyKeyPattern(
    QStringLiteral("^mac-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"));

} // namespace

class MeterClientTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void baseFromPortVariable_data();
    void baseFromPortVariable();
    void statusOverRealSocket();
    void statusFailuresAreAbsent_data();
    void statusFailuresAreAbsent();
    void requestFraming_data();
    void requestFraming();
    void syncTimeOut_data();
    void syncTimeOut();
    void handoffRetries_data();
    void handoffRetries();
    void workTimerCommandBody_data();
    void workTimerCommandBody();
    void workTimerOutcome_data();
    void workTimerOutcome();
    void heartbeatBody_data();
    void heartbeatBody();
    void clearEnrollmentReportsAnswer_data();
    void clearEnrollmentReportsAnswer();
    void adminToken_data();
    void adminToken();

private:
    QObject m_context;
};

void MeterClientTest::baseFromPortVariable_data() {
    QTest::addColumn<std::optional<QString>>("port");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("validUrl");

    QTest::newRow("unset") << std::optional<QString>() << QStringLiteral("/status")
                           << QStringLiteral("http://127.0.0.1:8511/status") << true;
    QTest::newRow("9000") << std::optional<QString>(QStringLiteral("9000"))
                          << QStringLiteral("/sync") << QStringLiteral("http://127.0.0.1:9000/sync")
                          << true;
    // The variable is taken verbatim: no trimming, no check that it is a number.
    QTest::newRow("blanks kept") << std::optional<QString>(QStringLiteral(" 9000 "))
                                 << QStringLiteral("/status")
                                 << QStringLiteral("http://127.0.0.1: 9000 /status") << false;
    QTest::newRow("empty value is an empty port")
        << std::optional<QString>(QString()) << QStringLiteral("/status")
        << QStringLiteral("http://127.0.0.1:/status") << false;
    QTest::newRow("not a number") << std::optional<QString>(QStringLiteral("admin"))
                                  << QStringLiteral("/sync")
                                  << QStringLiteral("http://127.0.0.1:admin/sync") << false;
}

void MeterClientTest::baseFromPortVariable() {
    QFETCH(std::optional<QString>, port);
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QFETCH(bool, validUrl);

    Environment env({{QStringLiteral("HOME"), QStringLiteral("/srv/people/someone")},
                     {QStringLiteral("QUON_BRIX_MCP_PORT"), QStringLiteral("8600")}});
    if (port)
        env.set(QStringLiteral("QUON_BRIX_ADMIN_PORT"), *port);

    const QString base = MeterClient::baseFromEnvironment(env);
    QCOMPARE(base + path, expected);
    if (validUrl) {
        const MeterClient client(base);
        QCOMPARE(client.urlFor(path).toString(), expected);
    }
}

void MeterClientTest::statusOverRealSocket() {
    FakeDaemon daemon;
    QVERIFY(daemon.isListening());
    const QByteArray body = test::fixture(QStringLiteral("status-full.json"));
    daemon.setReply(QStringLiteral("/status"), FakeReply::json(body));

    QTemporaryDir home;
    MeterClient client(MeterClient::baseFromEnvironment(daemon.environment(home.path())),
                       quickTimeouts());
    Capture<Reply<DaemonStatus>> result;
    client.status(&m_context, result.sink());
    QVERIFY(result.wait());

    QCOMPARE(result.calls, 1);
    QCOMPARE(result.value->failure, ReplyFailure::None);
    QVERIFY(result.value->value.has_value());
    const DaemonStatus &status = *result.value->value;
    QCOMPARE(status.enrolled, true);
    QCOMPARE(status.orgId, std::optional<QString>(QStringLiteral("org_7f3a")));
    QCOMPARE(status.tokens, 9509084);
    QCOMPARE(status.providerLimits->size(), size_t(5));
    QCOMPARE(status.workTimers->at(0).segments.at(1).endedAt, std::optional<QString>());
    // Nothing lost on the way: what arrived is what the daemon sent.
    QCOMPARE(status, *json::decode<DaemonStatus>(body));

    const auto requests = daemon.requests();
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.at(0).method, QByteArray("GET"));
    QCOMPARE(requests.at(0).path, QStringLiteral("/status"));
    QVERIFY(requests.at(0).body.isEmpty());
}

void MeterClientTest::statusFailuresAreAbsent_data() {
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<bool>("refuse");
    QTest::addColumn<int>("failure");

    const int unreadable = int(ReplyFailure::Unreadable);
    const int unreachable = int(ReplyFailure::Unreachable);

    QJsonObject noConsent = test::minimalStatus();
    noConsent.remove(QStringLiteral("consent"));

    QTest::newRow("500 with JSON error body") << FakeReply::error(500) << false << unreadable;
    QTest::newRow("404 with JSON error body") << FakeReply::error(404) << false << unreadable;
    QTest::newRow("500 with HTML body") << FakeReply::html(500) << false << unreadable;
    QTest::newRow("200 garbage body") << FakeReply::garbage() << false << unreadable;
    QTest::newRow("200 empty body") << FakeReply::json(QByteArray()) << false << unreadable;
    QTest::newRow("200 JSON array") << FakeReply::json(QByteArray("[]")) << false << unreadable;
    QTest::newRow("200 status without consent")
        << FakeReply::json(noConsent) << false << unreadable;
    // Hostile but well-formed: past the size limit (read no further), past Qt's nesting limit.
    QJsonObject padded = test::minimalStatus();
    padded.insert(QStringLiteral("padding"), QString(9 << 20, u'x'));
    QTest::newRow("200 valid status of 9 MiB") << FakeReply::json(padded) << false << unreadable;
    QByteArray deep = QJsonDocument(test::minimalStatus()).toJson(QJsonDocument::Compact);
    deep.insert(1, "\"deep\":" + QByteArray(10'000, '[') + QByteArray(10'000, ']') + ',');
    QTest::newRow("200 status nested 10,000 deep") << FakeReply::json(deep) << false << unreadable;
    QTest::newRow("port closed") << FakeReply() << true << unreachable;
    QTest::newRow("connection dropped unanswered") << FakeReply::drop() << false << unreachable;
    QTest::newRow("no answer within the time-out") << FakeReply::hang() << false << unreachable;
}

void MeterClientTest::statusFailuresAreAbsent() {
    QFETCH(FakeReply, reply);
    QFETCH(bool, refuse);
    QFETCH(int, failure);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"), reply);
    if (refuse)
        daemon.refuse();

    MeterClientTimeouts timeouts = quickTimeouts();
    timeouts.request = 300ms;
    MeterClient client(daemon.base(), timeouts);
    Capture<Reply<DaemonStatus>> result;
    client.status(&m_context, result.sink());
    QVERIFY(result.wait());

    QTest::qWait(50); // a second callback would show up here
    QCOMPARE(result.calls, 1);
    QVERIFY(!result.value->value.has_value());
    QCOMPARE(int(result.value->failure), failure);
}

void MeterClientTest::requestFraming_data() {
    QTest::addColumn<QString>("call");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("jsonBody");

    QTest::newRow("status") << QStringLiteral("status") << QByteArray("GET")
                            << QStringLiteral("/status") << false;
    QTest::newRow("sync") << QStringLiteral("sync") << QByteArray("POST") << QStringLiteral("/sync")
                          << false;
    QTest::newRow("handoff") << QStringLiteral("handoff") << QByteArray("POST")
                             << QStringLiteral("/local-view/handoff") << false;
    QTest::newRow("clear enrollment") << QStringLiteral("clear") << QByteArray("POST")
                                      << QStringLiteral("/enroll/clear") << false;
    QTest::newRow("work timer") << QStringLiteral("workTimer") << QByteArray("POST")
                                << QStringLiteral("/worklogs/command") << true;
    QTest::newRow("heartbeat") << QStringLiteral("heartbeat") << QByteArray("POST")
                               << QStringLiteral("/attention/heartbeat") << true;
}

void MeterClientTest::requestFraming() {
    QFETCH(QString, call);
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(bool, jsonBody);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"), FakeReply::json(test::minimalStatusBody()));
    daemon.setReply(QStringLiteral("/local-view/handoff"), FakeReply::json(handoffBody()));
    daemon.setReply(QStringLiteral("/sync"), FakeReply::json(QByteArray("{}")));
    daemon.setReply(QStringLiteral("/enroll/clear"), FakeReply::json(QByteArray("{}")));
    daemon.setReply(QStringLiteral("/worklogs/command"), FakeReply::json(QByteArray("{}")));
    daemon.setReply(QStringLiteral("/attention/heartbeat"), FakeReply::json(QByteArray("{}")));
    MeterClient client(daemon.base(), quickTimeouts());

    if (call == QLatin1String("status"))
        client.status(&m_context, [](Reply<DaemonStatus>) {});
    else if (call == QLatin1String("sync"))
        client.syncNow(&m_context, [](Reply<SyncResult>) {});
    else if (call == QLatin1String("handoff"))
        client.localViewHandoff(&m_context, [](std::optional<LocalViewHandoff>) {});
    else if (call == QLatin1String("clear"))
        client.clearEnrollment(&m_context, [](bool) {});
    else if (call == QLatin1String("workTimer"))
        client.workTimer(&m_context, QStringLiteral("pause"), QStringLiteral("ws_01"), std::nullopt,
                         [](WorkTimerCommandOutcome) {});
    else if (call == QLatin1String("heartbeat"))
        client.sendAttentionHeartbeat(AttentionHeartbeat{true, std::nullopt, std::nullopt, 2, 1});
    else
        QFAIL("unknown call");

    QVERIFY(daemon.waitForRequests(path, 1));
    QTest::qWait(50);
    const auto requests = daemon.requests();
    QCOMPARE(requests.size(), 1);
    const RecordedRequest &request = requests.at(0);
    QCOMPARE(request.method, method);
    QCOMPARE(request.path, path);
    if (method == "POST")
        QCOMPARE(request.header(QByteArrayLiteral("Content-Type")), QByteArray("application/json"));
    else
        QVERIFY(!request.hasHeader(QByteArrayLiteral("Content-Type")));
    // No credentials travel on the admin API.
    QVERIFY(!request.hasHeader(QByteArrayLiteral("Authorization")));
    if (jsonBody) {
        QJsonParseError error{};
        const QJsonDocument doc = QJsonDocument::fromJson(request.body, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        QVERIFY(doc.isObject());
    } else {
        QCOMPARE(request.body, QByteArray());
    }
}

void MeterClientTest::syncTimeOut_data() {
    QTest::addColumn<int>("syncTimeoutMs");
    QTest::addColumn<int>("replyDelayMs");
    QTest::addColumn<bool>("succeeds");

    // The request time-out is 150 ms throughout: sync must wait by its own, longer one.
    QTest::newRow("quick reply") << 1500 << 0 << true;
    QTest::newRow("slower than a status read, within the sync time-out") << 1500 << 600 << true;
    QTest::newRow("slower than the sync time-out") << 300 << 2000 << false;
}

void MeterClientTest::syncTimeOut() {
    QFETCH(int, syncTimeoutMs);
    QFETCH(int, replyDelayMs);
    QFETCH(bool, succeeds);

    FakeDaemon daemon;
    daemon.setReply(
        QStringLiteral("/sync"),
        FakeReply::json(QByteArray(R"({"ok":true,"collected":12,"pushed":10,"queued":2})"))
            .delayed(replyDelayMs));
    MeterClientTimeouts timeouts = quickTimeouts();
    timeouts.request = 150ms;
    timeouts.sync = std::chrono::milliseconds(syncTimeoutMs);
    MeterClient client(daemon.base(), timeouts);

    QElapsedTimer took;
    took.start();
    Capture<Reply<SyncResult>> result;
    client.syncNow(&m_context, result.sink());
    QVERIFY(result.wait(syncTimeoutMs + replyDelayMs + 3000));
    const qint64 elapsed = took.elapsed();

    QCOMPARE(result.value->value.has_value(), succeeds);
    if (succeeds) {
        QCOMPARE(result.value->value->collected, 12);
        QCOMPARE(result.value->value->queued, 2);
        QVERIFY2(elapsed >= replyDelayMs, qPrintable(QString::number(elapsed)));
    } else {
        QCOMPARE(result.value->failure, ReplyFailure::Unreachable);
        // Given up at the time-out, not when the late reply would have come.
        QVERIFY2(elapsed >= syncTimeoutMs * 9 / 10 && elapsed < replyDelayMs,
                 qPrintable(QString::number(elapsed)));
    }
}

void MeterClientTest::handoffRetries_data() {
    QTest::addColumn<FakeReply>("failure");
    QTest::addColumn<int>("failures");
    QTest::addColumn<bool>("succeeds");

    QTest::newRow("first attempt") << FakeReply::error(500) << 0 << true;
    QTest::newRow("five server errors, then a handoff") << FakeReply::error(500) << 5 << true;
    QTest::newRow("six server errors") << FakeReply::error(503) << 6 << false;
    QTest::newRow("six garbage bodies") << FakeReply::garbage() << 6 << false;
    QTest::newRow("six time-outs") << FakeReply::hang() << 6 << false;
}

void MeterClientTest::handoffRetries() {
    QFETCH(FakeReply, failure);
    QFETCH(int, failures);
    QFETCH(bool, succeeds);

    const auto retryDelay = 100ms;
    // Short only where the attempts are meant to time out.
    const auto requestTimeout = failure.kind == FakeReply::Kind::Hang ? 100ms : 1000ms;
    FakeDaemon daemon;
    daemon.enqueue(QStringLiteral("/local-view/handoff"), failure, failures);
    // After the scripted failures the daemon hands out a token every time, so a seventh
    // attempt would succeed: only the attempt limit can stop at six.
    daemon.setReply(QStringLiteral("/local-view/handoff"), FakeReply::json(handoffBody()));
    MeterClientTimeouts timeouts = quickTimeouts();
    timeouts.request = requestTimeout;
    timeouts.handoffRetryDelay = retryDelay;
    MeterClient client(daemon.base(), timeouts);

    Capture<std::optional<LocalViewHandoff>> result;
    client.localViewHandoff(&m_context, result.sink());
    QVERIFY(result.wait(8000));
    // A seventh attempt would come one pause later; give it room to show up.
    QTest::qWait(int(2 * retryDelay.count()) + 60);
    QCOMPARE(result.calls, 1);

    const int attempts = std::min(failures + 1, 6);
    const auto requests = daemon.requests(QStringLiteral("/local-view/handoff"));
    QCOMPARE(requests.size(), attempts);
    QCOMPARE(result.value->has_value(), succeeds);
    if (succeeds) {
        QCOMPARE((*result.value)->handoff, QStringLiteral("hnd-7Q2x"));
        QCOMPARE((*result.value)->expiresAt, 1795424460000.0);
    }

    // One fixed pause between consecutive attempts: never skipped, never growing.
    const qint64 waitedForReply =
        failure.kind == FakeReply::Kind::Hang ? requestTimeout.count() : 0;
    const qint64 step = waitedForReply + retryDelay.count();
    for (qsizetype i = 1; i < requests.size(); ++i) {
        const qint64 gap = requests.at(i).arrivedMs - requests.at(i - 1).arrivedMs;
        const QByteArray why =
            "gap " + QByteArray::number(gap) + " ms before attempt " + QByteArray::number(i + 1);
        QVERIFY2(gap >= waitedForReply * 9 / 10 + retryDelay.count() * 95 / 100, why.constData());
        QVERIFY2(gap < step + retryDelay.count() + 150, why.constData());
    }
    if (requests.size() > 1) {
        const qint64 span = requests.last().arrivedMs - requests.first().arrivedMs;
        QVERIFY2(span < (requests.size() - 1) * step + 300,
                 qPrintable(QStringLiteral("%1 ms from first to last attempt").arg(span)));
    }
}

void MeterClientTest::workTimerCommandBody_data() {
    QTest::addColumn<QString>("action");
    QTest::addColumn<std::optional<QString>>("sessionId");
    QTest::addColumn<std::optional<QString>>("projectLabel");

    const std::optional<QString> none;
    const std::optional<QString> session(QStringLiteral("ws_01"));
    QTest::newRow("start") << QStringLiteral("start") << none
                           << std::optional<QString>(QStringLiteral("Client A"));
    QTest::newRow("start, label beyond ASCII")
        << QStringLiteral("start") << none
        << std::optional<QString>(QStringLiteral("Kunde Ä — 東京 \"quoted\""));
    QTest::newRow("pause") << QStringLiteral("pause") << session << none;
    QTest::newRow("resume") << QStringLiteral("resume") << session << none;
    QTest::newRow("complete") << QStringLiteral("complete") << session << none;
    QTest::newRow("cancel") << QStringLiteral("cancel") << session << none;
}

void MeterClientTest::workTimerCommandBody() {
    QFETCH(QString, action);
    QFETCH(std::optional<QString>, sessionId);
    QFETCH(std::optional<QString>, projectLabel);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/worklogs/command"), FakeReply::json(QByteArray("{}")));
    MeterClient client(daemon.base(), quickTimeouts());

    // The same command twice: the daemon must be able to tell them apart.
    for (int i = 0; i < 2; ++i) {
        Capture<WorkTimerCommandOutcome> result;
        client.workTimer(&m_context, action, sessionId, projectLabel, result.sink());
        QVERIFY(result.wait());
        QVERIFY(result.value->ok());
    }

    const auto requests = daemon.requests(QStringLiteral("/worklogs/command"));
    QCOMPARE(requests.size(), 2);
    QStringList keys;
    for (const RecordedRequest &request : requests) {
        const QJsonObject body = request.json();
        QSet<QString> expectedKeys{QStringLiteral("action"), QStringLiteral("idempotencyKey")};
        if (sessionId)
            expectedKeys.insert(QStringLiteral("workSessionId"));
        if (projectLabel)
            expectedKeys.insert(QStringLiteral("projectLabel"));
        QCOMPARE(keysOf(body), expectedKeys);
        QCOMPARE(body.value(QStringLiteral("action")).toString(), action);
        if (sessionId)
            QCOMPARE(body.value(QStringLiteral("workSessionId")).toString(), *sessionId);
        if (projectLabel)
            QCOMPARE(body.value(QStringLiteral("projectLabel")).toString(), *projectLabel);
        const QString key = body.value(QStringLiteral("idempotencyKey")).toString();
        QVERIFY2(idempotencyKeyPattern.match(key).hasMatch(), qPrintable(key));
        keys.append(key);
    }
    QVERIFY(keys.at(0) != keys.at(1));
}

void MeterClientTest::workTimerOutcome_data() {
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<bool>("refuse");
    QTest::addColumn<QString>("error"); // null: success
    QTest::addColumn<QString>("sessionId");

    const QString none;
    QJsonObject brokenSession = sessionJson(QStringLiteral("ws_09"), QStringLiteral("Client A"));
    brokenSession.remove(QStringLiteral("revision"));

    QTest::newRow("200 with an empty object")
        << FakeReply::json(QByteArray("{}")) << false << none << none;
    QTest::newRow("201 with the session")
        << FakeReply::json(
               QJsonObject{{QStringLiteral("session"),
                            sessionJson(QStringLiteral("ws_42"), QStringLiteral("Client A"))}},
               201)
        << false << none << QStringLiteral("ws_42");
    QTest::newRow("200 garbage") << FakeReply::garbage() << false
                                 << QStringLiteral("Timer command returned an invalid response")
                                 << none;
    QTest::newRow("200 with a malformed session")
        << FakeReply::json(QJsonObject{{QStringLiteral("session"), brokenSession}}) << false
        << QStringLiteral("Timer command returned an invalid response") << none;
    QTest::newRow("409 with only an error code")
        << FakeReply::json(QByteArray(R"({"errorCode":"session_not_running"})"), 409) << false
        << QStringLiteral("session_not_running") << none;
    QTest::newRow("422 message wins over code")
        << FakeReply::json(
               QByteArray(
                   R"({"errorCode":"label_required","message":"Project label is required"})"),
               422)
        << false << QStringLiteral("Project label is required") << none;
    QTest::newRow("404 with only a message")
        << FakeReply::json(QByteArray(R"({"message":"No such work session"})"), 404) << false
        << QStringLiteral("No such work session") << none;
    QTest::newRow("500 with an HTML body")
        << FakeReply::html(500) << false << QStringLiteral("Timer command failed") << none;
    QTest::newRow("500 with neither message nor code")
        << FakeReply::json(QByteArray(R"({"error":"boom"})"), 500) << false
        << QStringLiteral("Timer command failed") << none;
    QTest::newRow("port closed") << FakeReply() << true
                                 << QStringLiteral("Timer command failed — is the daemon running?")
                                 << none;
    QTest::newRow("no answer within the time-out")
        << FakeReply::hang() << false
        << QStringLiteral("Timer command failed — is the daemon running?") << none;
}

void MeterClientTest::workTimerOutcome() {
    QFETCH(FakeReply, reply);
    QFETCH(bool, refuse);
    QFETCH(QString, error);
    QFETCH(QString, sessionId);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/worklogs/command"), reply);
    if (refuse)
        daemon.refuse();
    MeterClientTimeouts timeouts = quickTimeouts();
    timeouts.request = 300ms;
    MeterClient client(daemon.base(), timeouts);

    Capture<WorkTimerCommandOutcome> result;
    client.workTimer(&m_context, QStringLiteral("pause"), QStringLiteral("ws_42"), std::nullopt,
                     result.sink());
    QVERIFY(result.wait());
    QCOMPARE(result.calls, 1);

    const WorkTimerCommandOutcome &outcome = *result.value;
    QCOMPARE(outcome.ok(), error.isNull());
    QCOMPARE(outcome.error.value_or(QString()), error);
    QCOMPARE(outcome.session.has_value(), !sessionId.isNull());
    if (outcome.session) {
        QCOMPARE(outcome.session->id, sessionId);
        QCOMPARE(outcome.session->segments.size(), size_t(1));
    }
}

void MeterClientTest::heartbeatBody_data() {
    QTest::addColumn<std::optional<QString>>("bundleId");
    QTest::addColumn<std::optional<QString>>("name");

    const std::optional<QString> none;
    QTest::newRow("no foreground app") << none << none;
    QTest::newRow("foreground app") << std::optional<QString>(QStringLiteral("org.kde.konsole"))
                                    << std::optional<QString>(QStringLiteral("Konsole"));
    QTest::newRow("name only") << none << std::optional<QString>(QStringLiteral("Zed"));
}

void MeterClientTest::heartbeatBody() {
    QFETCH(std::optional<QString>, bundleId);
    QFETCH(std::optional<QString>, name);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/attention/heartbeat"), FakeReply::json(QByteArray("{}")));
    MeterClient client(daemon.base(), quickTimeouts());

    const double ts = 1795424400123.0;
    client.sendAttentionHeartbeat(AttentionHeartbeat{true, bundleId, name, 12.5, ts});
    QVERIFY(daemon.waitForRequests(QStringLiteral("/attention/heartbeat"), 1));

    const QJsonObject body = daemon.requests().at(0).json();
    QSet<QString> expectedKeys{QStringLiteral("active"), QStringLiteral("idleSeconds"),
                               QStringLiteral("ts")};
    if (bundleId)
        expectedKeys.insert(QStringLiteral("foregroundBundleId"));
    if (name)
        expectedKeys.insert(QStringLiteral("foregroundName"));
    QCOMPARE(keysOf(body), expectedKeys);
    QCOMPARE(body.value(QStringLiteral("active")), QJsonValue(true));
    QCOMPARE(body.value(QStringLiteral("idleSeconds")).toDouble(), 12.5);
    QCOMPARE(body.value(QStringLiteral("ts")).toDouble(), ts);
    if (bundleId)
        QCOMPARE(body.value(QStringLiteral("foregroundBundleId")).toString(), *bundleId);
    if (name)
        QCOMPARE(body.value(QStringLiteral("foregroundName")).toString(), *name);
}

void MeterClientTest::clearEnrollmentReportsAnswer_data() {
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<bool>("refuse");
    QTest::addColumn<bool>("answered");

    QTest::newRow("200") << FakeReply::json(QByteArray("{}")) << false << true;
    // An error reply is still an answer: the daemon is there.
    QTest::newRow("500 HTML") << FakeReply::html(500) << false << true;
    QTest::newRow("port closed") << FakeReply() << true << false;
}

void MeterClientTest::clearEnrollmentReportsAnswer() {
    QFETCH(FakeReply, reply);
    QFETCH(bool, refuse);
    QFETCH(bool, answered);

    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/enroll/clear"), reply);
    if (refuse)
        daemon.refuse();
    MeterClient client(daemon.base(), quickTimeouts());

    Capture<bool> result;
    client.clearEnrollment(&m_context, result.sink());
    QVERIFY(result.wait());
    QCOMPARE(*result.value, answered);
    QCOMPARE(daemon.requests(QStringLiteral("/enroll/clear")).size(), refuse ? 0 : 1);
}

void MeterClientTest::adminToken_data() {
    QTest::addColumn<std::optional<QByteArray>>("content");
    QTest::addColumn<QString>("token");

    using Bytes = std::optional<QByteArray>;
    QTest::newRow("line end") << Bytes("qbx_4f9c2a\n") << QStringLiteral("qbx_4f9c2a");
    QTest::newRow("blanks and CRLF around")
        << Bytes("  \t qbx_4f9c2a \r\n\n") << QStringLiteral("qbx_4f9c2a");
    QTest::newRow("inner blank kept") << Bytes("qbx 4f9c\n") << QStringLiteral("qbx 4f9c");
    QTest::newRow("UTF-8") << Bytes("t\xc3\xb6ken\n") << QStringLiteral("t\u00f6ken");
    QTest::newRow("empty file") << Bytes("") << QString();
    QTest::newRow("only blanks") << Bytes(" \n\t\n") << QString();
    QTest::newRow("missing file") << Bytes() << QString();
}

void MeterClientTest::adminToken() {
    QFETCH(std::optional<QByteArray>, content);
    QFETCH(QString, token);

    QTemporaryDir home;
    QVERIFY(home.isValid());
    QVERIFY(QDir(home.path()).mkpath(QStringLiteral(".quon-brix")));
    if (content) {
        QFile file(home.filePath(QStringLiteral(".quon-brix/admin-token")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(*content);
    }
    const Environment env({{QStringLiteral("HOME"), home.path()}});
    const QString read = readAdminToken(env);
    QCOMPARE(read, token);
}

QTEST_GUILESS_MAIN(MeterClientTest)
#include "test_meter_client.moc"
