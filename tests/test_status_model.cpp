#include "account/device_flow_enroller.h"
#include "app/status_model.h"
#include "daemon_link/records.h"
#include "supervisor/daemon_supervisor.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "support/sim_process.h"
#include "json/json_codec.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <memory>

using namespace quonbrix;
using namespace std::chrono_literals;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

namespace {

// Stands in for the daemon supervisor: counts restarts and says where daemon and CA bundle are.
class CountingRestarter : public DaemonRestarter {
public:
    void restart() override { ++calls; }
    std::optional<QString> trustStorePath() override { return bundle; }
    std::optional<QString> daemonPath() const override { return daemon; }
    std::atomic<int> calls{0};
    std::optional<QString> bundle;
    std::optional<QString> daemon;
};

// Keeps tokens in memory: the enroller's keyring is not what these tests look at.
class MemoryTokens : public TokenStore {
public:
    void store(const QString &account, const QString &secret, QObject *context,
               std::function<void(std::optional<QString>)> done) override {
        stored.insert(account, secret);
        QMetaObject::invokeMethod(
            context, [done] { done(std::nullopt); }, Qt::QueuedConnection);
    }
    QHash<QString, QString> stored;
};

QJsonObject statusObject(bool enrolled, qint64 tokens = 16600) {
    QJsonObject status = test::minimalStatus();
    status.insert(QStringLiteral("enrolled"), enrolled);
    status.insert(QStringLiteral("tokens"), tokens);
    return status;
}

FakeReply statusReply(bool enrolled, qint64 tokens = 16600) {
    return FakeReply::json(statusObject(enrolled, tokens));
}

// A model wired to a fake daemon, with a home directory of its own.
struct Rig {
    explicit Rig(StatusModel::Intervals intervals = {60s, 60s})
        : client(daemon.base(), test::quickTimeouts())
        , model(&client, daemon.environment(home.path()), intervals) {
        QObject::connect(&model, &StatusModel::passFinished, &model,
                         [this](const std::optional<DaemonStatus> &) { ++passes; });
    }

    bool waitForPasses(int n, int timeoutMs = 5000) {
        QElapsedTimer waited;
        waited.start();
        while (passes < n && waited.elapsed() < timeoutMs)
            QTest::qWait(2);
        return passes >= n;
    }

    // One refresh pass against whatever the daemon answers now.
    bool pass() {
        const int target = passes + 1;
        model.refresh();
        return waitForPasses(target);
    }

    bool writeEnrollmentFile() {
        return test::writeFile(home.filePath(QStringLiteral(".quon-brix/enrollment.json")),
                               R"({"deviceId":"dev_1","orgId":"org_7f3a"})");
    }

    bool removeEnrollmentFile() {
        return QFile::remove(home.filePath(QStringLiteral(".quon-brix/enrollment.json")));
    }

    // Signing in against the fake daemon, which also plays the account service; the waits
    // between polls pass at once. Opened pages land in `opened`.
    void enableSignIn(std::shared_ptr<CountingRestarter> supervisor) {
        model.setSupervisor(supervisor);
        Environment env = daemon.environment(home.path());
        env.set(QStringLiteral("QUON_ACCOUNT_API_BASE"), daemon.base());
        env.set(QStringLiteral("QUON_CONSOLE_URL"), QStringLiteral("http://console.test"));
        model.setEnrollerFactory([this, env] {
            DeviceFlowEnroller::Options o;
            o.env = env;
            o.tokens = &tokens;
            o.wait = [](std::chrono::seconds, QObject *context, std::function<void()> then) {
                QMetaObject::invokeMethod(context, then, Qt::QueuedConnection);
            };
            return std::make_unique<DeviceFlowEnroller>(o);
        });
        model.setUrlOpener([this](const QUrl &url, QObject *, UrlOpenDone done) {
            opened << url.toString();
            done(UrlOpenOutcome::Accepted);
        });
    }

    QTemporaryDir home;
    FakeDaemon daemon;
    MeterClient client;
    StatusModel model;
    MemoryTokens tokens;
    QStringList opened;
    int passes = 0;
};

} // namespace

class StatusModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void productionTimings_data();
    void productionTimings();
    void nothingBeforeTheFirstRead();
    void daemonThatStopsAnsweringClearsStatus_data();
    void daemonThatStopsAnsweringClearsStatus();
    void passFinishedComesLast_data();
    void passFinishedComesLast();
    void restartsOncePerSignIn_data();
    void restartsOncePerSignIn();
    void lastPassToFinishWins_data();
    void lastPassToFinishWins();
    void modelGoneBeforeReply();
    void signIn_data();
    void signIn();
    void watchAfterSignInGivesUp();
    void signOut_data();
    void signOut();
    void terminalSignInCommand_data();
    void terminalSignInCommand();
};

// What the app runs with. Every other test sets its own figures to stay quick, so only this
// one notices a refresh of a minute, a heartbeat the daemon counts as gone, or a sign-in watch
// that stops before the daemon has taken the sign-in.
void StatusModelTest::productionTimings_data() {
    QTest::addColumn<qint64>("actual");
    QTest::addColumn<qint64>("expected");
    const StatusModel::Intervals model;
    const MeterClientTimeouts client;
    const DaemonSupervisorOptions supervisor = DaemonSupervisorOptions::forThisProcess();
    const auto row = [](const char *name, qint64 actual, qint64 expected) {
        QTest::newRow(name) << actual << expected;
    };
    row("status refresh, ms", model.refresh.count(), 5'000);
    row("attention heartbeat, ms", model.heartbeat.count(), 15'000);
    row("sign-in watch, ms between reads", model.enrollPoll.count(), 1'500);
    row("sign-in watch, reads", model.enrollPollReads, 31);
    row("request time-out, ms", client.request.count(), 60'000);
    row("sync time-out, ms", client.sync.count(), 180'000);
    row("console handoff, attempts", client.handoffAttempts, 6);
    row("console handoff, ms between attempts", client.handoffRetryDelay.count(), 300);
    row("daemon relaunch, ms", supervisor.relaunchDelay.count(), 1'000);
    row("daemon stop grace, ms", supervisor.stopGrace.count(), 5'000);
}

void StatusModelTest::productionTimings() {
    QFETCH(qint64, actual);
    QFETCH(qint64, expected);
    QCOMPARE(actual, expected);
}

void StatusModelTest::nothingBeforeTheFirstRead() {
    Rig rig;
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(true).delayed(250));

    // Made but not started: no traffic yet, so the owner can wire its signals first.
    QTest::qWait(100);
    QCOMPARE(rig.daemon.requests().size(), 0);

    rig.model.start();
    QVERIFY(!rig.model.status().has_value());
    QVERIFY(!rig.model.daemonHealthy());

    // The first read goes out at once, not one refresh interval later.
    QVERIFY(rig.daemon.waitForRequests(QStringLiteral("/status"), 1, 2000));
    QTest::qWait(50);
    QCOMPARE(rig.passes, 0);
    QVERIFY(!rig.model.status().has_value());
    QVERIFY(!rig.model.hasStatus());
    QVERIFY(!rig.model.daemonHealthy());

    QVERIFY(rig.waitForPasses(1));
    QVERIFY(rig.model.hasStatus());
    QVERIFY(rig.model.daemonHealthy());
}

void StatusModelTest::daemonThatStopsAnsweringClearsStatus_data() {
    QTest::addColumn<FakeReply>("failure");
    QTest::addColumn<bool>("refuse");

    // How each failure is read is the client's (test_meter_client); here: an answer that is
    // no status, a connection that ends without one, and nobody there at all.
    QTest::newRow("500 with JSON error body") << FakeReply::error(500) << false;
    QTest::newRow("connection dropped") << FakeReply::drop() << false;
    QTest::newRow("port closed") << FakeReply() << true;
}

void StatusModelTest::daemonThatStopsAnsweringClearsStatus() {
    QFETCH(FakeReply, failure);
    QFETCH(bool, refuse);

    const auto tick = 200ms;
    Rig rig({tick, 60s});
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(true));
    rig.model.start();
    QVERIFY(rig.waitForPasses(1));
    QVERIFY(rig.model.daemonHealthy());

    // Switch right after a pass ends, so no read is in flight: the very next pass fails.
    QVERIFY(rig.waitForPasses(rig.passes + 1));
    const int passesBefore = rig.passes;
    QElapsedTimer sinceDown;
    sinceDown.start();
    if (refuse)
        rig.daemon.refuse();
    else
        rig.daemon.setReply(QStringLiteral("/status"), failure);

    QTRY_VERIFY_WITH_TIMEOUT(!rig.model.hasStatus(), 3000);
    const qint64 clearedAfter = sinceDown.elapsed();
    QCOMPARE(rig.passes, passesBefore + 1);
    QVERIFY(!rig.model.daemonHealthy());
    QVERIFY2(clearedAfter < 5 * tick.count(), qPrintable(QString::number(clearedAfter)));

    // Still polled while down, and never shown healthy.
    QVERIFY(rig.waitForPasses(rig.passes + 1, 3000));
    QVERIFY(!rig.model.hasStatus());
    QVERIFY(!rig.model.daemonHealthy());

    // Back again: the next tick shows it.
    if (refuse)
        QVERIFY(rig.daemon.resume());
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(true, 777));
    QTRY_VERIFY_WITH_TIMEOUT(rig.model.daemonHealthy(), 3000);
    QCOMPARE(rig.model.status()->tokens, 777);
}

void StatusModelTest::passFinishedComesLast_data() {
    QTest::addColumn<QList<FakeReply>>("replies");
    QTest::addColumn<QStringList>("events");

    const FakeReply ok = statusReply(true, 100);
    const FakeReply broken = FakeReply::error(500);
    auto events = [](const char *text) { return QString::fromLatin1(text).split(u' '); };

    QTest::newRow("first read succeeds") << QList<FakeReply>{ok} << events("status health pass+");
    QTest::newRow("first read fails") << QList<FakeReply>{broken} << events("pass-");
    QTest::newRow("same status twice")
        << QList<FakeReply>{ok, ok} << events("status health pass+ pass+");
    QTest::newRow("daemon fails after a good read")
        << QList<FakeReply>{ok, broken} << events("status health pass+ status health pass-");
    QTest::newRow("figures change while healthy") << QList<FakeReply>{ok, statusReply(true, 200)}
                                                  << events("status health pass+ status pass+");
    QTest::newRow("daemon comes back")
        << QList<FakeReply>{broken, ok, broken, ok}
        << events("pass- status health pass+ status health pass- status health pass+");
}

void StatusModelTest::passFinishedComesLast() {
    QFETCH(QList<FakeReply>, replies);
    QFETCH(QStringList, events);

    Rig rig;
    QStringList seen;
    connect(&rig.model, &StatusModel::statusChanged, this,
            [&] { seen << QStringLiteral("status"); });
    connect(&rig.model, &StatusModel::daemonHealthyChanged, this,
            [&] { seen << QStringLiteral("health"); });
    connect(&rig.model, &StatusModel::passFinished, this,
            [&](const std::optional<DaemonStatus> &status) {
                // Observers of the end of a pass read the model and must find it up to date.
                if (status != rig.model.status() || status.has_value() != rig.model.daemonHealthy())
                    seen << QStringLiteral("stale");
                seen << (status ? QStringLiteral("pass+") : QStringLiteral("pass-"));
            });

    for (const FakeReply &reply : replies) {
        rig.daemon.setReply(QStringLiteral("/status"), reply);
        QVERIFY(rig.pass());
        // What is published is the status as read, every value kept.
        QCOMPARE(rig.model.status(), json::decode<DaemonStatus>(reply.body));
    }
    QCOMPARE(seen, events);
}

void StatusModelTest::restartsOncePerSignIn_data() {
    // Script steps: F writes the enrollment file, f removes it; - leaves the model with a
    // supervisor that is gone, + hands the counting one over again; u, e and x are passes that
    // read a status with enrolled false, one with enrolled true, and a failed read.
    // `restarts` holds the restart count expected after each pass.
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("restarts");

    QTest::newRow("file and unenrolled, many passes")
        << QStringLiteral("Fuuuuuuuu") << QStringLiteral("11111111");
    QTest::newRow("no enrollment file") << QStringLiteral("uuuu") << QStringLiteral("0000");
    QTest::newRow("enrolled throughout") << QStringLiteral("Feeee") << QStringLiteral("0000");
    QTest::newRow("enrolled, then unenrolled again")
        << QStringLiteral("Fuueuu") << QStringLiteral("11122");
    QTest::newRow("every sign-in gets its own restart")
        << QStringLiteral("Fueueueu") << QStringLiteral("1122334");
    QTest::newRow("failed reads do not re-arm")
        << QStringLiteral("Fuxxuxu") << QStringLiteral("111111");
    QTest::newRow("file appears later") << QStringLiteral("uuFuu") << QStringLiteral("0011");
    QTest::newRow("file gone after the restart")
        << QStringLiteral("Fufeuu") << QStringLiteral("1111");
    // The chance went by without a supervisor; handing one over later does not revive it,
    // the next sign-in does.
    QTest::newRow("no supervisor at the sign-in")
        << QStringLiteral("-Fu+uueu") << QStringLiteral("00001");
}

void StatusModelTest::restartsOncePerSignIn() {
    QFETCH(QString, script);
    QFETCH(QString, restarts);

    Rig rig;
    const auto restarter = std::make_shared<CountingRestarter>();
    rig.model.setSupervisor(restarter);

    // Read when the pass announces its end: the restart is asked for before that.
    QString seen;
    connect(&rig.model, &StatusModel::passFinished, this,
            [&] { seen += QString::number(restarter->calls.load()); });
    for (const QChar step : script) {
        switch (step.toLatin1()) {
        case 'F':
            QVERIFY(rig.writeEnrollmentFile());
            continue;
        case 'f':
            QVERIFY(rig.removeEnrollmentFile());
            continue;
        case '-':
            rig.model.setSupervisor(std::make_shared<CountingRestarter>()); // gone at once
            continue;
        case '+':
            rig.model.setSupervisor(restarter);
            continue;
        case 'u':
            rig.daemon.setReply(QStringLiteral("/status"), statusReply(false));
            break;
        case 'e':
            rig.daemon.setReply(QStringLiteral("/status"), statusReply(true));
            break;
        case 'x':
            rig.daemon.setReply(QStringLiteral("/status"), FakeReply::error(500));
            break;
        default:
            QFAIL("unknown script step");
        }
        QVERIFY(rig.pass());
    }
    QCOMPARE(seen, restarts);
}

void StatusModelTest::lastPassToFinishWins_data() {
    QTest::addColumn<FakeReply>("slow");
    QTest::addColumn<FakeReply>("fast");
    QTest::addColumn<bool>("healthy");
    QTest::addColumn<qint64>("tokens");

    QTest::newRow("slow success after quick success")
        << statusReply(true, 111).delayed(250) << statusReply(true, 222) << true << qint64(111);
    QTest::newRow("slow failure after quick success")
        << FakeReply::error(500).delayed(250) << statusReply(true, 222) << false << qint64(0);
    QTest::newRow("slow success after quick failure")
        << statusReply(true, 111).delayed(250) << FakeReply::garbage() << true << qint64(111);
}

void StatusModelTest::lastPassToFinishWins() {
    QFETCH(FakeReply, slow);
    QFETCH(FakeReply, fast);
    QFETCH(bool, healthy);
    QFETCH(qint64, tokens);

    Rig rig;
    QList<std::optional<DaemonStatus>> finished;
    connect(&rig.model, &StatusModel::passFinished, this,
            [&](const std::optional<DaemonStatus> &status) { finished.append(status); });

    rig.daemon.enqueue(QStringLiteral("/status"), slow);
    rig.daemon.setReply(QStringLiteral("/status"), fast);
    rig.model.refresh();
    QVERIFY(rig.daemon.waitForRequests(QStringLiteral("/status"), 1));
    rig.model.refresh(); // while the first is still waiting for its answer
    QVERIFY(rig.waitForPasses(2));
    QTest::qWait(50);

    QCOMPARE(finished.size(), 2);
    // The quick second read finished first; the slow first one had the last word.
    QCOMPARE(finished.at(1).has_value(), healthy);
    QCOMPARE(rig.model.daemonHealthy(), healthy);
    QCOMPARE(rig.model.hasStatus(), healthy);
    if (healthy)
        QCOMPARE(rig.model.status()->tokens, tokens);
    QCOMPARE(finished.at(1), rig.model.status());
}

void StatusModelTest::modelGoneBeforeReply() {
    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"), statusReply(true).delayed(200));
    QTemporaryDir home;
    MeterClient client(daemon.base());
    auto model = std::make_unique<StatusModel>(&client, daemon.environment(home.path()));
    model->start();
    QVERIFY(daemon.waitForRequests(QStringLiteral("/status"), 1));
    model.reset();
    // The answer arrives for a model that is gone; nothing may touch it.
    QTest::qWait(400);
    QCOMPARE(daemon.requests().size(), 1);
}

void StatusModelTest::signIn_data() {
    QTest::addColumn<QByteArray>("start"); // the /v1/auth/device/start answer
    QTest::addColumn<QByteArray>("poll");  // the poll answer
    QTest::addColumn<bool>("supervisor");  // handed over before the sign-in
    QTest::addColumn<QString>("opened");   // the page the browser got
    QTest::addColumn<QString>("error");    // empty: it succeeds
    QTest::addColumn<bool>("terminal");    // the terminal way round is offered
    const QByteArray complete = R"({"device_code":"dc_1","user_code":"WDJB-MJHT",
        "verification_uri":"https://quon.test/activate",
        "verification_uri_complete":"https://quon.test/activate?code=WDJB-MJHT",
        "expires_in":900,"interval":5})";
    const QByteArray tokens = R"({"access_token":"at_1","refresh_token":"rt_1"})";
    // The fake account service is on 127.0.0.1, so the page is the console's activate page.
    const QString completePage = QStringLiteral("http://console.test/activate?code=WDJB-MJHT");
    QTest::newRow("approved: the complete page opens, the daemon restarts")
        << complete << tokens << true << completePage << QString() << false;
    QTest::newRow("denied: the error, no terminal offer")
        << complete << QByteArray(R"({"error":"access_denied"})") << true << completePage
        << QStringLiteral("Sign-in was denied.") << false;
    QTest::newRow("a certificate problem offers the terminal")
        << complete << QByteArray(R"({"error":"self signed certificate in certificate chain"})")
        << true << completePage
        << QStringLiteral("Sign-in error: self signed certificate in certificate chain") << true;
    QTest::newRow("no supervisor: nothing is asked of anyone")
        << complete << tokens << false << QString()
        << QStringLiteral("internal: supervisor unavailable") << false;
}

void StatusModelTest::signIn() {
    QFETCH(QByteArray, start);
    QFETCH(QByteArray, poll);
    QFETCH(bool, supervisor);
    QFETCH(QString, opened);
    QFETCH(QString, error);
    QFETCH(bool, terminal);

    Rig rig;
    const auto restarter = std::make_shared<CountingRestarter>();
    rig.enableSignIn(restarter);
    if (!supervisor)
        rig.model.setSupervisor({});
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/start"), FakeReply::json(start));
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/poll"),
                        FakeReply::json(poll, poll.contains("error") ? 400 : 200));
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/userinfo"),
                        FakeReply::json(QByteArray(R"({"org_id":"org_1","user_id":"u_1"})")));
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(false));

    rig.model.startEnroll();
    const auto &progress = rig.model.enrollProgress();
    if (error.isEmpty()) {
        QTRY_VERIFY(progress && progress->enrolled);
        QCOMPARE(restarter->calls.load(), 1);
        QVERIFY(rig.model.isWatchingEnrollment());
        // The daemon reports the sign-in: the progress is gone and the watch ends.
        rig.daemon.setReply(QStringLiteral("/status"), statusReply(true));
        QTRY_VERIFY(!progress);
        QVERIFY(!rig.model.isWatchingEnrollment());
    } else {
        QTRY_VERIFY(progress && progress->state == QLatin1String("error"));
        QCOMPARE(progress->error.value_or(QString()), error);
        QCOMPARE(restarter->calls.load(), 0);
        QCOMPARE(StatusModel::isTLSInterceptError(progress->error), terminal);
    }
    QCOMPARE(rig.opened.value(0), opened);
    if (!supervisor)
        QVERIFY(rig.daemon.requests(QStringLiteral("/v1/auth/device/start")).isEmpty());
}

