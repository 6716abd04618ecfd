// The tray app as a user runs it: the real quonbrix binary on an X desktop with a window
// manager and a tray (the xsession fixture), a private session bus, and the stand-in daemon
// as brixd. It must start the daemon, show its icon, defer to the instance already running
// (whose popover process comes up), and leave no daemon or popover behind however it ends.

#include "support/sim_process.h"
#include "support/xsession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

using quonbrix::test::freePort;
using quonbrix::test::processAlive;

namespace {

// Processes whose parent is `parent` and whose name is `name`, from /proc.
QList<qint64> childrenNamed(qint64 parent, const QString &name) {
    QList<qint64> pids;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (comm) state ppid ..."; comm may hold spaces, so split after the last ')'.
        const QString line = QString::fromUtf8(stat.readAll());
        const qsizetype open = line.indexOf(u'(');
        const qsizetype close = line.lastIndexOf(u')');
        if (open < 0 || close < open)
            continue;
        const QString comm = line.mid(open + 1, close - open - 1);
        const QStringList rest = line.mid(close + 2).split(u' ');
        if (rest.size() > 1 && rest.at(0) != QLatin1String("Z") && comm == name &&
            rest.at(1).toLongLong() == parent)
            pids << pid;
    }
    return pids;
}

// Visible windows of the app, as "WIDTHxHEIGHT+X+Y".
QStringList visibleAppWindows(const QProcessEnvironment &env) {
    QProcess search;
    search.setProcessEnvironment(env);
    search.start(QStringLiteral("xdotool"),
                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                  QStringLiteral("--classname"), QStringLiteral("quonbrix")});
    search.waitForFinished(3000);
    QStringList windows;
    for (const QByteArray &id : search.readAllStandardOutput().split('\n')) {
        if (id.trimmed().isEmpty())
            continue;
        QProcess geometry;
        geometry.setProcessEnvironment(env);
        geometry.start(QStringLiteral("xdotool"),
                       {QStringLiteral("getwindowgeometry"), QString::fromLatin1(id.trimmed())});
        geometry.waitForFinished(3000);
        const QString out = QString::fromUtf8(geometry.readAllStandardOutput());
        QString position = out.section(QStringLiteral("Position: "), 1).section(u' ', 0, 0);
        const QString size = out.section(QStringLiteral("Geometry: "), 1).trimmed();
        windows << size + u'+' + position.replace(u',', u'+');
    }
    return windows;
}

} // namespace

class TrayAppTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void startsDaemonAndShowsTrayIcon();
    void secondInstanceOpensTheFirst();
    void endingLeavesNoDaemon_data();
    void endingLeavesNoDaemon();

private:
    // Starts quonbrix and waits for its daemon; returns the daemon's pid.
    qint64 startApp();

    QProcessEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<QProcess> m_app;
};

void TrayAppTest::initTestCase() {
    const auto display = quonbrix::test::fixtureDisplay();
    if (!display)
        QSKIP("no test X desktop (tests/support/xsession.sh did not run)");
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        QSKIP("no private session bus: run under dbus-run-session");
    m_env = QProcessEnvironment::systemEnvironment();
    m_env.insert(QStringLiteral("DISPLAY"), *display);
    m_env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    m_env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    m_env.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    m_env.insert(QStringLiteral("QUON_BRIX_DAEMON"), QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim"));
    m_env.insert(QStringLiteral("BRIXD_SIM_SCENARIO"), QStringLiteral("near-limits"));
}

void TrayAppTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    m_env.insert(QStringLiteral("HOME"), m_home->path());
    m_env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(freePort()));
}

void TrayAppTest::cleanup() {
    if (m_app && m_app->state() != QProcess::NotRunning) {
        const qint64 pid = m_app->processId();
        const auto daemons = childrenNamed(pid, QStringLiteral("brixd-sim"));
        m_app->kill();
        m_app->waitForFinished(3000);
        for (qint64 d : daemons)
            ::kill(pid_t(d), SIGKILL);
    }
    m_app.reset();
}

qint64 TrayAppTest::startApp() {
    m_app = std::make_unique<QProcess>();
    m_app->setProcessEnvironment(m_env);
    m_app->setProcessChannelMode(QProcess::MergedChannels);
    m_app->start(QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix"), QStringList());
    if (!m_app->waitForStarted(5000))
        return -1;
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 8000) {
        const auto daemons = childrenNamed(m_app->processId(), QStringLiteral("brixd-sim"));
        if (daemons.size() == 1)
            return daemons.first();
        QTest::qWait(50);
    }
    return -1;
}

