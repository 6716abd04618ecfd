// The X11 attention sources against a real X server with a window manager: which window has
// the focus, what reaches the daemon in the heartbeat, and how idle time follows input.

#include "app/status_model.h"
#include "platform/desktop_session.h"
#include "support/fake_daemon.h"
#include "support/sim_process.h"
#include "support/xsession.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;

namespace {

bool xdotool(const QStringList &args) {
    return QProcess::execute(QStringLiteral("xdotool"), args) == 0;
}

bool isViewable(Display *dpy, Window w) {
    XWindowAttributes attributes;
    return XGetWindowAttributes(dpy, w, &attributes) && attributes.map_state == IsViewable;
}

// A plain top-level window with a WM_CLASS and a title, made with our own connection.
class ProbeWindow {
public:
    ProbeWindow(Display *dpy, const char *resClass, const char *title)
        : m_dpy(dpy) {
        m_window =
            XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 40, 40, 200, 120, 0, 0, 0xffffff);
        XClassHint hint{const_cast<char *>("probe"), const_cast<char *>(resClass)};
        XSetClassHint(dpy, m_window, &hint);
        XStoreName(dpy, m_window, title);
        XMapWindow(dpy, m_window);
        XSync(dpy, False);
    }
    ~ProbeWindow() {
        XDestroyWindow(m_dpy, m_window);
        XSync(m_dpy, False);
    }
    Window id() const { return m_window; }

    // Waits until the window manager has mapped the window, then asks it for the focus until
    // it has it (a request that races the window manager's own map handling can be dropped).
    bool activate() const {
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 5000) {
            if (isViewable(m_dpy, m_window)) {
                xdotool({QStringLiteral("windowactivate"), QString::number(m_window)});
                QProcess active;
                active.start(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")});
                if (active.waitForFinished(2000) &&
                    active.readAllStandardOutput().trimmed().toULong() == m_window)
                    return true;
            }
            QTest::qWait(50);
        }
        return false;
    }

private:
    Display *m_dpy;
    Window m_window;
};

} // namespace

class DesktopX11Test : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nameInTheSessionLanguage_data();
    void nameInTheSessionLanguage();
    void initTestCase();
    void cleanupTestCase();
    void focusedWindowReachesHeartbeat();
    void idleGrowsAndResetsOnInput();
    void vanishedWindowIsNotAnError();

private:
    // One heartbeat from the status model with this session as its sources, as the daemon
    // receives it.
    QJsonObject heartbeatBody();

    QString m_display;
    Display *m_dpy = nullptr;
    std::unique_ptr<X11DesktopSession> m_session;
    QTemporaryDir m_dataHome;
};

void DesktopX11Test::initTestCase() {
    const auto display = test::fixtureDisplay();
    if (!display)
        QSKIP("no test X desktop (tests/support/xsession.sh did not run)");
    m_display = *display;
    qputenv("DISPLAY", m_display.toUtf8());
    // The display name comes from the desktop entry that claims the window class.
    QVERIFY(
        test::writeFile(m_dataHome.filePath(QStringLiteral("applications/focus-probe.desktop")),
                        "[Desktop Entry]\nType=Application\nName=Focus Probe\nExec=true\n"
                        "StartupWMClass=QbFocusProbe\n\n[Desktop Action x]\nName=Not this one\n"));
    qputenv("XDG_DATA_HOME", m_dataHome.path().toUtf8());
    qputenv("XDG_DATA_DIRS", m_dataHome.filePath(QStringLiteral("none")).toUtf8());

    m_dpy = XOpenDisplay(m_display.toUtf8().constData());
    QVERIFY(m_dpy);
    m_session = X11DesktopSession::open(m_display);
    QVERIFY2(m_session, "the test display has the XScreenSaver extension");
}

void DesktopX11Test::cleanupTestCase() {
    m_session.reset();
    if (m_dpy)
        XCloseDisplay(m_dpy);
}

void DesktopX11Test::nameInTheSessionLanguage_data() {
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("name");
    QTest::newRow("language of a country")
        << QStringLiteral("ja_JP.UTF-8") << QStringLiteral("エディタ");
    QTest::newRow("the country's own first")
        << QStringLiteral("pt_BR.UTF-8") << QStringLiteral("Editor BR");
    QTest::newRow("a modifier") << QStringLiteral("sr_RS.UTF-8@latin") << QStringLiteral("Urednik");
    QTest::newRow("a language without its own")
        << QStringLiteral("fr_FR.UTF-8") << QStringLiteral("Editor");
    QTest::newRow("C") << QStringLiteral("C") << QStringLiteral("Editor");
}

