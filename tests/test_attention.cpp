// Attention heartbeats: what one sample says, and that the model sends one at once and then
// on its interval, only when the desktop can tell idle time.

#include "app/status_model.h"
#include "features/attention.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

namespace {

// Desktop stand-ins: these feed the code under test, they are not it.
struct FixedIdle : IdleTimeSource {
    std::optional<double> seconds;
    void queryIdleSeconds(QObject *, Answer answer) override { answer(seconds); }
    QString name() const override { return QStringLiteral("fixed"); }
};

struct FixedForeground : ForegroundAppSource {
    std::optional<ForegroundApp> app;
    std::optional<ForegroundApp> foregroundApp() override { return app; }
};

std::optional<QString> text(const char *s) {
    return s ? std::optional<QString>(QString::fromUtf8(s)) : std::nullopt;
}

} // namespace

class AttentionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sample_data();
    void sample();
    void modelSendsAtOnceThenOnItsInterval();
    void watcherSendsNothing();
};

void AttentionTest::sample_data() {
    QTest::addColumn<double>("idle");
    QTest::addColumn<bool>("hasApp");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("active");
    QTest::addColumn<QStringList>("keys");
    const QStringList all{QStringLiteral("active"), QStringLiteral("foregroundBundleId"),
                          QStringLiteral("foregroundName"), QStringLiteral("idleSeconds"),
                          QStringLiteral("ts")};
    const QStringList bare{QStringLiteral("active"), QStringLiteral("idleSeconds"),
                           QStringLiteral("ts")};
    QTest::newRow("typing 30 s ago") << 30.0 << true << QStringLiteral("Code")
                                     << QStringLiteral("Visual Studio Code") << true << all;
    QTest::newRow("just under two minutes")
        << 119.9 << true << QStringLiteral("kitty") << QStringLiteral("kitty") << true << all;
    QTest::newRow("exactly two minutes is away")
        << 120.0 << true << QStringLiteral("kitty") << QStringLiteral("kitty") << false << all;
    QTest::newRow("no focused window") << 5.0 << false << QString() << QString() << true << bare;
    QTest::newRow("name without id")
        << 5.0 << true << QString() << QStringLiteral("Untitled app") << true
        << QStringList{QStringLiteral("active"), QStringLiteral("foregroundName"),
                       QStringLiteral("idleSeconds"), QStringLiteral("ts")};
    // The desktop gave no idle time: no heartbeat at all, even with a focused window.
    QTest::newRow("no idle time") << -1.0 << true << QStringLiteral("kitty")
                                  << QStringLiteral("kitty") << false << QStringList();
}

void AttentionTest::sample() {
    QFETCH(double, idle);
    QFETCH(bool, hasApp);
    QFETCH(QString, id);
    QFETCH(QString, name);
    QFETCH(bool, active);
    QFETCH(QStringList, keys);

    FixedForeground foreground;
    if (hasApp)
        foreground.app = ForegroundApp{id.isNull() ? std::nullopt : std::optional(id),
                                       name.isNull() ? std::nullopt : std::optional(name)};
    const ManualClock clock(QDateTime::fromMSecsSinceEpoch(1795425000123, QTimeZone::utc()));

    const auto heartbeat =
        sampleAttention(idle < 0 ? std::nullopt : std::optional(idle), &foreground, clock);
    QCOMPARE(heartbeat.has_value(), !keys.isEmpty());
    if (!heartbeat)
        return;
    // What the daemon receives on the wire.
    const QJsonObject body = json::encode(*heartbeat);
    QStringList sent = body.keys();
    sent.sort();
    QCOMPARE(sent, keys);
    QCOMPARE(body.value(QStringLiteral("active")).toBool(), active);
    QCOMPARE(body.value(QStringLiteral("idleSeconds")).toDouble(), idle);
    QCOMPARE(body.value(QStringLiteral("ts")).toDouble(), 1795425000123.0);
    if (!id.isNull())
        QCOMPARE(body.value(QStringLiteral("foregroundBundleId")).toString(), id);
}

void AttentionTest::modelSendsAtOnceThenOnItsInterval() {
    QTemporaryDir home;
    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"),
                    FakeReply::json(quonbrix::test::minimalStatusBody()));
    daemon.setReply(QStringLiteral("/attention/heartbeat"), FakeReply::json(QByteArray(), 204));
    MeterClient client(daemon.base());
    StatusModel model(
        &client, daemon.environment(home.path()),
        StatusModel::Intervals{std::chrono::milliseconds(5000), std::chrono::milliseconds(600)});
    FixedIdle idle;
    idle.seconds = 42.5;
    FixedForeground foreground;
    foreground.app = ForegroundApp{text("firefox"), text("Firefox")};
    model.setAttentionSources(&idle, &foreground, nullptr);

    QElapsedTimer t;
    t.start();
    model.start();
    QVERIFY(daemon.waitForRequests(QStringLiteral("/attention/heartbeat"), 1, 2000));
    QVERIFY2(t.elapsed() < 450, "the first heartbeat goes out at start, not after an interval");
    QVERIFY(daemon.waitForRequests(QStringLiteral("/attention/heartbeat"), 3, 5000));
    const auto beats = daemon.requests(QStringLiteral("/attention/heartbeat"));
    const qint64 gap = beats.at(2).arrivedMs - beats.at(1).arrivedMs;
    QVERIFY2(gap >= 550 && gap < 1100, qPrintable(QString::number(gap)));

    const auto &last = beats.last();
    QCOMPARE(last.method, QByteArray("POST"));
    QCOMPARE(last.header("Content-Type"), QByteArray("application/json"));
    const QJsonObject body = last.json();
    QCOMPARE(body.value(QStringLiteral("foregroundBundleId")).toString(),
             QStringLiteral("firefox"));
    QCOMPARE(body.value(QStringLiteral("foregroundName")).toString(), QStringLiteral("Firefox"));
    QCOMPARE(body.value(QStringLiteral("idleSeconds")).toDouble(), 42.5);
    QVERIFY(body.value(QStringLiteral("active")).toBool());
    QVERIFY(qAbs(body.value(QStringLiteral("ts")).toDouble() -
                 double(QDateTime::currentMSecsSinceEpoch())) < 5000);

    // The desktop stops answering idle time: heartbeats stop rather than guess.
    idle.seconds.reset();
    daemon.clearRequests();
    QTest::qWait(1400);
    QVERIFY(daemon.requests(QStringLiteral("/attention/heartbeat")).isEmpty());
}

void AttentionTest::watcherSendsNothing() {
    QTemporaryDir home;
    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"),
                    FakeReply::json(quonbrix::test::minimalStatusBody()));
    MeterClient client(daemon.base());
    StatusModel model(
        &client, daemon.environment(home.path()),
        StatusModel::Intervals{std::chrono::milliseconds(100), std::chrono::milliseconds(100)});
    model.start(); // no attention sources: a second viewer of the status
    QVERIFY(daemon.waitForRequests(QStringLiteral("/status"), 3, 3000));
    QVERIFY(daemon.requests(QStringLiteral("/attention/heartbeat")).isEmpty());
}

QTEST_GUILESS_MAIN(AttentionTest)
#include "test_attention.moc"
