// The daemon supervisor against real child processes: small stand-in daemons that exit at once,
// run until signalled, or shrug off SIGTERM, each leaving a record of its pid, start time,
// arguments and environment.

#include "helpers/log_capture.h"
#include "supervisor/daemon_supervisor.h"
#include "support/sim_process.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <atomic>
#include <ctime>
#include <sys/stat.h>

using namespace quonbrix;
using namespace std::chrono_literals;
using quonbrix::test::LogCapture;
using quonbrix::test::processAlive;

namespace {

constexpr char kCategory[] = "quonbrix.supervisor";

QString stub(const QString &mode) {
    return QStringLiteral(QUONBRIX_STUB_DIR "/stub_brixd_") + mode;
}

struct Launch {
    qint64 pid = 0;
    qint64 startedNs = 0; // CLOCK_MONOTONIC
    QStringList args;
    QMap<QString, QString> env;
};

// Every launch the stand-ins recorded in `dir`, oldest first.
QList<Launch> launches(const QString &dir) {
    QList<Launch> out;
    const QStringList names = QDir(dir).entryList({QStringLiteral("launch-*.rec")}, QDir::Files);
    for (const QString &name : names) {
        QFile f(QDir(dir).filePath(name));
        if (!f.open(QIODevice::ReadOnly))
            continue;
        Launch l;
        const QList<QByteArray> lines = f.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const QString text = QString::fromLocal8Bit(line);
            const QString key = text.section(u' ', 0, 0);
            const QString value = text.section(u' ', 1);
            if (key == QStringLiteral("pid"))
                l.pid = value.toLongLong();
            else if (key == QStringLiteral("t_ns"))
                l.startedNs = value.toLongLong();
            else if (key == QStringLiteral("arg"))
                l.args << value;
            else if (key == QStringLiteral("env"))
                l.env.insert(value.section(u'=', 0, 0), value.section(u'=', 1));
        }
        out << l;
    }
    std::sort(out.begin(), out.end(),
              [](const Launch &a, const Launch &b) { return a.startedNs < b.startedNs; });
    return out;
}

// What the supervisor reports, collected from its worker thread. Declare it before the
// supervisor: the supervisor still reports while it is being destroyed.
class Events {
public:
    void attach(DaemonSupervisor &s) {
        QObject::connect(
            &s, &DaemonSupervisor::daemonStarted, &s,
            [this](qint64 pid) {
                QMutexLocker lock(&m_mutex);
                m_started << pid;
            },
            Qt::DirectConnection);
        QObject::connect(
            &s, &DaemonSupervisor::daemonExited, &s,
            [this](qint64 pid, int code, bool crashed) {
                QMutexLocker lock(&m_mutex);
                m_exits.insert(pid, crashed ? -code : code);
            },
            Qt::DirectConnection);
    }
    QList<qint64> started() const {
        QMutexLocker lock(&m_mutex);
        return m_started;
    }
    // Exit code, or minus the signal number for a child that died of a signal.
    std::optional<int> exitOf(qint64 pid) const {
        QMutexLocker lock(&m_mutex);
        const auto it = m_exits.constFind(pid);
        return it == m_exits.constEnd() ? std::nullopt : std::optional<int>(*it);
    }

private:
    mutable QMutex m_mutex;
    QList<qint64> m_started;
    QMap<qint64, int> m_exits;
};

} // namespace

class SupervisorTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    LogCapture *m_log = nullptr;
    int m_case = 0;
    QString m_dir; // this case's records
    std::shared_ptr<std::atomic<int>> m_trustBuilds;

    // Options for one case: `mode` names the stand-in found through QUON_BRIX_DAEMON, the
    // environment is small and fully known, and the trust store is a fixed path whose builds
    // are counted.
    DaemonSupervisorOptions options(const QString &mode) {
        m_dir = m_tmp.filePath(QStringLiteral("case-%1").arg(++m_case));
        QDir().mkpath(m_dir);
        DaemonSupervisorOptions o;
        o.environment.insert(QStringLiteral("QB_STUB_DIR"), m_dir);
        o.environment.insert(QStringLiteral("HOME"), m_dir);
        o.environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
        if (!mode.isEmpty())
            o.environment.insert(QStringLiteral("QUON_BRIX_DAEMON"), stub(mode));
        o.applicationDir = m_dir + QStringLiteral("/bin");
        o.workingDir = m_dir;
        m_trustBuilds = std::make_shared<std::atomic<int>>(0);
        o.trustStore = [builds = m_trustBuilds, path = m_dir + QStringLiteral("/trust-store.pem")] {
            ++*builds;
            return std::optional<QString>(path);
        };
        o.relaunchDelay = 150ms;
        return o;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_tmp.isValid());
        for (const char *mode : {"exit", "stay", "ignore_term"})
            QVERIFY(QFileInfo(stub(QLatin1String(mode))).isExecutable());
        m_log = new LogCapture;
    }
    void cleanupTestCase() { delete m_log; }
    void init() { m_log->clear(); }

    void locateDaemon_data() {
        QTest::addColumn<QString>("variable"); // "-": unset
        QTest::addColumn<bool>("installed");
        QTest::addColumn<int>("devBuild"); // 0 none, 1 executable, 2 not executable
        QTest::addColumn<QString>("expected");

        QTest::newRow("QUON_BRIX_DAEMON wins")
            << QStringLiteral("/opt/x/brixd") << true << 1 << QStringLiteral("/opt/x/brixd");
        QTest::newRow("a relative QUON_BRIX_DAEMON is taken from the working directory")
            << QStringLiteral("tools/brixd") << false << 0
            << QStringLiteral("checkout/tools/brixd");
        QTest::newRow("an empty QUON_BRIX_DAEMON counts as unset")
            << QString() << true << 0 << QStringLiteral("prefix/libexec/quonbrix/brixd");
        QTest::newRow("installed copy beside the executable")
            << QStringLiteral("-") << true << 1 << QStringLiteral("prefix/libexec/quonbrix/brixd");
        QTest::newRow("executable development build")
            << QStringLiteral("-") << false << 1 << QStringLiteral("checkout/brixd/dist/brixd");
        QTest::newRow("development build that is not executable")
            << QStringLiteral("-") << false << 2 << QString();
        QTest::newRow("nothing anywhere") << QStringLiteral("-") << false << 0 << QString();
    }

    void locateDaemon() {
        QFETCH(QString, variable);
        QFETCH(bool, installed);
        QFETCH(int, devBuild);
        QFETCH(QString, expected);
        const QString root = m_tmp.filePath(QStringLiteral("locate-%1").arg(++m_case));
        const auto makeFile = [](const QString &path, int mode) {
            return test::writeFile(path, "#!/bin/sh\n", mode);
        };
        QDir().mkpath(root + QStringLiteral("/prefix/bin"));
        QDir().mkpath(root + QStringLiteral("/checkout"));
        if (installed)
            QVERIFY(makeFile(root + QStringLiteral("/prefix/libexec/quonbrix/brixd"), 0755));
        if (devBuild > 0)
            QVERIFY(makeFile(root + QStringLiteral("/checkout/brixd/dist/brixd"),
                             devBuild == 1 ? 0755 : 0644));
        Environment env;
        if (variable != QStringLiteral("-"))
            env.set(QStringLiteral("QUON_BRIX_DAEMON"), variable);

        const std::optional<QString> found = DaemonSupervisor::locateDaemon(
            env, root + QStringLiteral("/prefix/bin"), root + QStringLiteral("/checkout"));
        if (expected.isEmpty())
            QCOMPARE(found, std::nullopt);
        else if (expected.startsWith(u'/'))
            QCOMPARE(found, std::optional<QString>(expected));
        else
            QCOMPARE(found, std::optional<QString>(root + u'/' + expected));
    }

    // Nothing to launch, or nothing that starts: one clear line, no retry loop, no crash; a
    // later restart tries again.
    void launchFailures_data() {
        QTest::addColumn<QString>("daemon"); // value of QUON_BRIX_DAEMON, empty: unset
        QTest::addColumn<QString>("logStart");
        QTest::newRow("no daemon anywhere")
            << QString() << QStringLiteral("[QuonBrix] brixd not found: set QUON_BRIX_DAEMON");
        // A missing file fails the same way; test_shell has it as the condition the popover shows.
        QTest::newRow("a file that is not executable")
            << QStringLiteral("plain.txt") << QStringLiteral("[QuonBrix] brixd spawn failed: ");
    }

    void launchFailures() {
        QFETCH(QString, daemon);
        QFETCH(QString, logStart);
        DaemonSupervisorOptions o = options(QString());
        QVERIFY(test::writeFile(m_dir + QStringLiteral("/plain.txt"), {}));
        if (!daemon.isEmpty())
            o.environment.insert(QStringLiteral("QUON_BRIX_DAEMON"), daemon);
        Events events;
        DaemonSupervisor supervisor(o);
        events.attach(supervisor);

        supervisor.start();
        QTRY_COMPARE(m_log->lines(kCategory).size(), 1);
        QTest::qWait(500); // several relaunch delays: nothing may follow on its own
        QStringList lines = m_log->lines(kCategory);
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines[0].startsWith(logStart), qPrintable(lines[0]));
        QVERIFY(events.started().isEmpty());

        supervisor.restart();
        QTRY_COMPARE(m_log->lines(kCategory).size(), 2);
        QVERIFY(events.started().isEmpty());
    }

    void childGetsRunAndTheAppEnvironment_data() {
        QTest::addColumn<QString>("inherited"); // "-": not in the app's environment
        // "@": a bundle is built; empty: none is; else the shell script run as the trust-store
        // helper, which must then leave one warning and no helper process behind.
        QTest::addColumn<QString>("trustStore");
        QTest::addColumn<QString>("expected"); // "-": not passed; "@": the trust-store path

        const QString built = QStringLiteral("@");
        QTest::newRow("trust store passed when nothing is inherited")
            << QStringLiteral("-") << built << QStringLiteral("@");
        QTest::newRow("an inherited SSL_CERT_FILE wins")
            << QStringLiteral("/etc/corp/roots.pem") << built
            << QStringLiteral("/etc/corp/roots.pem");
        QTest::newRow("an inherited empty SSL_CERT_FILE still wins")
            << QString() << built << QString();
        QTest::newRow("no trust store: nothing added")
            << QStringLiteral("-") << QString() << QStringLiteral("-");
        QTest::newRow("a hanging helper is killed: nothing added")
            << QStringLiteral("-") << QStringLiteral("exec sleep 30") << QStringLiteral("-");
        QTest::newRow("a helper printing garbage: nothing added")
            << QStringLiteral("-") << QStringLiteral("echo 'no bundle today'")
            << QStringLiteral("-");
    }

    void childGetsRunAndTheAppEnvironment() {
        QFETCH(QString, inherited);
        QFETCH(QString, trustStore);
        QFETCH(QString, expected);
        DaemonSupervisorOptions o = options(QStringLiteral("stay"));
        if (inherited != QStringLiteral("-"))
            o.environment.insert(QStringLiteral("SSL_CERT_FILE"), inherited);
        const bool helper = trustStore != QStringLiteral("@") && !trustStore.isEmpty();
        if (trustStore.isEmpty())
            o.trustStore = [] { return std::optional<QString>(); };
        if (helper) {
            o.trustStore = {};
            o.trustStoreTimeout = 300ms;
            QVERIFY(test::writeFile(o.applicationDir + QStringLiteral("/quonbrix-truststore"),
                                    "#!/bin/sh\necho $$ >\"$QB_STUB_DIR/helper.pid\"\n" +
                                        trustStore.toUtf8() + '\n',
                                    0755));
        }
        QMap<QString, QString> want;
        const QStringList keys = o.environment.keys();
        for (const QString &key : keys)
            want.insert(key, o.environment.value(key));
        if (expected == QStringLiteral("@"))
            want.insert(QStringLiteral("SSL_CERT_FILE"),
                        m_dir + QStringLiteral("/trust-store.pem"));
        else if (expected != QStringLiteral("-"))
            want.insert(QStringLiteral("SSL_CERT_FILE"), expected);
        else
            want.remove(QStringLiteral("SSL_CERT_FILE"));

        DaemonSupervisor supervisor(o);
        supervisor.start();
        QTRY_COMPARE(launches(m_dir).size(), 1);
        const Launch launch = launches(m_dir).first();
        supervisor.stop();

        QCOMPARE(launch.args, QStringList{QStringLiteral("run")});
        QCOMPARE(launch.env, want);
        QVERIFY(!processAlive(launch.pid));
        if (helper) {
            const QStringList lines = m_log->lines("quonbrix.truststore");
            QCOMPARE(lines.size(), 1);
            QVERIFY2(lines[0].startsWith(QStringLiteral("[QuonBrix] brixd trust-store: helper ")),
                     qPrintable(lines[0]));
            QFile pid(m_dir + QStringLiteral("/helper.pid"));
            QVERIFY(pid.open(QIODevice::ReadOnly));
            QVERIFY(!processAlive(pid.readAll().trimmed().toLongLong()));
        }
    }

    // A daemon that dies at once is brought back once a second, with no backoff and no limit,
    // and never again once stopped.
    void relaunchesEverySecondUntilStopped() {
        DaemonSupervisorOptions o = options(QStringLiteral("exit"));
        o.relaunchDelay = 1000ms;
        DaemonSupervisor supervisor(o);
        supervisor.start();
        QTRY_VERIFY_WITH_TIMEOUT(launches(m_dir).size() >= 4, 6000);
        supervisor.stop();

        const QList<Launch> seen = launches(m_dir);
        for (int i = 1; i < 4; ++i) {
            const double gapMs = double(seen[i].startedNs - seen[i - 1].startedNs) / 1e6;
            QVERIFY2(
                gapMs >= 990 && gapMs <= 2000,
                qPrintable(
                    QStringLiteral("launch %1 came %2 ms after the one before").arg(i).arg(gapMs)));
        }
        const qsizetype count = seen.size();
        QTest::qWait(1300);
        QCOMPARE(launches(m_dir).size(), count);
        supervisor.start(); // only restart() undoes a stop
        QTest::qWait(300);
        QCOMPARE(launches(m_dir).size(), count);
    }

    // The child a restart terminates must not come back on its own: exactly one daemon runs.
    void restartsLeaveOneDaemon_data() {
        QTest::addColumn<int>("restarts");
        QTest::newRow("the old child's exit is not followed by a relaunch") << 1;
        QTest::newRow("two quick restarts") << 2;
    }

    void restartsLeaveOneDaemon() {
        QFETCH(int, restarts);
        Events events;
        DaemonSupervisor supervisor(options(QStringLiteral("stay")));
        events.attach(supervisor);
        supervisor.start();
        QTRY_COMPARE(events.started().size(), 1);
        for (int i = 0; i < restarts; ++i)
            supervisor.restart();
        QTRY_COMPARE(events.started().size(), 1 + restarts);
        QTest::qWait(600); // four relaunch delays for a stale exit to misbehave in

        const QList<qint64> started = events.started();
        QCOMPARE(started.size(), 1 + restarts);
        for (int i = 0; i < started.size(); ++i)
            QCOMPARE(processAlive(started[i]), i == started.size() - 1);
        QCOMPARE(m_trustBuilds->load(), 1); // built once per run, not per launch
        supervisor.stop();
        QVERIFY(!processAlive(started.last()));
    }

    // stop() returns once the child is gone, SIGTERM first and SIGKILL after the grace period;
    // restart() is called from the GUI thread and returns at once, the grace period passing on
    // the worker thread before the next launch.
    void stopAndRestart_data() {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("restart");
        QTest::addColumn<int>("minMs"); // until stop() returns, or until the next launch
        QTest::addColumn<int>("maxMs");
        QTest::addColumn<int>("signal");
        QTest::newRow("a child that honours SIGTERM stops at once")
            << QStringLiteral("stay") << false << 0 << 2500 << 15;
        QTest::newRow("a child that ignores SIGTERM is killed with signal 9 after the grace")
            << QStringLiteral("ignore_term") << false << 1450 << 4000 << 9;
        QTest::newRow("a restart returns at once and relaunches after the grace")
            << QStringLiteral("ignore_term") << true << 1450 << 5000 << 9;
    }

    void stopAndRestart() {
        QFETCH(QString, mode);
        QFETCH(bool, restart);
        QFETCH(int, minMs);
        QFETCH(int, maxMs);
        QFETCH(int, signal);
        DaemonSupervisorOptions o = options(mode);
        o.stopGrace = 1500ms;
        o.pollStep = 50ms;
        Events events;
        DaemonSupervisor supervisor(o);
        events.attach(supervisor);
        supervisor.start();
        QTRY_COMPARE(launches(m_dir).size(), 1); // its signal handling is in place by now
        const qint64 pid = launches(m_dir).first().pid;

        QElapsedTimer t;
        t.start();
        if (restart) {
            supervisor.restart();
            QVERIFY2(t.elapsed() < 500, qPrintable(QString::number(t.elapsed())));
            QTRY_COMPARE_WITH_TIMEOUT(events.started().size(), 2, 8000);
        } else {
            supervisor.stop();
        }
        const qint64 tookMs = t.elapsed();
        QVERIFY2(tookMs >= minMs && tookMs <= maxMs, qPrintable(QString::number(tookMs)));
        QVERIFY(!processAlive(pid));
        QCOMPARE(events.exitOf(pid), std::optional<int>(-signal));
        // SIGTERM always comes first.
        QCOMPARE(QFileInfo::exists(m_dir + QStringLiteral("/term-%1").arg(pid)),
                 mode == QStringLiteral("ignore_term"));
        QTest::qWait(400);
        QCOMPARE(events.started().size(), restart ? 2 : 1);
        if (restart)
            QVERIFY(processAlive(events.started().last()));
    }

    void destroyingTheSupervisorStopsTheDaemon() {
        qint64 pid = 0;
        {
            DaemonSupervisor supervisor(options(QStringLiteral("stay")));
            supervisor.start();
            QTRY_COMPARE(launches(m_dir).size(), 1);
            pid = launches(m_dir).first().pid;
            QVERIFY(processAlive(pid));
        }
        QVERIFY(!processAlive(pid));
    }
};

QTEST_GUILESS_MAIN(SupervisorTest)
#include "test_supervisor.moc"