void StatusModelTest::watchAfterSignInGivesUp() {
    Rig rig({60s, 60s, 1ms, 5});
    const auto restarter = std::make_shared<CountingRestarter>();
    rig.enableSignIn(restarter);
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(false));
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/start"),
                        FakeReply::json(QByteArray(R"({"device_code":"d","user_code":"U",
                            "verification_uri":"https://quon.test/a"})")));
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/poll"),
                        FakeReply::json(QByteArray(R"({"access_token":"a","refresh_token":"r"})")));
    rig.daemon.setReply(QStringLiteral("/v1/auth/device/userinfo"),
                        FakeReply::json(QByteArray("{}")));
    rig.model.startEnroll();
    QTRY_VERIFY(rig.model.enrollProgress() && rig.model.enrollProgress()->enrolled);
    // A daemon that never reports the sign-in is read so many times, then left to the refresh.
    QTRY_VERIFY_WITH_TIMEOUT(!rig.model.isWatchingEnrollment(), 10000);
    QTest::qWait(100);
    QCOMPARE(rig.daemon.requests(QStringLiteral("/status")).size(), 5);
}

void StatusModelTest::signOut_data() {
    QTest::addColumn<bool>("answers");
    QTest::newRow("the daemon clears the sign-in") << true;
    QTest::newRow("no daemon: nothing changes but the message") << false;
}

