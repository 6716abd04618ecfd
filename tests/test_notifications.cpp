// Goal and provider-limit warnings as they reach the desktop: real status passes against the
// fake daemon, posted over a private session bus (the test runs under dbus-run-session) to
// a stand-in notification server that records every Notify call.

#include "app/app_core.h"
#include "platform/desktop_notifier.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

namespace {

struct NotifyCall {
    QString appName;
    uint replacesId;
    QString icon;
    QString summary;
    QString body;
    QVariantMap hints;
    uint returnedId;
};

class FakeNotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QList<NotifyCall> calls;
    bool failing = false;

    // Registers on a connection of its own, as a separate server process would.
    bool start() {
        m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                              QStringLiteral("fake-notifications"));
        return m_bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), this,
                                    QDBusConnection::ExportAllSlots |
                                        QDBusConnection::ExportAllSignals) &&
               m_bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    ~FakeNotificationServer() override {
        m_bus.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("fake-notifications"));
    }
    QStringList summaries() const {
        QStringList out;
        for (const auto &c : calls)
            out << c.summary;
        return out;
    }

public Q_SLOTS:
    uint Notify(const QString &appName, uint replacesId, const QString &icon,
                const QString &summary, const QString &body, const QStringList &,
                const QVariantMap &hints, int, const QDBusMessage &message) {
        if (failing) {
            message.setDelayedReply(true);
            m_bus.send(message.createErrorReply(QDBusError::Failed, QStringLiteral("no")));
            return 0;
        }
        const uint id = replacesId ? replacesId : ++m_nextId;
        calls.append({appName, replacesId, icon, summary, body, hints, id});
        return id;
    }

Q_SIGNALS:
    void NotificationClosed(uint id, uint reason);

private:
    QDBusConnection m_bus{QString()};
    uint m_nextId = 0;
};

QJsonObject baseStatus() {
    return QJsonDocument::fromJson(test::minimalStatusBody()).object();
}

QByteArray withAlert(const QString &state, const QString &windowStart) {
    QJsonObject status = baseStatus();
    status.insert(QStringLiteral("alert"),
                  QJsonObject{{QStringLiteral("state"), state},
                              {QStringLiteral("windowRatio"), 0.92},
                              {QStringLiteral("weeklyRatio"), 0.4},
                              {QStringLiteral("projectedWeeklyRatio"), 0.7},
                              {QStringLiteral("windowHeadroom"), 12300},
                              {QStringLiteral("weeklyHeadroom"), 900000},
                              {QStringLiteral("message"), QStringLiteral("Pace is high")}});
    if (!windowStart.isEmpty())
        status.insert(QStringLiteral("currentWindow"),
                      QJsonObject{{QStringLiteral("start"), windowStart},
                                  {QStringLiteral("reset"), QStringLiteral("2026-11-23T15:00:00Z")},
                                  {QStringLiteral("elapsedHours"), 2.0},
                                  {QStringLiteral("remainingHours"), 3.0},
                                  {QStringLiteral("estimatedTokens"), 100000},
                                  {QStringLiteral("estimatedWork"), 5000}});
    return QJsonDocument(status).toJson();
}

// "source window percent [stale] [reset=MS]" per reading, ";" between readings.
QByteArray withLimits(const QString &readings) {
    QJsonArray limits;
    for (const QString &reading : readings.split(u';', Qt::SkipEmptyParts)) {
        const QStringList f = reading.trimmed().split(u' ');
        QJsonObject o{{QStringLiteral("source"), f.at(0)},
                      {QStringLiteral("window"), f.at(1)},
                      {QStringLiteral("usedPercent"), f.at(2).toDouble()}};
        for (const QString &extra : f.mid(3)) {
            if (extra == QLatin1String("stale"))
                o.insert(QStringLiteral("stale"), true);
            else if (extra.startsWith(QLatin1String("reset=")))
                o.insert(QStringLiteral("resetsAtMs"), extra.mid(6).toDouble());
        }
        limits.append(o);
    }
    QJsonObject status = baseStatus();
    status.insert(QStringLiteral("providerLimits"), limits);
    return QJsonDocument(status).toJson();
}

} // namespace

class NotificationsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void goalSequence();
    void providerSequences_data();
    void providerSequences();
    void sameIdentifierReplaces();
    void brokenOrMissingServerIsHarmless();