void DesktopX11Test::nameInTheSessionLanguage() {
    QFETCH(QString, locale);
    QFETCH(QString, name);
    QVERIFY(test::writeFile(
        m_dataHome.filePath(QStringLiteral("applications/qb-editor.desktop")),
        "[Desktop Entry]\nType=Application\nName=Editor\nName[ja]=\xe3\x82\xa8\xe3\x83\x87"
        "\xe3\x82\xa3\xe3\x82\xbf\nName[pt]=Editor PT\nName[pt_BR]=Editor BR\n"
        "Name[sr@latin]=Urednik\nName[sr]=Uređivač\nExec=true\n"));
    QCOMPARE(applicationDisplayName(QStringLiteral("qb-editor"), locale), name);
}

QJsonObject DesktopX11Test::heartbeatBody() {
    FakeDaemon daemon;
    MeterClient client(daemon.base());
    StatusModel model(&client, daemon.environment(m_dataHome.path()));
    model.setAttentionSources(m_session.get(), m_session.get(), &SystemClock::instance());
    model.sendAttentionHeartbeat();
    if (!daemon.waitForRequests(QStringLiteral("/attention/heartbeat"), 1))
        return {};
    return daemon.requests(QStringLiteral("/attention/heartbeat")).last().json();
}

void DesktopX11Test::focusedWindowReachesHeartbeat() {
    ProbeWindow window(m_dpy, "QbFocusProbe", "secret-plan.txt - Probe");
    QVERIFY(window.activate());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->foregroundApp().has_value(), 3000);

    const QJsonObject body = heartbeatBody();
    QCOMPARE(body.value(QStringLiteral("foregroundBundleId")).toString(),
             QStringLiteral("QbFocusProbe"));
    QCOMPARE(body.value(QStringLiteral("foregroundName")).toString(),
             QStringLiteral("Focus Probe"));
    // The window title is what the user is working on; it never leaves the machine's desktop.
    QVERIFY(!QJsonDocument(body).toJson().contains("secret-plan"));
    QVERIFY(body.value(QStringLiteral("idleSeconds")).isDouble());
}

void DesktopX11Test::idleGrowsAndResetsOnInput() {
    QVERIFY(xdotool({QStringLiteral("mousemove"), QStringLiteral("300"), QStringLiteral("300")}));
    const auto fresh = m_session->idleSeconds();
    QVERIFY(fresh);
    QVERIFY2(*fresh < 1.0, qPrintable(QString::number(*fresh)));

    QTest::qWait(1300);
    const auto later = m_session->idleSeconds();
    QVERIFY(later);
    QVERIFY2(*later >= 1.0 && *later < 8.0, qPrintable(QString::number(*later)));

    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("shift")}));
    const auto afterKey = m_session->idleSeconds();
    QVERIFY(afterKey);
    QVERIFY2(*afterKey < 1.0, qPrintable(QString::number(*afterKey)));
}

void DesktopX11Test::vanishedWindowIsNotAnError() {
    // Focus a window, then destroy it from another connection while queries keep coming:
    // every answer is either that window or nothing, and the process stays up.
    auto window = std::make_unique<ProbeWindow>(m_dpy, "QbFocusProbe", "Probe");
    QVERIFY(window->activate());
    for (int i = 0; i < 50; ++i) {
        if (i == 10)
            window.reset();
        const auto app = m_session->foregroundApp();
        if (app)
            QCOMPARE(app->id.value_or(QString()), QStringLiteral("QbFocusProbe"));
    }
    // With its only client gone the window manager focuses nothing, and the heartbeat names
    // no application.
    QTRY_VERIFY_WITH_TIMEOUT(!m_session->foregroundApp().has_value(), 3000);
    const QJsonObject body = heartbeatBody();
    QVERIFY(body.contains(QStringLiteral("active")));
    QVERIFY(!body.contains(QStringLiteral("foregroundBundleId")));
}

QTEST_GUILESS_MAIN(DesktopX11Test)
#include "test_desktop_x11.moc"
