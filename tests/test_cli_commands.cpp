// The terminal commands for timers, sync and the local console: the real quonbrix binary
// against the stand-in daemon, on a private session bus where the test plays the desktop
// portal that hands URLs to the browser.

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

// Answers OpenURI by `mode`: "refuse"; "open" (Response 0); "fail-first" (Response 2 before the
// answer); "fail-own-path" (an older portal's own path, Response 2 later); "silent" (none).
class FakePortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.OpenURI")

public:
    QStringList opened;
    QString mode;

    // Takes the portal's name on the test's bus, so no real portal gets activated instead.
    bool start() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        return bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), this,
                                  QDBusConnection::ExportAllSlots) &&
               bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }
    ~FakePortal() override {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
        bus.unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"));
    }

public Q_SLOTS:
    QDBusObjectPath OpenURI(const QString &, const QString &uri, const QVariantMap &options,
                            const QDBusMessage &call) {
        opened << uri;
        call.setDelayedReply(true);
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (mode == QLatin1String("refuse")) {
            bus.send(call.createErrorReply(QDBusError::AccessDenied, QStringLiteral("no")));
            return {};
        }
        const QString caller = call.service().mid(1).replace(u'.', u'_');
        const QString path = mode == QLatin1String("fail-own-path")
                                 ? QStringLiteral("/org/freedesktop/portal/desktop/request/old/1")
                                 : QStringLiteral("/org/freedesktop/portal/desktop/request/") +
                                       caller + u'/' +
                                       options.value(QStringLiteral("handle_token")).toString();
        QDBusMessage response = QDBusMessage::createSignal(
            path, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        response << uint(mode == QLatin1String("open") ? 0 : 2) << QVariantMap();
        if (mode == QLatin1String("fail-first"))
            bus.send(response);
        bus.send(call.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        if (mode == QLatin1String("open"))
            bus.send(response);
        if (mode == QLatin1String("fail-own-path"))
            QTimer::singleShot(300, this,
                               [response] { QDBusConnection::sessionBus().send(response); });
        return {};
    }
};

struct Result {
    int code = -1;
    QString out;
    QString err;
};

} // namespace

class CliCommandsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void timers();
    void syncExitCodes_data();
    void syncExitCodes();
    void console_data();
    void console();

private:
    // Runs quonbrix with `args`, keeping this process's event loop (and the fake portal)
    // running meanwhile.
    Result quonbrix(const QStringList &args, const QProcessEnvironment &extra = {});
    bool startSim(const QStringList &extraEnv = {});
    void stopSim();

    QTemporaryDir m_home;
    QProcess m_sim;
    QString m_port;
};

void CliCommandsTest::initTestCase() {
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("no session bus: run under dbus-run-session");
    QVERIFY(startSim());
}

void CliCommandsTest::cleanupTestCase() {
    stopSim();
}

bool CliCommandsTest::startSim(const QStringList &extraEnv) {
    QProcessEnvironment env;
    env.insert(QStringLiteral("HOME"), m_home.path());
    env.insert(QStringLiteral("BRIXD_SIM_SCENARIO"), QStringLiteral("timers-running"));
    for (const QString &kv : extraEnv)
        env.insert(kv.section(u'=', 0, 0), kv.section(u'=', 1));
    m_sim.setProcessEnvironment(env);
    m_sim.start(QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim"),
                {QStringLiteral("run"), QStringLiteral("--port"), QStringLiteral("0")});
    static const QRegularExpression serving(QStringLiteral("http://127\\.0\\.0\\.1:(\\d+)"));
    QByteArray log;
    for (int i = 0; i < 100; ++i) {
        m_sim.waitForReadyRead(100);
        log += m_sim.readAllStandardError();
        const auto m = serving.match(QString::fromUtf8(log));
        if (m.hasMatch()) {
            m_port = m.captured(1);
            return true;
        }
    }
    return false;
}

void CliCommandsTest::stopSim() {
    m_sim.terminate();
    m_sim.waitForFinished(3000);
}

Result CliCommandsTest::quonbrix(const QStringList &args, const QProcessEnvironment &extra) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), m_home.path());
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"), m_port);
    env.insert(QStringLiteral("QUON_CONSOLE_URL"), QStringLiteral("https://console.example.test/"));
    env.insert(extra);
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix"), args);
    if (!p.waitForStarted(5000))
        return {};
    QElapsedTimer t;
    t.start();
    while (p.state() != QProcess::NotRunning && t.elapsed() < 15000)
        QTest::qWait(20);
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