private:
    // Serves each body in turn for one pass and returns once every pass finished.
    void runPasses(const QList<QByteArray> &bodies);

    QTemporaryDir m_home;
    std::unique_ptr<FakeNotificationServer> m_server;
    std::unique_ptr<FakeDaemon> m_daemon;
    std::unique_ptr<AppCore> m_core;
    std::unique_ptr<DesktopNotifier> m_notifier;
    ManualClock m_clock{QDateTime::fromString(QStringLiteral("2026-11-23T12:00:00Z"), Qt::ISODate)};
};

void NotificationsTest::initTestCase() {
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("no session bus: run under dbus-run-session");
}

void NotificationsTest::init() {
    m_server = std::make_unique<FakeNotificationServer>();
    QVERIFY(m_server->start());
    m_daemon = std::make_unique<FakeDaemon>();
    m_core = std::make_unique<AppCore>(m_daemon->environment(m_home.path()), nullptr,
                                       AttentionSources{});
    DesktopNotifier::Options options;
    options.icon = QStringLiteral("/tmp/quonbrix-test-icon.png");
    m_notifier = std::make_unique<DesktopNotifier>(QDBusConnection::sessionBus(), options);
    m_core->setNotifier(m_notifier.get(), &m_clock);
}

void NotificationsTest::cleanup() {
    m_core.reset();
    m_notifier.reset();
    m_daemon.reset();
    m_server.reset();
}

void NotificationsTest::runPasses(const QList<QByteArray> &bodies) {
    QSignalSpy passes(&m_core->model(), &StatusModel::passFinished);
    for (const QByteArray &body : bodies) {
        m_daemon->setReply(QStringLiteral("/status"), FakeReply::json(body));
        const qsizetype before = passes.count();
        m_core->model().refresh();
        QTRY_COMPARE(passes.count(), before + 1);
        // Each post is answered before the next pass, as on a desktop with a live server.
        QTRY_COMPARE(m_notifier->pendingPosts(), 0);
    }
}

void NotificationsTest::goalSequence() {
    const QString w1 = QStringLiteral("2026-11-23T10:00:00Z");
    runPasses({withAlert(QStringLiteral("warn"), w1), withAlert(QStringLiteral("warn"), w1),
               withAlert(QStringLiteral("over"), w1), withAlert(QStringLiteral("ok"), w1),
               withAlert(QStringLiteral("warn"), w1)});
    QCOMPARE(m_server->summaries(), (QStringList{QStringLiteral("quon-brix goal pace warning"),
                                                 QStringLiteral("quon-brix goal exceeded"),
                                                 QStringLiteral("quon-brix goal pace warning")}));
    const NotifyCall &first = m_server->calls.at(0);
    QCOMPARE(first.body, QStringLiteral("92% used · 12.3K tokens left for this window"));
    QCOMPARE(first.appName, QStringLiteral("QuonBrix"));
    QCOMPARE(first.icon, QStringLiteral("/tmp/quonbrix-test-icon.png"));
    QCOMPARE(first.hints.value(QStringLiteral("desktop-entry")).toString(),
             QStringLiteral("app.quonbrix.QuonBrix"));
    QCOMPARE(first.hints.value(QStringLiteral("sound-name")).toString(),
             QStringLiteral("message-new-instant"));
    QCOMPARE(first.replacesId, 0u);
    QCOMPARE(m_server->calls.at(1).replacesId, 0u); // "over" is a notice of its own
    // Only the exceeded goal stays on screen until dismissed.
    QCOMPARE(first.hints.value(QStringLiteral("urgency")).toInt(), 1);
    QCOMPARE(m_server->calls.at(1).hints.value(QStringLiteral("urgency")).toInt(), 2);
    // The second pace warning of the same window replaces the first one still on screen.
    QCOMPARE(m_server->calls.at(2).replacesId, first.returnedId);

    // Without a current window the alert is keyed by the day: a new key, a new notice.
    runPasses({withAlert(QStringLiteral("warn"), QString())});
    QCOMPARE(m_server->calls.size(), 4);
    QCOMPARE(m_server->calls.at(3).replacesId, 0u);
    QVERIFY(m_notifier->serverId(QStringLiteral("quon-brix-warn-2026-11-23")) != 0);
}

