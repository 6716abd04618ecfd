// Attention heartbeats: what one sample says, that the model sends one at once and then on its
// interval, only when the desktop can tell idle time; and idle time on Wayland desktops from
// the compositor's D-Bus services, a stand-in GNOME and KDE on a private session bus (the test
// runs under dbus-run-session), each on its own connection and thread as the compositor would.

#include "app/status_model.h"
#include "features/attention.h"
#include "platform/attention_sources.h"
#include "platform/dbus_idle.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
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

class FakeMutter : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Mutter.IdleMonitor")
public:
    qulonglong idleMs = 0;
    int delayMs = 0;
public Q_SLOTS:
    qulonglong GetIdletime() {
        QThread::msleep(static_cast<unsigned long>(delayMs));
        return idleMs;
    }
};

class FakeKdeScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    uint idleMs = 0;
public Q_SLOTS:
    uint GetSessionIdleTime() { return idleMs; }
};

// A screen saver service without the idle call, as some desktops register.
class BareScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public Q_SLOTS:
    void SimulateUserActivity() {}
};

// Owns one bus connection on its own thread and exports one service on it.
class Desktop {
public:
    template <class Service>
    Desktop(const QString &busName, const QString &path, Service *service, const char *tag) {
        m_thread.start();
        service->moveToThread(&m_thread);
        m_service = service;
        QMetaObject::invokeMethod(
            service,
            [=, this] {
                m_bus.emplace(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                            QString::fromLatin1(tag)));
                m_bus->registerObject(path, service, QDBusConnection::ExportAllSlots);
                m_bus->registerService(busName);
            },
            Qt::BlockingQueuedConnection);
        m_tag = QString::fromLatin1(tag);
    }
    ~Desktop() {
        QMetaObject::invokeMethod(
            m_service,
            [this] {
                m_bus.reset();
                QDBusConnection::disconnectFromBus(m_tag);
                delete m_service;
            },
            Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

private:
    QThread m_thread;
    QObject *m_service = nullptr;
    std::optional<QDBusConnection> m_bus;
    QString m_tag;
};

Environment waylandSession() {
    return Environment({{QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland")},
                        {QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0")},
                        {QStringLiteral("DISPLAY"), QStringLiteral(":99")}});
}

} // namespace

class AttentionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sample_data();
    void sample();
    void modelSendsAtOnceThenOnItsInterval();
    void watcherSendsNothing();
    void waylandSources_data();
    void waylandSources();
    void slowCompositorSendsNoHeartbeat();
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

void AttentionTest::waylandSources_data() {
    QTest::addColumn<QString>("services");
    QTest::addColumn<QString>("source");
    QTest::addColumn<double>("idle");
    QTest::newRow("GNOME") << "mutter"
                           << "GNOME Mutter IdleMonitor" << 12.345;
    QTest::newRow("KDE Plasma") << "kde"
                                << "KDE ScreenSaver" << 7.5;
    QTest::newRow("GNOME wins over a screen saver service") << "mutter kde"
                                                            << "GNOME Mutter IdleMonitor" << 12.345;
    QTest::newRow("screen saver without idle time") << "bare"
                                                    << "" << -1.0;
    QTest::newRow("bare compositor") << ""
                                     << "" << -1.0;
}

void AttentionTest::waylandSources() {
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
    QFETCH(QString, services);
    QFETCH(QString, source);
    QFETCH(double, idle);

    std::vector<std::unique_ptr<Desktop>> desktop;
    if (services.contains(QLatin1String("mutter"))) {
        auto *mutter = new FakeMutter;
        mutter->idleMs = 12345;
        desktop.push_back(std::make_unique<Desktop>(
            QStringLiteral("org.gnome.Mutter.IdleMonitor"),
            QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"), mutter, "mutter"));
    }
    if (services.contains(QLatin1String("kde"))) {
        auto *kde = new FakeKdeScreenSaver;
        kde->idleMs = 7500;
        desktop.push_back(std::make_unique<Desktop>(QStringLiteral("org.freedesktop.ScreenSaver"),
                                                    QStringLiteral("/ScreenSaver"), kde, "kde"));
    }
    if (services.contains(QLatin1String("bare")))
        desktop.push_back(std::make_unique<Desktop>(QStringLiteral("org.freedesktop.ScreenSaver"),
                                                    QStringLiteral("/ScreenSaver"),
                                                    new BareScreenSaver, "bare"));

    // A Wayland session never reads idle time through Xwayland, even with DISPLAY set.
    const AttentionSources sources =
        openAttentionSources(waylandSession(), QDBusConnection::sessionBus());
    QVERIFY(!sources.foreground);
    if (source.isEmpty()) {
        QVERIFY(!sources.idle);
        QVERIFY(!sources.why.isEmpty());
        return;
    }
    QVERIFY(sources.idle);
    QCOMPARE(sources.idle->name(), source);
    std::optional<std::optional<double>> answer;
    sources.idle->queryIdleSeconds(this, [&](std::optional<double> s) { answer = s; });
    QTRY_VERIFY(answer);
    QCOMPARE(*answer, std::optional<double>(idle));
}

void AttentionTest::slowCompositorSendsNoHeartbeat() {
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
    auto *mutter = new FakeMutter;
    mutter->idleMs = 1000;
    Desktop desktop(QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                    QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"), mutter, "slow");
    MutterIdleTime idle(QDBusConnection::sessionBus());
    QTemporaryDir home;
    FakeDaemon daemon;
    MeterClient client(daemon.base());
    StatusModel model(&client, daemon.environment(home.path()));
    model.setAttentionSources(&idle, nullptr, nullptr);
    model.sendAttentionHeartbeat();
    QVERIFY(daemon.waitForRequests(QStringLiteral("/attention/heartbeat"), 1, 2000));
    const QJsonObject beat = daemon.requests(QStringLiteral("/attention/heartbeat")).last().json();
    QCOMPARE(beat.value(QStringLiteral("idleSeconds")).toDouble(), 1.0);

    // A compositor taking 2 s: the tray's event loop keeps running while it thinks, and an
    // answer that late sends nothing.
    mutter->delayMs = 2000;
    daemon.clearRequests();
    QElapsedTimer clock;
    clock.start();
    qint64 timerFiredAt = -1;
    QTimer::singleShot(100, this, [&] { timerFiredAt = clock.elapsed(); });
    model.sendAttentionHeartbeat();
    QTest::qWait(2300);
    QVERIFY2(timerFiredAt >= 100 && timerFiredAt < 1000, qPrintable(QString::number(timerFiredAt)));
    QVERIFY(daemon.requests(QStringLiteral("/attention/heartbeat")).isEmpty());
}

QTEST_GUILESS_MAIN(AttentionTest)
#include "test_attention.moc"