void CliCommandsTest::timers() {
    Result r =
        quonbrix({QStringLiteral("timer"), QStringLiteral("start"), QStringLiteral("  Client Z ")});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QStringLiteral("Timer started\n"));

    r = quonbrix({QStringLiteral("timer"), QStringLiteral("list")});
    QCOMPARE(r.code, 0);
    const QStringList lines = r.out.split(u'\n', Qt::SkipEmptyParts);
    const auto mine = std::find_if(lines.cbegin(), lines.cend(), [](const QString &l) {
        return l.endsWith(QLatin1String("\tClient Z"));
    });
    QVERIFY2(mine != lines.cend(), qPrintable(r.out));
    const QString id = mine->section(u'\t', 0, 0);
    QCOMPARE(mine->section(u'\t', 1, 1), QStringLiteral("running"));
    QVERIFY(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d$"))
                .match(mine->section(u'\t', 2, 2))
                .hasMatch());

    r = quonbrix({QStringLiteral("timer"), QStringLiteral("pause"), id});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QStringLiteral("Timer paused\n"));
    r = quonbrix({QStringLiteral("timer"), QStringLiteral("complete"), id});
    QCOMPARE(r.out, QStringLiteral("Timer completed\n"));

    // The daemon's refusal is the message, on stderr, with exit code 1.
    r = quonbrix({QStringLiteral("timer"), QStringLiteral("cancel"), QStringLiteral("ws_none")});
    QCOMPARE(r.code, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY(!r.err.trimmed().isEmpty());

    // Usage errors.
    QCOMPARE(quonbrix({QStringLiteral("timer"), QStringLiteral("start"), QStringLiteral(" ")}).code,
             2);
    QCOMPARE(quonbrix({QStringLiteral("timer"), QStringLiteral("pause")}).code, 2);
    QCOMPARE(quonbrix({QStringLiteral("sync"), QStringLiteral("now")}).code, 2);
}

void CliCommandsTest::syncExitCodes_data() {
    QTest::addColumn<QString>("skip");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("local rows refreshed") << QString() << 0 << "";
    QTest::newRow("sync already running")
        << QStringLiteral("busy") << 1 << QStringLiteral("A sync is already running");
    QTest::newRow("cloud error") << QStringLiteral("error") << 1
                                 << QStringLiteral("Sync failed — check your connection");
}

void CliCommandsTest::syncExitCodes() {
    QFETCH(QString, skip);
    QFETCH(int, code);
    QFETCH(QString, message);
    if (!skip.isEmpty()) {
        stopSim();
        QVERIFY(startSim({QStringLiteral("BRIXD_SIM_SYNC_SKIP=") + skip}));
    }
    const Result r = quonbrix({QStringLiteral("sync")});
    QCOMPARE(r.code, code);
    if (code == 0)
        QVERIFY2(r.out.startsWith(QLatin1String("Refreshed ")) ||
                     r.out.startsWith(QLatin1String("Synced ")),
                 qPrintable(r.out));
    else
        QVERIFY2(r.err.contains(message), qPrintable(r.err));
    if (!skip.isEmpty()) {
        stopSim();
        QVERIFY(startSim());
    }
}

void CliCommandsTest::console_data() {
    QTest::addColumn<QString>("portal");
    QTest::addColumn<int>("code");
    QTest::newRow("portal refuses the call") << "refuse" << 1;
    QTest::newRow("browser opens") << "open" << 0;
    QTest::newRow("opening fails as soon as it is asked") << "fail-first" << 1;
    QTest::newRow("older portal fails on a path of its own") << "fail-own-path" << 1;
    QTest::newRow("app chooser left open") << "silent" << 0;
}

void CliCommandsTest::console() {
    QFETCH(QString, portal);
    QFETCH(int, code);
    FakePortal fake;
    fake.mode = portal;
    QVERIFY(fake.start());
    QProcessEnvironment debugLog;
    debugLog.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("quonbrix.*.debug=true"));
    const Result r = quonbrix({QStringLiteral("console")}, debugLog);
    QCOMPARE(r.code, code);
    if (code == 0)
        QCOMPARE(r.out, QStringLiteral("Opened the local console in the browser\n"));
    else
        QVERIFY2(r.err.contains(QLatin1String("Open browser and retry")), qPrintable(r.err));
    QCOMPARE(fake.opened.size(), 1);
    const QUrl url(fake.opened.first());
    QCOMPARE(url.adjusted(QUrl::RemoveFragment).toString(),
             QStringLiteral("https://console.example.test/local"));
    QVERIFY(url.fragment().startsWith(QLatin1String("handoff=")));
    QVERIFY(!url.hasQuery());
    // Whatever happened, the token is nowhere in what the command printed, its debug log
    // included.
    const QString token = url.fragment().mid(8);
    QVERIFY(!r.out.contains(token) && !r.err.contains(token));
}

QTEST_GUILESS_MAIN(CliCommandsTest)
#include "test_cli_commands.moc"