void NotificationsTest::providerSequences_data() {
    QTest::addColumn<QStringList>("passes");
    QTest::addColumn<QStringList>("titles");
    const auto list = [](std::initializer_list<const char *> items) {
        QStringList out;
        for (const char *i : items)
            out << QString::fromUtf8(i);
        return out;
    };
    QTest::newRow("Codex 5-hour window never, Codex weekly at 90")
        << list({"codex session 99", "codex session 99; codex week 90"})
        << list({"Codex Weekly at 90%"});
    QTest::newRow("stale silent, then fresh once")
        << list({"claude-code week 95 stale", "claude-code week 95", "claude-code week 96"})
        << list({"Claude Code Weekly at 95% (critical)"});
    QTest::newRow("89.99 silent, 90 posts with the rounded percent")
        << list({"claude-code session 89.99", "claude-code session 90.4"})
        << list({"Claude Code 5h window at 90%"});
    QTest::newRow("reset minutes one apart are two windows")
        << list({"claude-code week 91 reset=1767225600000",
                 "claude-code week 92 reset=1767225659999",
                 "claude-code week 93 reset=1767225660000"})
        << list({"Claude Code Weekly at 91%", "Claude Code Weekly at 93%"});
    QTest::newRow("several in one pass, list order; scoped without a label")
        << list({"codex week 97; claude-code week_scoped 92"})
        << list({"Codex Weekly at 97% (critical)", "Claude Code Weekly (model) at 92%"});
    QTest::newRow("an impossible percent is skipped, the rest still posts")
        << list({"claude-code week 1e300; codex week 91"}) << list({"Codex Weekly at 91%"});
}

void NotificationsTest::providerSequences() {
    QFETCH(QStringList, passes);
    QFETCH(QStringList, titles);
    QList<QByteArray> bodies;
    for (const QString &p : passes)
        bodies << withLimits(p);
    runPasses(bodies);
    // Titles, with the urgency a notification server keeps on screen marked.
    QStringList seen;
    for (const NotifyCall &call : m_server->calls)
        seen << call.summary + (call.hints.value(QStringLiteral("urgency")).toInt() == 2
                                    ? QStringLiteral(" (critical)")
                                    : QString());
    QCOMPARE(seen, titles);
}

void NotificationsTest::sameIdentifierReplaces() {
    runPasses({withLimits(QStringLiteral("claude-code week 91 reset=1795608000000"))});
    QCOMPARE(m_server->calls.size(), 1);
    QCOMPARE(m_server->calls.at(0).body,
             QStringLiteral("Provider rate limit nearly used · resets in 2 days"));

    QSignalSpy posted(m_notifier.get(), &DesktopNotifier::posted);
    m_notifier->post(QStringLiteral("x"), QStringLiteral("one"), QString());
    QTRY_COMPARE(posted.count(), 1);
    m_notifier->post(QStringLiteral("x"), QStringLiteral("two"), QString());
    QTRY_COMPARE(posted.count(), 2);
    QCOMPARE(m_server->calls.at(2).replacesId, m_server->calls.at(1).returnedId);

    // Once the user closed it, the same identifier makes a fresh notification.
    Q_EMIT m_server->NotificationClosed(m_server->calls.at(1).returnedId, 2);
    QTRY_COMPARE(m_notifier->serverId(QStringLiteral("x")), 0u);
    m_notifier->post(QStringLiteral("x"), QStringLiteral("three"), QString());
    QTRY_COMPARE(posted.count(), 3);
    QCOMPARE(m_server->calls.at(3).replacesId, 0u);
}

void NotificationsTest::brokenOrMissingServerIsHarmless() {
    m_server->failing = true;
    QSignalSpy posted(m_notifier.get(), &DesktopNotifier::posted);
    m_notifier->post(QStringLiteral("a"), QStringLiteral("t"), QString());
    QTRY_COMPARE(posted.count(), 1);
    QCOMPARE(posted.at(0).at(1).toBool(), false);

    m_server.reset(); // no server at all
    m_notifier->post(QStringLiteral("b"), QStringLiteral("t"), QString());
    QTRY_COMPARE(posted.count(), 2);
    QCOMPARE(posted.at(1).at(1).toBool(), false);
    // The app carries on reading the daemon.
    runPasses({withLimits(QStringLiteral("codex week 91"))});
    QVERIFY(m_core->model().hasStatus());
}

QTEST_GUILESS_MAIN(NotificationsTest)
#include "test_notifications.moc"
