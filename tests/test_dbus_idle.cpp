// Idle time on Wayland desktops, from the compositor's D-Bus services. A stand-in GNOME
// and KDE run on a private session bus (the test runs under dbus-run-session), each on its
// own connection and thread, as the compositor would.

#include "app/status_model.h"
#include "platform/attention_sources.h"
#include "platform/dbus_idle.h"
#include "support/fake_daemon.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;

namespace {

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

class DbusIdleTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void waylandSources_data();
    void waylandSources();
    void slowCompositorSendsNoHeartbeat();
};

void DbusIdleTest::initTestCase() {
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("no session bus: run under dbus-run-session");
}

void DbusIdleTest::waylandSources_data() {
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

void DbusIdleTest::waylandSources() {
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

void DbusIdleTest::slowCompositorSendsNoHeartbeat() {
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

QTEST_GUILESS_MAIN(DbusIdleTest)
#include "test_dbus_idle.moc"
