// Attention sources on wlroots compositors: idle time and the focused window from a real
// headless sway (the swaysession CTest fixture), the ext_idle_notifier_v1 protocol sway 1.7
// lacks from a stand-in compositor, Hyprland's sockets from a stand-in, and what happens when
// any of these misbehaves.

#include "helpers/log_capture.h"
#include "platform/attention_sources.h"
#include "platform/sway_ipc.h"
#include "platform/wayland_idle.h"
#include "support/sim_process.h"
#include "support/swaysession.h"

#include <QDBusConnection>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <cstring>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <wayland-server.h>

#include "ext-idle-notify-v1-server-protocol.h"
#include "idle-server-protocol.h"

using namespace quonbrix;

namespace {

constexpr char attentionLog[] = "quonbrix.attention";

std::optional<double> idleNow(IdleTimeSource &source) {
    std::optional<double> seconds;
    source.queryIdleSeconds(nullptr, [&](std::optional<double> s) { seconds = s; });
    return seconds;
}

QString focusedId(ForegroundAppSource &source) {
    const auto app = source.foregroundApp();
    return app && app->id ? *app->id : QString();
}

int listeningSocket(const QString &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(fd, 4) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// A compositor of our own on its own thread (the client's start-up probe waits for it),
// offering a seat and the idle globals asked for, and saying "idle" or "resumed" when told.
class StandInCompositor {
public:
    enum class Say { Idled, Resumed };

    StandInCompositor(const QString &path, bool seat, bool extNotifier, bool kdeIdle)
        : m_display(wl_display_create())
        , m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        wl_display_add_socket_fd(m_display, listeningSocket(path));
        if (seat)
            wl_global_create(m_display, &wl_seat_interface, 1, this, bindSeat);
        if (extNotifier)
            wl_global_create(m_display, &ext_idle_notifier_v1_interface, 1, this, bindExt);
        if (kdeIdle)
            wl_global_create(m_display, &org_kde_kwin_idle_interface, 1, this, bindKde);
        m_wakeSource = wl_event_loop_add_fd(wl_display_get_event_loop(m_display), m_wake,
                                            WL_EVENT_READABLE, onWake, this);
        m_thread = std::thread([this] { wl_display_run(m_display); });
    }
    ~StandInCompositor() {
        goAway();
        ::close(m_wake);
    }

    void say(Say what) {
        m_say = what;
        const std::uint64_t one = 1;
        QVERIFY(::write(m_wake, &one, sizeof one) == sizeof one);
    }

    // Ends like a crashed compositor: every client's connection closes.
    void goAway() {
        if (!m_display)
            return;
        wl_display_terminate(m_display);
        m_thread.join();
        wl_display_destroy_clients(m_display);
        wl_event_source_remove(m_wakeSource);
        wl_display_destroy(m_display);
        m_display = nullptr;
    }

private:
    static StandInCompositor *self(void *data) { return static_cast<StandInCompositor *>(data); }

    static void bindSeat(wl_client *client, void *, std::uint32_t version, std::uint32_t id) {
        // The client only names the seat in its requests, never calls it.
        wl_resource_create(client, &wl_seat_interface, int(version), id);
    }

    static void destroy(wl_client *, wl_resource *resource) { wl_resource_destroy(resource); }
    static void forget(wl_resource *resource) {
        auto &all = self(wl_resource_get_user_data(resource))->m_notifications;
        std::erase_if(all, [resource](const auto &n) { return n.first == resource; });
    }

    static void bindExt(wl_client *client, void *data, std::uint32_t version, std::uint32_t id) {
        static const struct ext_idle_notifier_v1_interface implementation = {
            destroy, [](wl_client *c, wl_resource *notifier, std::uint32_t newId, std::uint32_t,
                        wl_resource *) {
                static const struct ext_idle_notification_v1_interface notification = {destroy};
                wl_resource *r = wl_resource_create(c, &ext_idle_notification_v1_interface,
                                                    wl_resource_get_version(notifier), newId);
                wl_resource_set_implementation(r, &notification,
                                               wl_resource_get_user_data(notifier), forget);
                self(wl_resource_get_user_data(notifier))->m_notifications.emplace_back(r, true);
            }};
        wl_resource *r =
            wl_resource_create(client, &ext_idle_notifier_v1_interface, int(version), id);
        wl_resource_set_implementation(r, &implementation, data, nullptr);
    }

    static void bindKde(wl_client *client, void *data, std::uint32_t version, std::uint32_t id) {
        static const struct org_kde_kwin_idle_interface implementation = {
            [](wl_client *c, wl_resource *idle, std::uint32_t newId, wl_resource *, std::uint32_t) {
                static const struct org_kde_kwin_idle_timeout_interface timeout = {
                    destroy, [](wl_client *, wl_resource *) {}};
                wl_resource *r = wl_resource_create(c, &org_kde_kwin_idle_timeout_interface,
                                                    wl_resource_get_version(idle), newId);
                wl_resource_set_implementation(r, &timeout, wl_resource_get_user_data(idle),
                                               forget);
                self(wl_resource_get_user_data(idle))->m_notifications.emplace_back(r, false);
            }};
        wl_resource *r = wl_resource_create(client, &org_kde_kwin_idle_interface, int(version), id);
        wl_resource_set_implementation(r, &implementation, data, nullptr);
    }

    static int onWake(int fd, std::uint32_t, void *data) {
        std::uint64_t count = 0;
        if (::read(fd, &count, sizeof count) != sizeof count)
            return 0;
        StandInCompositor *compositor = self(data);
        for (const auto &[r, ext] : compositor->m_notifications) {
            const bool idled = compositor->m_say == Say::Idled;
            if (ext)
                idled ? ext_idle_notification_v1_send_idled(r)
                      : ext_idle_notification_v1_send_resumed(r);
            else
                idled ? org_kde_kwin_idle_timeout_send_idle(r)
                      : org_kde_kwin_idle_timeout_send_resumed(r);
        }
        return 0;
    }

    wl_display *m_display;
    int m_wake;
    wl_event_source *m_wakeSource = nullptr;
    std::atomic<Say> m_say{Say::Idled};
    // Each notification object and whether it is ext_idle_notification_v1; touched on the
    // compositor's thread only.
    std::vector<std::pair<wl_resource *, bool>> m_notifications;
    std::thread m_thread;
};

// A stand-in for sway's or Hyprland's socket that misbehaves the way a row says.
class BrokenPeer : public QObject {
public:
    BrokenPeer(const QString &path, QByteArray greeting, bool hangUp)
        : m_greeting(std::move(greeting))
        , m_hangUp(hangUp) {
        QObject::connect(&m_server, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket *peer = m_server.nextPendingConnection()) {
                if (!m_greeting.isEmpty())
                    peer->write(m_greeting);
                if (m_hangUp)
                    peer->disconnectFromServer();
            }
        });
        m_server.listen(path);
    }