void TrayAppTest::startsDaemonAndShowsTrayIcon() {
    const qint64 daemon = startApp();
    QVERIFY2(daemon > 0, m_app->readAll().constData());
    // The icon sits in the tray at the top right, 22 pixels square; no popover yet.
    // One look at the windows: a second one may come and go between two looks.
    QStringList shown;
    QTRY_VERIFY_WITH_TIMEOUT((shown = visibleAppWindows(m_env)).size() == 1, 5000);
    const QString icon = shown.constFirst();
    QVERIFY2(icon.startsWith(QLatin1String("22x22+")), qPrintable(icon));
    QVERIFY2(icon.section(u'+', 1, 1).toInt() > 1000, qPrintable(icon));
    // The app reads the daemon and reports attention to it (the stand-in logs each request).
    // The heartbeat at start went out before the daemon was up; the next comes 15 s later.
    QByteArray log;
    QTRY_VERIFY_WITH_TIMEOUT((log += m_app->readAll()).contains("POST /attention/heartbeat"),
                             17000);
    QVERIFY(log.contains("GET /status"));
    // The tray only speaks plain HTTP to 127.0.0.1; brixd's trust store is built by a helper, so
    // Qt's TLS backend with libssl and libcrypto (about 4 MiB) never enters this long-lived
    // process, not even after several refreshes.
    QFile maps(QStringLiteral("/proc/%1/maps").arg(m_app->processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QByteArray mapped = maps.readAll();
    for (const char *library : {"/plugins/tls/", "/libssl.so", "/libcrypto.so"})
        QVERIFY2(!mapped.contains(library), library);
}

void TrayAppTest::secondInstanceOpensTheFirst() {
    QVERIFY(startApp() > 0);
    QTRY_VERIFY_WITH_TIMEOUT(visibleAppWindows(m_env).size() == 1, 5000);

    QProcess second;
    second.setProcessEnvironment(m_env);
    second.start(QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix"), QStringList());
    QVERIFY(second.waitForFinished(5000));
    QCOMPARE(second.exitCode(), 0);
    // Every line in the app's one format, Qt's own included.
    const QString err = QString::fromUtf8(second.readAllStandardError());
    QVERIFY2(err.contains(QLatin1String("[QuonBrix] shell: already running")), qPrintable(err));
    for (const QString &line : err.split(u'\n', Qt::SkipEmptyParts))
        QVERIFY2(line.startsWith(QLatin1String("[QuonBrix] ")), qPrintable(line));

    // The popover of the first instance is now on screen, under the tray icon.
    QStringList windows;
    QTRY_VERIFY_WITH_TIMEOUT((windows = visibleAppWindows(m_env)).size() == 2, 5000);
    const auto popover = std::find_if(windows.cbegin(), windows.cend(), [](const QString &w) {
        return w.startsWith(QLatin1String("360x"));
    });
    QVERIFY2(popover != windows.cend(), qPrintable(windows.join(u' ')));
    QVERIFY2(popover->section(u'+', 2, 2).toInt() >= 24, qPrintable(*popover));
    // Still one app and one daemon; the popover is a process of the app's own, and it goes
    // when the app goes.
    QCOMPARE(childrenNamed(m_app->processId(), QStringLiteral("brixd-sim")).size(), 1);
    const auto popovers = childrenNamed(m_app->processId(), QStringLiteral("quonbrix-popove"));
    QCOMPARE(popovers.size(), 1);
    QCOMPARE(::kill(pid_t(m_app->processId()), SIGTERM), 0);
    QVERIFY(m_app->waitForFinished(8000));
    QTRY_VERIFY_WITH_TIMEOUT(!processAlive(popovers.first()), 3000);
}

void TrayAppTest::endingLeavesNoDaemon_data() {
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM (logout, systemd)") << SIGTERM;
    QTest::newRow("SIGINT (Ctrl+C)") << SIGINT;
    QTest::newRow("SIGHUP (terminal closed)") << SIGHUP;
}

void TrayAppTest::endingLeavesNoDaemon() {
    QFETCH(int, signalNumber);
    const qint64 daemon = startApp();
    QVERIFY(daemon > 0);
    QTest::qWait(500);
    QCOMPARE(::kill(pid_t(m_app->processId()), signalNumber), 0);
    QVERIFY(m_app->waitForFinished(8000));
    QCOMPARE(m_app->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_app->exitCode(), 0);
    QVERIFY(!processAlive(daemon));
}

QTEST_GUILESS_MAIN(TrayAppTest)
#include "test_tray_app.moc"
