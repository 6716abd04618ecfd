#include "daemon_link/records.h"
#include "support/fixtures.h"
#include "json/json_codec.h"

#include <QRegularExpression>
#include <QTest>

using namespace quonbrix;
using quonbrix::test::fixtureObject;

Q_DECLARE_METATYPE(QJsonValue)

namespace {

// Sets (or, for an undefined value, removes) the value at a path such as
// "providerLimits[0].usedPercent" and returns the changed copy.
QJsonValue mutated(const QJsonValue &node, QStringView path, const QJsonValue &value) {
    if (path.isEmpty())
        return value;
    if (path.startsWith(u'[')) {
        const auto close = path.indexOf(u']');
        const int index = path.mid(1, close - 1).toInt();
        QStringView rest = path.mid(close + 1);
        if (rest.startsWith(u'.'))
            rest = rest.mid(1);
        QJsonArray array = node.toArray();
        array[index] = mutated(array.at(index), rest, value);
        return array;
    }
    const auto end = path.indexOf(QRegularExpression(QStringLiteral("[.\\[]")));
    const QString key = path.left(end).toString();
    QStringView rest = end < 0 ? QStringView() : path.mid(end);
    if (rest.startsWith(u'.'))
        rest = rest.mid(1);
    QJsonObject object = node.toObject();
    if (rest.isEmpty() && value.isUndefined())
        object.remove(key);
    else
        object.insert(key, mutated(object.value(key), rest, value));
    return object;
}

QByteArray bodyWith(const QString &base, const QString &path, const QJsonValue &value) {
    const QJsonObject root = fixtureObject(base);
    return QJsonDocument(path.isEmpty() ? root : mutated(root, path, value).toObject())
        .toJson(QJsonDocument::Compact);
}

const QJsonValue removed = QJsonValue(QJsonValue::Undefined);

} // namespace

class RecordsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodeStatus_data();
    void decodeStatus();
    void fullStatusKeepsEveryValue();
    void integersAreExact_data();
    void integersAreExact();
    void encodingMirrorsDecoding_data();
    void encodingMirrorsDecoding();
    void smallRecords_data();
    void smallRecords();
    void notAnObject_data();
    void notAnObject();
};

void RecordsTest::decodeStatus_data() {
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<bool>("decodes");

    const QString min = QStringLiteral("status-minimal.json");
    const QString full = QStringLiteral("status-full.json");
    auto row = [](const char *name, const QString &base, const char *path, QJsonValue v, bool ok) {
        QTest::newRow(name) << base << QString::fromLatin1(path) << v << ok;
    };
    // The status record itself. A wrong kind is checked once per kind: the codec checks every
    // field alike, and a field declared with the wrong kind fails the full fixture already.
    row("minimal", min, "", {}, true);
    row("full with unknown keys", full, "", {}, true);
    row("consent missing", min, "consent", removed, false);
    row("consent null", min, "consent", QJsonValue::Null, false);
    row("estCost missing", full, "estCost", removed, false);
    row("estCost as integer", min, "estCost", 3, true);
    row("enrolled as text", min, "enrolled", QStringLiteral("true"), false);
    row("tokens fractional", min, "tokens", 1.5, false);
    row("tokens integral double", min, "tokens", 2e3, true);
    row("tokens beyond int64", min, "tokens", 1e19, false);
    row("tokens as text", min, "tokens", QStringLiteral("12"), false);
    row("period null", min, "period", QJsonValue::Null, false);
    row("orgId null is absent", full, "orgId", QJsonValue::Null, true);
    row("orgId wrong type", full, "orgId", 7, false);
    row("projects null is absent", full, "projects", QJsonValue::Null, true);
    row("projects not an array", full, "projects", QJsonObject(), false);
    row("projects empty array", full, "projects", QJsonArray(), true);
    row("unpricedModels holds a number", full, "unpricedModels[0]", 1, false);
    row("lastPushAt as text", full, "lastPushAt", QStringLiteral("yesterday"), false);
    // Nested records fail the whole status even where the field is optional.
    row("snapshot without source", full, "providerLimits[1].source", removed, false);
    row("snapshot stale null", full, "providerLimits[0].stale", QJsonValue::Null, true);
    row("reset credits empty object", full, "codexResetCredits", QJsonObject(), true);
    row("reset credits count fractional", full, "codexResetCredits.availableCount", 2.5, false);
    row("alert without message", full, "alert.message", removed, false);
    row("alert headroom fractional", full, "alert.windowHeadroom", 12.5, false);
    row("limits without warnAt", full, "limits.warnAt", removed, false);
    row("goal without target", full, "goals[0].target", removed, false);
    row("goal without scope", full, "goals[0].scope", removed, true);
    row("window without start", full, "currentWindow.start", removed, false);
    row("attention without period", full, "attention.period", removed, false);
    row("attention firstActiveAt null", full, "attention.firstActiveAt", QJsonValue::Null, true);
    row("timer without segments", full, "workTimers[0].segments", removed, false);
    row("timer issue without externalId", full, "workTimers[0].issue.externalId", removed, false);
    row("segment endedAt null", full, "workTimers[0].segments[0].endedAt", QJsonValue::Null, true);
    row("segment without timeZone", full, "workTimers[0].segments[1].timeZone", removed, false);
    row("workTimer malformed", full, "workTimer", QJsonArray(), false);
    row("consent without projects", full, "consent.projects", removed, false);
    row("consent project without shared", full, "consent.projects.acme/web", QJsonObject(), false);
    row("consent master without grain", full, "consent.master.grain", removed, false);
    row("project with empty key", full, "projects[0].key", QJsonObject(), true);
    row("project key value not text", full, "projects[0].key.repo", 5, false);
    row("project without lastSeen", full, "projects[0].lastSeen", removed, false);
}