void StatusModelTest::signOut() {
    QFETCH(bool, answers);
    Rig rig;
    rig.daemon.setReply(QStringLiteral("/status"), statusReply(true));
    QVERIFY(rig.pass());
    QSignalSpy changed(&rig.model, &StatusModel::statusChanged);
    if (answers) {
        rig.daemon.setReply(QStringLiteral("/enroll/clear"), FakeReply::json(QByteArray("{}")));
        rig.daemon.setReply(QStringLiteral("/status"), statusReply(false));
    } else {
        rig.daemon.setReply(QStringLiteral("/enroll/clear"), FakeReply::drop());
    }
    rig.model.unenroll();
    if (answers) {
        QTRY_VERIFY(rig.model.hasStatus() && !rig.model.status()->enrolled);
        QCOMPARE(changed.count(), 2); // cleared at once, then read afresh
        QVERIFY(rig.model.signOutMessage().isEmpty());
    } else {
        QTRY_COMPARE(rig.model.signOutMessage(),
                     QStringLiteral("Sign-out failed — is the daemon running?"));
        QVERIFY(rig.model.status()->enrolled);
        QCOMPARE(changed.count(), 0);
    }
}

void StatusModelTest::terminalSignInCommand_data() {
    QTest::addColumn<QString>("bundle");
    QTest::addColumn<QString>("daemon");
    QTest::addColumn<QString>("line");
    QTest::newRow("with a CA bundle")
        << QStringLiteral("/var/lib/q/.quon-brix/trust-store.pem")
        << QStringLiteral("/opt/q/libexec/quonbrix/brixd")
        << QStringLiteral(R"(SSL_CERT_FILE="/var/lib/q/.quon-brix/trust-store.pem" )"
                          R"("/opt/q/libexec/quonbrix/brixd" enroll)");
    QTest::newRow("no bundle, no daemon found: the installed place, shell-quoted")
        << QString() << QString() << QStringLiteral(R"("/opt/\$me/\"q\"/brixd" enroll)");
}

void StatusModelTest::terminalSignInCommand() {
    QFETCH(QString, bundle);
    QFETCH(QString, daemon);
    QFETCH(QString, line);
    Rig rig;
    const auto restarter = std::make_shared<CountingRestarter>();
    if (!bundle.isEmpty())
        restarter->bundle = bundle;
    if (!daemon.isEmpty())
        restarter->daemon = daemon;
    rig.model.setSupervisor(restarter);
    QCOMPARE(rig.model.enrollCommand(QStringLiteral(R"(/opt/$me/"q"/brixd)")), line);
}

QTEST_GUILESS_MAIN(StatusModelTest)
#include "test_status_model.moc"