private:
    QLocalServer m_server;
    QByteArray m_greeting;
    bool m_hangUp;
};

// One window of tests/helpers/wayland_window in the compositor at `socket`.
class ProbeWindow {
public:
    ProbeWindow(const QString &socket, const QString &appId, const QString &title) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("WAYLAND_DISPLAY"), socket);
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(QUONBRIX_BIN_DIR "/wayland_window"), {appId, title});
    }
    ~ProbeWindow() { close(); }
    void close() {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
};

} // namespace

class WlrootsSessionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void idleOnSway();
    void focusOnSway();
    void idleProtocols_data();
    void idleProtocols();
    void hyprlandFocus();
    void misbehavingPeers_data();
    void misbehavingPeers();

private:
    bool swaymsg(const QStringList &args);

    std::optional<test::SwaySession> m_sway;
    QTemporaryDir m_dataHome;
};

void WlrootsSessionTest::initTestCase() {
    m_sway = test::fixtureSway();
    // The names come from the desktop entries that claim the app_id: by file name or by
    // StartupWMClass.
    const QString apps = m_dataHome.filePath(QStringLiteral("applications/"));
    QVERIFY(test::writeFile(apps + QStringLiteral("qb.probe.alpha.desktop"),
                            "[Desktop Entry]\nType=Application\nName=Focus Alpha\nExec=true\n"));
    QVERIFY(test::writeFile(apps + QStringLiteral("beta-tool.desktop"),
                            "[Desktop Entry]\nType=Application\nName=Focus Beta\nExec=true\n"
                            "StartupWMClass=QbProbeBeta\n"));
    qputenv("XDG_DATA_HOME", m_dataHome.path().toUtf8());
    qputenv("XDG_DATA_DIRS", m_dataHome.filePath(QStringLiteral("none")).toUtf8());
}