void RecordsTest::decodeStatus() {
    QFETCH(QString, base);
    QFETCH(QString, path);
    QFETCH(QJsonValue, value);
    QFETCH(bool, decodes);

    QString error;
    const auto status = json::decode<DaemonStatus>(bodyWith(base, path, value), &error);
    QCOMPARE(status.has_value(), decodes);
    if (!decodes) {
        // The log names where the record broke, starting with the top-level key.
        QVERIFY2(error.startsWith(path.section(QLatin1Char('.'), 0, 0).section(u'[', 0, 0)),
                 qPrintable(error));
    }
}

void RecordsTest::fullStatusKeepsEveryValue() {
    const auto s =
        json::decode<DaemonStatus>(quonbrix::test::fixture(QStringLiteral("status-full.json")));
    QVERIFY(s);
    QCOMPARE(s->orgId, QStringLiteral("org_7f3a"));
    QCOMPARE(s->tokens, 9509084);
    QCOMPARE(s->estCost, 38.174);
    QCOMPARE(s->costBilling, 0.0);
    QCOMPARE(s->lastPushAt, 1795424400000.0);
    QVERIFY(s->projects);
    QCOMPARE(s->projects->size(), 2u);
    QCOMPARE(s->projects->at(0).key.value(QStringLiteral("repo")), QStringLiteral("acme/web"));
    QVERIFY(s->projects->at(1).key.isEmpty());
    QCOMPARE(s->projects->at(1).unpricedModels, QStringList{QStringLiteral("gpt-5-codex-preview")});
    QVERIFY(!s->projects->at(0).costBilling);

    QVERIFY(s->providerLimits);
    const auto &limits = *s->providerLimits;
    QCOMPARE(limits.size(), 5u);
    QCOMPARE(limits[1].usedPercent, 91.0);
    QVERIFY(!limits[1].stale); // absent stays absent
    QCOMPARE(limits[3].stale, std::optional<bool>(false));
    QCOMPARE(limits[4].stale, std::optional<bool>(true));
    QCOMPARE(limits[2].scopeLabel, QStringLiteral("Opus"));
    QCOMPARE(limits[0].windowMinutes, 300.0);

    QCOMPARE(s->codexResetCredits->availableCount, 3);
    QCOMPARE(s->alert->state, QStringLiteral("warn"));
    QCOMPARE(s->consent.projects.size(), 2);
    QVERIFY(s->consent.projects.value(QStringLiteral("acme/web")).shared);
    QVERIFY(s->consent.master.shared);

    // Both timer keys are kept as sent.
    QCOMPARE(s->workTimers->size(), 2u);
    QCOMPARE(s->workTimer->id, QStringLiteral("ws_01"));
    QCOMPARE(s->workTimers->at(0).issue->externalId, QStringLiteral("acme/web#42"));
    QCOMPARE(s->workTimers->at(0).segments.at(0).endedAt,
             QStringLiteral("2026-11-23T08:30:00.500Z"));
    QVERIFY(!s->workTimers->at(0).segments.at(1).endedAt);
    QVERIFY(!s->workTimers->at(1).completedAt);
    QVERIFY(!s->goals->at(1).scope);

    const auto minimal = json::decode<DaemonStatus>(quonbrix::test::minimalStatusBody());
    QVERIFY(minimal);
    QVERIFY(!minimal->projects && !minimal->providerLimits && !minimal->workTimers);
    QVERIFY(!minimal->lastPushAt && !minimal->codexResetCredits && !minimal->alert);
}

void RecordsTest::integersAreExact_data() {
    QTest::addColumn<QByteArray>("literal");
    QTest::addColumn<qint64>("expected");
    QTest::newRow("int64 max") << QByteArray("9223372036854775807")
                               << qint64(9223372036854775807LL);
    QTest::newRow("int64 min") << QByteArray("-9223372036854775808")
                               << qint64(-9223372036854775807LL - 1);
    QTest::newRow("beyond double precision")
        << QByteArray("9007199254740993") << qint64(9007199254740993LL);
}

