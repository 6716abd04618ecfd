// How provider readings are grouped, ordered and told apart, the way the popover lists them
// and the alerts remember them.

#include "daemon_link/records.h"
#include "features/provider_limits.h"
#include "json/json_codec.h"

#include <QTest>

using namespace quonbrix;

namespace {

ProviderLimitSnapshot reading(const QString &source, const QString &window,
                              std::optional<QString> scope = std::nullopt) {
    ProviderLimitSnapshot s;
    s.source = source;
    s.window = window;
    s.scopeLabel = std::move(scope);
    return s;
}

// "source:window[:scope]" per row, group by group.
QStringList layout(const std::vector<ProviderLimitSnapshot> &all) {
    QStringList rows;
    for (const auto &group : groupProviderLimits(all))
        for (const auto *s : group.snapshots)
            rows << group.source + u':' + s->window +
                        (s->scopeLabel ? u':' + *s->scopeLabel : QString());
    return rows;
}

// "a b c" -> {"a", "b", "c"}
QStringList words(const char *text) {
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

} // namespace

class ProviderLimitsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void grouping_data();
    void grouping();
    void identityKey_data();
    void identityKey();
    void resetTickets_data();
    void resetTickets();
};

void ProviderLimitsTest::grouping_data() {
    QTest::addColumn<QStringList>("input");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("windows of one source by rank, equal ranks in daemon order")
        << words("cc:week cc:other cc:session cc:week_scoped:Opus cc:week_scoped:Sonnet")
        << words("cc:session cc:week cc:week_scoped:Opus cc:week_scoped:Sonnet cc:other");
    QTest::newRow("groups in order of first appearance")
        << words("codex:week claude-code:session codex:session mystery:x")
        << words("codex:session codex:week claude-code:session mystery:x");
    QTest::newRow("two unknown windows keep their order")
        << words("cc:zeta cc:alpha") << words("cc:zeta cc:alpha");
    QTest::newRow("nothing") << QStringList() << QStringList();
}

void ProviderLimitsTest::grouping() {
    QFETCH(QStringList, input);
    QFETCH(QStringList, expected);
    std::vector<ProviderLimitSnapshot> all;
    for (const QString &row : input) {
        const QStringList parts = row.split(u':');
        all.push_back(
            reading(parts.at(0), parts.at(1),
                    parts.size() > 2 ? std::optional<QString>(parts.at(2)) : std::nullopt));
    }
    QCOMPARE(layout(all), expected);
}

void ProviderLimitsTest::identityKey_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("key");
    QTest::newRow("weekly with a reset instant")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225600000})")
        << QStringLiteral("claude-code|week||29453760");
    QTest::newRow("jitter within the minute is the same window")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225659999})")
        << QStringLiteral("claude-code|week||29453760");
    QTest::newRow("the next minute is a new window")
        << QByteArray(R"({"source":"claude-code","window":"week","usedPercent":91,
                          "resetsAtMs":1767225660000})")
        << QStringLiteral("claude-code|week||29453761");
    QTest::newRow("scoped, period only")
        << QByteArray(R"({"source":"claude-code","window":"week_scoped","usedPercent":5,
                          "scopeLabel":"Opus","period":"2026-W48"})")
        << QStringLiteral("claude-code|week_scoped|Opus|2026-W48");
    QTest::newRow("neither reset nor period")
        << QByteArray(R"({"source":"codex","window":"week","usedPercent":5})")
        << QStringLiteral("codex|week||");
    QTest::newRow("reset too large for 64 bits falls back to the period")
        << QByteArray(R"({"source":"codex","window":"week","usedPercent":5,"resetsAtMs":1e300,
                          "period":"p7"})")
        << QStringLiteral("codex|week||p7");
}

void ProviderLimitsTest::identityKey() {
    QFETCH(QByteArray, json);
    QFETCH(QString, key);
    const auto snapshot = json::decode<ProviderLimitSnapshot>(json);
    QVERIFY(snapshot);
    QCOMPARE(limitIdentityKey(*snapshot), key);
}

void ProviderLimitsTest::resetTickets_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<qint64>("count");
    QTest::newRow("empty object") << QByteArray("{}") << qint64(0);
    QTest::newRow("null count") << QByteArray(R"({"availableCount":null})") << qint64(0);
    QTest::newRow("three") << QByteArray(R"({"availableCount":3,"stale":false})") << qint64(3);
}

void ProviderLimitsTest::resetTickets() {
    QFETCH(QByteArray, json);
    QFETCH(qint64, count);
    const auto credits = json::decode<CodexResetCreditsStatus>(json);
    QVERIFY(credits);
    QCOMPARE(resetTicketCount(*credits), count);
}

QTEST_GUILESS_MAIN(ProviderLimitsTest)
#include "test_provider_limits.moc"