bool WlrootsSessionTest::swaymsg(const QStringList &args) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("SWAYSOCK"), m_sway->swaysock);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral("swaymsg"), args);
    return process.waitForFinished(5000) && process.exitCode() == 0;
}

void WlrootsSessionTest::idleOnSway() {
    if (!m_sway)
        QSKIP("no headless sway (tests/support/swaysession.sh did not run)");
    const Environment env({{QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland")},
                           {QStringLiteral("WAYLAND_DISPLAY"), m_sway->wayland},
                           {QStringLiteral("SWAYSOCK"), m_sway->swaysock}});
    const AttentionSources sources = openAttentionSources(env, QDBusConnection::sessionBus());
    QVERIFY(sources.idle);
    QCOMPARE(sources.idle->name(), QStringLiteral("Wayland org_kde_kwin_idle"));
    QVERIFY(sources.foreground);

    IdleTimeSource &idle = *sources.idle;
    QCOMPARE(idleNow(idle), std::optional<double>(0.0));
    // sway says "idle" a second after the last input (here: after the start); from then the
    // idle time counts from that input and keeps growing.
    QTRY_VERIFY_WITH_TIMEOUT(idleNow(idle).value_or(0) > 0, 3000);
    const double first = *idleNow(idle);
    QVERIFY2(first >= 1.0 && first < 2.5, qPrintable(QString::number(first)));
    QTest::qWait(600);
    const double later = *idleNow(idle);
    QVERIFY2(later >= first + 0.5 && later < 6.0, qPrintable(QString::number(later)));

    // The pointer moves: back to 0 at once.
    QVERIFY(swaymsg({QStringLiteral("seat"), QStringLiteral("-"), QStringLiteral("cursor"),
                     QStringLiteral("move"), QStringLiteral("5"), QStringLiteral("5")}));
    QTRY_COMPARE_WITH_TIMEOUT(idleNow(idle), std::optional<double>(0.0), 2000);
}

void WlrootsSessionTest::focusOnSway() {
    if (!m_sway)
        QSKIP("no headless sway (tests/support/swaysession.sh did not run)");
    SwayFocus focus(m_sway->swaysock);
    const QString alphaId = QStringLiteral("qb.probe.alpha");
    const QString betaId = QStringLiteral("QbProbeBeta");

    ProbeWindow alpha(m_sway->wayland, alphaId, QStringLiteral("secret-plan.txt - Alpha"));
    QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), alphaId, 5000);
    QCOMPARE(focus.foregroundApp()->name, std::optional<QString>(QStringLiteral("Focus Alpha")));

    {
        ProbeWindow beta(m_sway->wayland, betaId, QStringLiteral("secret-plan.txt - Beta"));
        QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), betaId, 5000);
        // The name is the application's, never the window's title.
        QCOMPARE(focus.foregroundApp()->name, std::optional<QString>(QStringLiteral("Focus Beta")));

        // Focus moves without any window opening or closing.
        QVERIFY(swaymsg({QStringLiteral("[app_id=qb.probe.alpha] focus")}));
        QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), alphaId, 3000);
        QVERIFY(swaymsg({QStringLiteral("[app_id=QbProbeBeta] focus")}));
        QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), betaId, 3000);
    }
    // The focused window closes: sway focuses the one left.
    QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), alphaId, 3000);

    // An empty workspace has no focused application.
    QVERIFY(swaymsg({QStringLiteral("workspace"), QStringLiteral("2")}));
    QTRY_VERIFY_WITH_TIMEOUT(!focus.foregroundApp(), 3000);
    QVERIFY(swaymsg({QStringLiteral("workspace"), QStringLiteral("1")}));
    QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), alphaId, 3000);
}