void RecordsTest::integersAreExact() {
    QFETCH(QByteArray, literal);
    QFETCH(qint64, expected);
    QByteArray body = quonbrix::test::minimalStatusBody();
    body.replace("\"tokens\": 16600", "\"tokens\": " + literal);
    const auto s = json::decode<DaemonStatus>(body);
    QVERIFY(s);
    QCOMPARE(s->tokens, expected);
}

void RecordsTest::encodingMirrorsDecoding_data() {
    QTest::addColumn<QString>("name");
    QTest::newRow("minimal") << QStringLiteral("status-minimal.json");
    QTest::newRow("full") << QStringLiteral("status-full.json");
}

void RecordsTest::encodingMirrorsDecoding() {
    QFETCH(QString, name);
    const QJsonObject original = fixtureObject(name);
    const auto decoded = json::decode<DaemonStatus>(original);
    QVERIFY(decoded);
    const QJsonObject encoded = json::encode(*decoded);

    // Re-decoding gives the same record, and the encoding carries exactly the keys that were
    // sent and known: nothing invented for absent values, no nulls, unknown keys dropped.
    QCOMPARE(json::decode<DaemonStatus>(encoded), decoded);
    QStringList expectedKeys;
    for (auto it = original.begin(); it != original.end(); ++it) {
        if (!it.value().isNull() && it.key() != QLatin1String("someFutureKey"))
            expectedKeys << it.key();
    }
    QStringList keys = encoded.keys();
    expectedKeys.sort();
    keys.sort();
    QCOMPARE(keys, expectedKeys);
    if (name.contains(QLatin1String("full"))) {
        const QJsonArray limits = encoded.value(QStringLiteral("providerLimits")).toArray();
        QVERIFY(!limits.at(1).toObject().contains(QStringLiteral("stale")));
        QCOMPARE(limits.at(3).toObject().value(QStringLiteral("stale")), QJsonValue(false));
        QVERIFY(!encoded.value(QStringLiteral("workTimers"))
                     .toArray()
                     .at(1)
                     .toObject()
                     .contains(QStringLiteral("completedAt")));
    }
}

void RecordsTest::smallRecords_data() {
    QTest::addColumn<QString>("record");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("decodes");
    const auto row = [](const char *name, const char *record, const char *body, bool decodes) {
        QTest::newRow(name) << QString::fromLatin1(record) << QByteArray(body) << decodes;
    };
    row("sync minimal", "sync", R"({"ok":true,"collected":1,"pushed":0,"queued":0})", true);
    row("sync skipped", "sync",
        R"({"ok":true,"collected":3,"pushed":0,"queued":0,"skipped":"not-enrolled",)"
        R"("lastPushAt":1795424400000})",
        true);
    row("sync without queued", "sync", R"({"ok":true,"collected":1,"pushed":0})", false);
    row("sync skipped as number", "sync",
        R"({"ok":true,"collected":1,"pushed":0,"queued":0,"skipped":1})", false);
    row("sync error body", "sync", R"({"error":"internal"})", false);
    row("handoff", "handoff", R"({"handoff":"abc","expiresAt":1795424400000})", true);
    row("handoff without expiry", "handoff", R"({"handoff":"abc"})", false);
    row("handoff token null", "handoff", R"({"handoff":null,"expiresAt":1})", false);
    row("command reply empty", "command", "{}", true);
    row("command reply session null", "command", R"({"session":null})", true);
    row("command reply bad session", "command", R"({"session":{"id":"x"}})", false);
}

void RecordsTest::smallRecords() {
    QFETCH(QString, record);
    QFETCH(QByteArray, body);
    QFETCH(bool, decodes);
    bool ok = false;
    if (record == QLatin1String("sync"))
        ok = json::decode<SyncResult>(body).has_value();
    else if (record == QLatin1String("handoff"))
        ok = json::decode<LocalViewHandoff>(body).has_value();
    else
        ok = json::decode<WorkTimerCommandResponse>(body).has_value();
    QCOMPARE(ok, decodes);
}

void RecordsTest::notAnObject_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("array") << QByteArray("[]");
    QTest::newRow("html error page") << QByteArray("<html><body>502 Bad Gateway</body></html>");
    QTest::newRow("truncated") << quonbrix::test::minimalStatusBody().left(40);
    QTest::newRow("null") << QByteArray("null");
}

void RecordsTest::notAnObject() {
    QFETCH(QByteArray, body);
    QString error;
    QVERIFY(!json::decode<DaemonStatus>(body, &error));
    QVERIFY(!error.isEmpty());
}

QTEST_GUILESS_MAIN(RecordsTest)
#include "test_records.moc"