void WlrootsSessionTest::idleProtocols_data() {
    QTest::addColumn<bool>("seat");
    QTest::addColumn<bool>("kdeIdle");
    QTest::addColumn<QString>("source");
    QTest::newRow("both protocols: the standard one wins")
        << true << true << QStringLiteral("Wayland ext_idle_notifier_v1");
    QTest::newRow("no seat to watch") << false << true << QString();
}

// Idle time from the compositor's "idled" and "resumed", and none once it is gone.
void WlrootsSessionTest::idleProtocols() {
    QFETCH(bool, seat);
    QFETCH(bool, kdeIdle);
    QFETCH(QString, source);
    QTemporaryDir dir;
    const QString socket = dir.filePath(QStringLiteral("wayland-1"));
    StandInCompositor compositor(socket, seat, true, kdeIdle);
    test::LogCapture log;
    auto idle = WaylandIdleTime::open(socket);
    if (source.isEmpty()) {
        QVERIFY(!idle);
        return;
    }
    QVERIFY(idle);
    QCOMPARE(idle->name(), source);

    QCOMPARE(idleNow(*idle), std::optional<double>(0.0));
    compositor.say(StandInCompositor::Say::Idled);
    // "idled" comes a second after the last input, so the idle time starts there.
    QTRY_VERIFY_WITH_TIMEOUT(idleNow(*idle).value_or(0) > 0, 2000);
    const double first = *idleNow(*idle);
    QVERIFY2(first >= 1.0 && first < 2.5, qPrintable(QString::number(first)));
    compositor.say(StandInCompositor::Say::Resumed);
    QTRY_COMPARE_WITH_TIMEOUT(idleNow(*idle), std::optional<double>(0.0), 2000);

    compositor.say(StandInCompositor::Say::Idled);
    QTRY_VERIFY_WITH_TIMEOUT(idleNow(*idle).value_or(0) > 0, 2000);
    compositor.goAway();
    QTRY_VERIFY_WITH_TIMEOUT(!idleNow(*idle), 2000);
    QTest::qWait(100);
    QVERIFY(!idleNow(*idle));
    QCOMPARE(log.lines(attentionLog).size(), 1);
}

void WlrootsSessionTest::hyprlandFocus() {
    const QString signature = QStringLiteral("qbtest_1700000000_1");
    QTemporaryDir runtimeDir;
    const QString dir = runtimeDir.filePath(QStringLiteral("hypr/") + signature);
    QVERIFY(QDir().mkpath(dir));
    QLocalServer query, events;
    QObject::connect(&query, &QLocalServer::newConnection, &query, [&] {
        QLocalSocket *peer = query.nextPendingConnection();
        QObject::connect(peer, &QLocalSocket::readyRead, peer, [peer] {
            if (peer->readAll() == "j/activewindow") {
                peer->write(R"({"address":"0x55d1","class":"qb.probe.alpha",)"
                            R"("title":"secret-plan.txt - Alpha","pid":42})");
                peer->disconnectFromServer();
            }
        });
    });
    QVERIFY(query.listen(dir + QStringLiteral("/.socket.sock")));
    QVERIFY(events.listen(dir + QStringLiteral("/.socket2.sock")));

    const Environment env({{QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland")},
                           {QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir.path()},
                           {QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("no-such-display")},
                           {QStringLiteral("HYPRLAND_INSTANCE_SIGNATURE"), signature}});
    const AttentionSources sources = openAttentionSources(env, QDBusConnection::sessionBus());
    QVERIFY(sources.foreground);
    ForegroundAppSource &focus = *sources.foreground;
    QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), QStringLiteral("qb.probe.alpha"), 3000);
    QCOMPARE(focus.foregroundApp()->name, std::optional<QString>(QStringLiteral("Focus Alpha")));

    QTRY_VERIFY(events.hasPendingConnections());
    QLocalSocket *stream = events.nextPendingConnection();
    stream->write("workspace>>2\nactivewindow>>QbProbeBeta,notes, draft 2\n");
    QTRY_COMPARE_WITH_TIMEOUT(focusedId(focus), QStringLiteral("QbProbeBeta"), 3000);
    QCOMPARE(focus.foregroundApp()->name, std::optional<QString>(QStringLiteral("Focus Beta")));
    stream->write("activewindow>>,\n");
    QTRY_VERIFY_WITH_TIMEOUT(!focus.foregroundApp(), 3000);
}

void WlrootsSessionTest::misbehavingPeers_data() {
    QTest::addColumn<QString>("peer");
    QTest::addColumn<QByteArray>("greeting");
    QTest::addColumn<bool>("hangUp");
    QTest::addColumn<int>("logLines");
    const QByteArray http = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
    QTest::newRow("sway socket speaks HTTP") << "sway" << http << false << 1;
    QTest::newRow("sway socket claims a huge message")
        << "sway" << QByteArray("i3-ipc\xff\xff\xff\x7f\x04\x00\x00\x00", 14) << false << 1;
    QTest::newRow("sway socket never answers") << "sway" << QByteArray() << false << 0;
    QTest::newRow("sway goes away") << "sway" << QByteArray() << true << 1;
    QTest::newRow("Hyprland events speak HTTP") << "hyprland" << http << false << 1;
    QTest::newRow("Wayland socket never answers") << "wayland" << QByteArray() << false << 0;
}

// Nothing crashes, nothing waits: the tray's event loop keeps its timers, the source has no
// answer, and the log says so at most once.
void WlrootsSessionTest::misbehavingPeers() {
    QFETCH(QString, peer);
    QFETCH(QByteArray, greeting);
    QFETCH(bool, hangUp);
    QFETCH(int, logLines);
    QTemporaryDir dir;
    test::LogCapture log;
    QElapsedTimer clock;
    qint64 timerFiredAt = -1;

    if (peer == QLatin1String("wayland")) {
        // Listening, never accepting: the connection succeeds and then nothing comes.
        const QString socket = dir.filePath(QStringLiteral("wayland-1"));
        const int fd = listeningSocket(socket);
        QVERIFY(fd >= 0);
        clock.start();
        QVERIFY(!WaylandIdleTime::open(socket));
        QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
        ::close(fd);
        return;
    }

    std::vector<std::unique_ptr<BrokenPeer>> peers;
    std::unique_ptr<ForegroundAppSource> focus;
    clock.start();
    QTimer::singleShot(100, this, [&] { timerFiredAt = clock.elapsed(); });
    if (peer == QLatin1String("sway")) {
        const QString socket = dir.filePath(QStringLiteral("sway-ipc.sock"));
        peers.push_back(std::make_unique<BrokenPeer>(socket, greeting, hangUp));
        focus = std::make_unique<SwayFocus>(socket);
    } else {
        const QString signature = QStringLiteral("broken");
        const QString hypr = dir.filePath(QStringLiteral("hypr/") + signature);
        QVERIFY(QDir().mkpath(hypr));
        peers.push_back(
            std::make_unique<BrokenPeer>(hypr + QStringLiteral("/.socket.sock"), greeting, false));
        peers.push_back(std::make_unique<BrokenPeer>(hypr + QStringLiteral("/.socket2.sock"),
                                                     greeting, hangUp));
        auto sources = openAttentionSources(
            Environment({{QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland")},
                         {QStringLiteral("XDG_RUNTIME_DIR"), dir.path()},
                         {QStringLiteral("HYPRLAND_INSTANCE_SIGNATURE"), signature}}),
            QDBusConnection::sessionBus());
        focus = std::move(sources.foregroundOwner);
        QVERIFY(focus);
        log.clear(); // the choice of sources
    }
    for (int i = 0; i < 10; ++i) {
        QTest::qWait(50);
        QVERIFY(!focus->foregroundApp());
    }
    QVERIFY2(timerFiredAt >= 100 && timerFiredAt < 1000, qPrintable(QString::number(timerFiredAt)));
    QCOMPARE(log.lines(attentionLog).size(), logLines);
}

QTEST_GUILESS_MAIN(WlrootsSessionTest)
#include "test_wlroots_session.moc"
