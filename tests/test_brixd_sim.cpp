// The stand-in daemon as the app meets it: the real brixd-sim binary on a loopback port, with
// its own HOME, spoken to over real sockets.

#include "daemon_link/records.h"
#include "support/sim_process.h"
#include "json/json_codec.h"

#include <QtNetwork>
#include <QtTest>

using namespace quonbrix;
using namespace Qt::StringLiterals;

namespace {

const QString simBin = QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim");
const QString scenariosDir = QStringLiteral(QUONBRIX_SCENARIOS_DIR);
const QString commandPath = u"/worklogs/command"_s;

qint64 nowMs() {
    return QDateTime::currentMSecsSinceEpoch();
}

QByteArray command(const QString &action, const QString &sessionId = {}, const QString &label = {},
                   const QString &key = QUuid::createUuid().toString(QUuid::WithoutBraces)) {
    QJsonObject o{{u"action"_s, action}, {u"idempotencyKey"_s, key}};
    if (!sessionId.isEmpty())
        o.insert(u"workSessionId"_s, sessionId);
    if (!label.isNull())
        o.insert(u"projectLabel"_s, label);
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

// Offset in ms named by "now", "now-90m", "now+2d-5h", …; absent for any other text.
std::optional<qint64> placeholderOffset(const QString &text) {
    static const QRegularExpression whole(u"^now((?:[+-]\\d+(?:\\.\\d+)?[smhdw])*)$"_s);
    static const QRegularExpression term(u"([+-])(\\d+(?:\\.\\d+)?)([smhdw])"_s);
    const QRegularExpressionMatch m = whole.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    const QHash<QChar, double> unit{
        {u's', 1e3}, {u'm', 6e4}, {u'h', 3.6e6}, {u'd', 8.64e7}, {u'w', 6.048e8}};
    double total = 0;
    for (auto it = term.globalMatch(m.captured(1)); it.hasNext();) {
        const QRegularExpressionMatch t = it.next();
        total += (t.captured(1) == u"-" ? -1 : 1) * t.captured(2).toDouble() *
                 unit.value(t.captured(3).at(0));
    }
    return qint64(total);
}

// Walks a scenario's status as written next to the status as served: every placeholder must
// have become the instant it names, counted from when the sim started ([t0, t1]).
void checkTimes(const QJsonValue &written, const QJsonValue &served, const QString &key, qint64 t0,
                qint64 t1, int &checked, QStringList &problems) {
    if (written.isObject()) {
        const QJsonObject w = written.toObject(), s = served.toObject();
        for (auto it = w.begin(); it != w.end(); ++it)
            if (s.contains(it.key())) // otherwise replaced by live state
                checkTimes(it.value(), s.value(it.key()), it.key(), t0, t1, checked, problems);
    } else if (written.isArray()) {
        const QJsonArray w = written.toArray(), s = served.toArray();
        for (qsizetype i = 0; i < w.size() && i < s.size(); ++i)
            checkTimes(w.at(i), s.at(i), key, t0, t1, checked, problems);
    } else if (const std::optional<qint64> offset = placeholderOffset(written.toString())) {
        ++checked;
        const qint64 lo = t0 + *offset - 1000, hi = t1 + *offset + 1000;
        if (key == u"period") {
            const auto day = [](qint64 ms) {
                return QDateTime::fromMSecsSinceEpoch(ms).date().toString(Qt::ISODate);
            };
            if (served.toString() != day(lo) && served.toString() != day(hi))
                problems << key + u": "_s + served.toString();
            return;
        }
        qint64 at = -1;
        if (served.isDouble())
            at = qint64(served.toDouble());
        else if (served.toString().endsWith(u'Z'))
            at = QDateTime::fromString(served.toString(), Qt::ISODateWithMs).toMSecsSinceEpoch();
        if (at < lo || at > hi)
            problems << key + u": "_s + served.toVariant().toString();
    }
}

struct HttpResult {
    bool answered = false;
    int status = 0;
    QByteArray body, contentType;
    QJsonObject object() const { return QJsonDocument::fromJson(body).object(); }
};

// The sim, spoken to over HTTP the way the app and a browser speak to it.
class Sim : public test::SimProcess {
public:
    Sim() { m_nam.setProxy(QNetworkProxy::NoProxy); }

    QNetworkReply *send(const QByteArray &method, const QString &path, const QByteArray &body = {},
                        quint16 to = 0, const QByteArray &bearer = {}) {
        QNetworkRequest req(QUrl(u"http://127.0.0.1:%1%2"_s.arg(to ? to : port).arg(path)));
        // The account API takes forms as well as JSON.
        req.setHeader(QNetworkRequest::ContentTypeHeader,
                      body.isEmpty() || body.startsWith('{')
                          ? "application/json"_ba
                          : "application/x-www-form-urlencoded"_ba);
        if (!bearer.isEmpty())
            req.setRawHeader("authorization", "Bearer " + bearer);
        return m_nam.sendCustomRequest(req, method, body);
    }

    static HttpResult await(QNetworkReply *reply, int timeoutMs = 5000) {
        if (!reply->isFinished()) {
            QEventLoop loop;
            QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
            QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
            loop.exec();
        }
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const HttpResult r{reply->isFinished() && status.isValid(), status.toInt(),
                           reply->readAll(),
                           reply->header(QNetworkRequest::ContentTypeHeader).toByteArray()};
        reply->abort();
        reply->deleteLater();
        return r;
    }

    HttpResult post(const QString &path, const QByteArray &body = {}) {
        return await(send("POST", path, body));
    }
    HttpResult account(const QByteArray &method, const QString &path, const QByteArray &body = {},
                       const QByteArray &bearer = {}) {
        return await(send(method, path, body, accountPort, bearer), 2000);
    }
    // The served status, decoded the way the app decodes it.
    std::optional<DaemonStatus> status() {
        return json::decode<DaemonStatus>(await(send("GET", u"/status"_s)).body);
    }

private:
    QNetworkAccessManager m_nam;
};

QStringList scenario(const QString &name) {
    return {u"--scenario"_s, name};
}

const WorkSession *sessionWith(const DaemonStatus &s, const QString &status) {
    if (!s.workTimers)
        return nullptr;
    for (const WorkSession &w : *s.workTimers)
        if (w.status == status || w.id == status)
            return &w;
    return nullptr;
}

} // namespace

class BrixdSimTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void scenarios_data() {
        QTest::addColumn<QString>("name");
        const QFileInfoList files = QDir(scenariosDir).entryInfoList({u"*.json"_s}, QDir::Files);
        QVERIFY(files.size() >= 5);
        for (const QFileInfo &f : files)
            QTest::newRow(qPrintable(f.completeBaseName())) << f.completeBaseName();
    }

    // Served by name (so the compiled-in copy must match the source tree), readable by the app,
    // and every relative time in it resolved to near now.
    void scenarios() {
        QFETCH(QString, name);
        Sim sim;
        QVERIFY(sim.start(scenario(name)));
        const HttpResult r = Sim::await(sim.send("GET", u"/status"_s));
        const qint64 t1 = nowMs();
        QCOMPARE(r.status, 200);
        QCOMPARE(r.contentType, "application/json"_ba);
        QString why;
        QVERIFY2(json::decode<DaemonStatus>(r.body, &why), qPrintable(why));
        QFile file(scenariosDir + u'/' + name + u".json"_s);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonValue written =
            QJsonDocument::fromJson(file.readAll()).object().value(u"status");
        int checked = 0;
        QStringList problems;
        checkTimes(written, r.object(), QString(), sim.startedAtMs, t1, checked, problems);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
        QVERIFY2(checked > 0, "a scenario without a single relative time goes stale");
        QVERIFY2(!r.body.contains("\"now"), r.body.constData());
    }

    // start → pause → resume → complete, the start sent twice under one key.
    void timerFlow() {
        Sim sim;
        QVERIFY(sim.start(scenario(u"fresh-install"_s)));
        const QByteArray start = command(u"start"_s, {}, u" Client A\n"_s);
        const HttpResult first = sim.post(commandPath, start);
        QCOMPARE(first.status, 200);
        QCOMPARE(sim.post(commandPath, start).body, first.body);
        const std::optional<WorkTimerCommandResponse> reply =
            json::decode<WorkTimerCommandResponse>(first.body);
        QVERIFY(reply && reply->session);
        const QString id = reply->session->id;
        QCOMPARE(reply->session->projectLabel, u"Client A"_s);
        const auto expect = [&](const QString &status, size_t segments, qint64 revision) {
            const std::optional<DaemonStatus> s = sim.status();
            QVERIFY(s && s->workTimers);
            QCOMPARE(s->workTimers->size(), size_t(1));
            const WorkSession *w = sessionWith(*s, id);
            QVERIFY(w);
            QCOMPARE(w->status, status);
            QCOMPARE(w->segments.size(), segments);
            QCOMPARE(w->revision, revision);
        };
        expect(u"running"_s, 1, 1);
        QCOMPARE(sim.post(commandPath, command(u"pause"_s, id)).status, 200);
        expect(u"paused"_s, 1, 2);
        QCOMPARE(sim.post(commandPath, command(u"resume"_s, id)).status, 200);
        expect(u"running"_s, 2, 3);
        const HttpResult done = sim.post(commandPath, command(u"complete"_s, id));
        QCOMPARE(done.status, 200);
        const auto finished = json::decode<WorkTimerCommandResponse>(done.body);
        QVERIFY(finished && finished->session && finished->session->completedAt);
        QCOMPARE(finished->session->status, u"completed"_s);
        const std::optional<DaemonStatus> s = sim.status();
        QVERIFY(s && !sessionWith(*s, id) && !s->workTimer);
    }

    void timerErrors_data() {
        QTest::addColumn<QByteArray>("body"); // {running}/{paused}: the scenario's sessions
        QTest::addColumn<int>("httpStatus");
        QTest::addColumn<QString>("errorCode");
        QTest::newRow("unknown session") << command(u"pause"_s, u"ws_x"_s) << 404 << u"not-found"_s;
        QTest::newRow("pause a paused timer")
            << command(u"pause"_s, u"{paused}"_s) << 409 << u"invalid-transition"_s;
        QTest::newRow("blank label")
            << command(u"start"_s, {}, u" "_s) << 400 << u"invalid-request"_s;
        QTest::newRow("not JSON") << "{\"action\": pause"_ba << 400 << u"invalid-request"_s;
    }

    void timerErrors() {
        QFETCH(QByteArray, body);
        QFETCH(int, httpStatus);
        QFETCH(QString, errorCode);
        Sim sim;
        QVERIFY(sim.start(scenario(u"timers-running"_s)));
        const std::optional<DaemonStatus> before = sim.status();
        QVERIFY(before);
        const WorkSession *paused = sessionWith(*before, u"paused"_s);
        QVERIFY(paused);
        body.replace("{paused}", paused->id.toUtf8());
        const HttpResult r = sim.post(commandPath, body);
        QCOMPARE(r.status, httpStatus);
        const auto error = json::decode<WorkTimerErrorResponse>(r.body);
        QVERIFY(error);
        QCOMPARE(error->errorCode.value_or(QString()), errorCode);
        const std::optional<DaemonStatus> after = sim.status(); // left as it was
        QVERIFY(after && after->workTimers);
        QCOMPARE(*after->workTimers, *before->workTimers);
    }

    void syncReplies_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("forcedSkip");
        QTest::addColumn<QString>("skipped"); // empty: a push
        QTest::newRow("signed in") << u"signed-in-sharing"_s << QString() << QString();
        QTest::newRow("forced error") << u"typical-day"_s << u"error"_s << u"error"_s;
    }

    void syncReplies() {
        QFETCH(QString, name);
        QFETCH(QString, forcedSkip);
        QFETCH(QString, skipped);
        Sim sim;
        QVERIFY(
            sim.start(scenario(name), forcedSkip.isEmpty()
                                          ? QStringList()
                                          : QStringList{u"BRIXD_SIM_SYNC_SKIP="_s + forcedSkip}));
        const qint64 from = nowMs();
        const HttpResult r = sim.post(u"/sync"_s);
        QCOMPARE(r.status, 200);
        const std::optional<SyncResult> sync = json::decode<SyncResult>(r.body);
        QVERIFY(sync);
        QCOMPARE(sync->ok, skipped != u"error");
        QCOMPARE(sync->skipped.value_or(QString()), skipped);
        QCOMPARE(sync->pushed > 0, skipped.isEmpty());
        const std::optional<DaemonStatus> s = sim.status();
        QVERIFY(s);
        if (skipped.isEmpty())
            QVERIFY(s->lastPushAt && *s->lastPushAt >= double(from));
    }

    // A sign-in as the app runs it, each row with its own account script. Steps are the poll
    // answers expected in turn ("tokens", an error, "no answer"), or a click on the approval
    // page ("approve", "deny").
    void signIn_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("startStatus");
        QTest::addColumn<int>("interval");
        QTest::addColumn<QStringList>("steps");  // empty: the start gives no device code
        QTest::addColumn<int>("userinfoStatus"); // 0: not asked
        const QString pending = u"authorization_pending"_s;
        QTest::newRow("approved on the page")
            << QString() << 200 << 5 << QStringList{pending, u"approve"_s, u"tokens"_s} << 200;
        QTest::newRow("denied on the page")
            << QString() << 200 << 5 << QStringList{pending, u"deny"_s, u"access_denied"_s} << 0;
        QTest::newRow("pending=2") << u"pending=2,interval=1"_s << 200 << 1
                                   << QStringList{pending, pending, u"tokens"_s} << 0;
        QTest::newRow("slow_down") << u"slow_down=2,pending=0"_s << 200 << 5
                                   << QStringList{u"slow_down"_s, u"slow_down"_s, u"tokens"_s} << 0;
        QTest::newRow("deny") << u"pending=1,deny"_s << 200 << 5
                              << QStringList{pending, u"access_denied"_s} << 0;
        QTest::newRow("expired") << u"expired"_s << 200 << 5 << QStringList{u"expired_token"_s}
                                 << 0;
        QTest::newRow("tls") << u"tls"_s << 200 << 5
                             << QStringList{u"self signed certificate in certificate chain"_s} << 0;
        QTest::newRow("poll hangs")
            << u"poll=hang"_s << 200 << 5 << QStringList{u"no answer"_s} << 0;
        QTest::newRow("userinfo=500")
            << u"pending=0,userinfo=500"_s << 200 << 5 << QStringList{u"tokens"_s} << 500;
        QTest::newRow("start=500") << u"start=500"_s << 500 << 0 << QStringList{} << 0;
        QTest::newRow("start=garbage") << u"start=garbage"_s << 200 << 0 << QStringList{} << 0;
    }

    void signIn() {
        QFETCH(QString, script);
        QFETCH(int, startStatus);
        QFETCH(int, interval);
        QFETCH(QStringList, steps);
        QFETCH(int, userinfoStatus);
        Sim sim;
        QVERIFY(sim.start({u"--account-port"_s, u"0"_s, u"--account-script"_s, script}));
        QVERIFY(sim.accountPort != 0 && sim.accountPort != sim.port);
        const HttpResult start =
            sim.account("POST", u"/v1/auth/device/start"_s, R"({"client_id":"quon-brix"})"_ba);
        QCOMPARE(start.status, startStatus);
        const QJsonObject prompt = start.object();
        const QByteArray deviceCode = prompt.value(u"device_code").toString().toUtf8();
        const QString userCode = prompt.value(u"user_code").toString();
        QCOMPARE(!deviceCode.isEmpty(), !steps.isEmpty());
        if (steps.isEmpty())
            return;
        QVERIFY2(QRegularExpression(u"^[A-Z]{4}-[A-Z]{4}$"_s).match(userCode).hasMatch(),
                 qPrintable(userCode));
        QCOMPARE(prompt.value(u"expires_in").toInt(), 900);
        QCOMPARE(prompt.value(u"interval").toInt(), interval);

        QByteArrayList secrets{deviceCode, userCode.toUtf8()};
        QByteArray accessToken;
        for (const QString &step : steps) {
            if (step == u"approve" || step == u"deny") {
                // Where the app sends the browser when the account API is on this machine.
                const HttpResult page = sim.account("GET", u"/activate?code="_s + userCode);
                QCOMPARE(page.status, 200);
                QVERIFY(page.contentType.startsWith("text/html"));
                const QByteArray form =
                    "<form method=\"post\" action=\"/activate/" + step.toUtf8() +
                    "\"><input type=\"hidden\" name=\"code\" value=\"" + userCode.toUtf8() + "\">";
                QVERIFY2(page.body.contains(form) && !page.body.contains("://"),
                         page.body.constData());
                const HttpResult done =
                    sim.account("POST", u"/activate/"_s + step, "code=" + userCode.toUtf8());
                QCOMPARE(done.status, 200);
                continue;
            }
            const HttpResult poll =
                sim.account("POST", u"/v1/auth/device/poll"_s,
                            "grant_type=urn:ietf:params:oauth:grant-type:device_code&device_code=" +
                                deviceCode + "&client_id=quon-brix");
            QCOMPARE(poll.answered, step != u"no answer");
            if (!poll.answered)
                continue;
            const QJsonObject o = poll.object();
            QCOMPARE(poll.status == 200, step == u"tokens");
            QCOMPARE(o.value(u"error").toString(), step == u"tokens" ? QString() : step);
            accessToken = o.value(u"access_token").toString().toUtf8();
            if (step == u"tokens") {
                QCOMPARE(o.value(u"token_type").toString(), u"Bearer"_s);
                QVERIFY(!accessToken.isEmpty() && o.value(u"refresh_token").isString());
                secrets << accessToken << o.value(u"refresh_token").toString().toUtf8();
            }
        }
        if (userinfoStatus != 0) {
            const HttpResult who =
                sim.account("GET", u"/v1/auth/device/userinfo"_s, {}, accessToken);
            QCOMPARE(who.status, userinfoStatus);
            if (userinfoStatus == 200) {
                QCOMPARE(who.object().value(u"org_id").toString(), u"org_sim"_s);
                QCOMPARE(who.object().value(u"user_id").toString(), u"user_sim"_s);
                QCOMPARE(sim.account("GET", u"/v1/auth/device/userinfo"_s, {}, deviceCode).status,
                         401);
            }
        }
        const QByteArray log = sim.log();
        for (const QByteArray &secret : secrets)
            QVERIFY2(!log.contains(secret), log.constData());
    }

    // Signed in from the enrollment file the app leaves; signing out deletes it.
    void enrollmentFile() {
        Sim sim;
        const QString path = sim.home.filePath(u".quon-brix/enrollment.json"_s);
        QVERIFY(test::writeFile(path, R"({"orgId":"org_sim","userId":"user_sim"})"));
        QVERIFY(sim.start(scenario(u"fresh-install"_s)));
        std::optional<DaemonStatus> s = sim.status();
        QVERIFY(s && s->enrolled);
        QCOMPARE(s->orgId, u"org_sim"_s);
        QCOMPARE(sim.post(u"/enroll/clear"_s).status, 200);
        QVERIFY(!QFileInfo::exists(path));
        s = sim.status();
        QVERIFY(s && !s->enrolled && !s->orgId);
    }

    void adminTokenFile() {
        Sim sim; // a loose directory and an old token are left from before
        const QString dir = sim.home.filePath(u".quon-brix"_s);
        const QString path = dir + u"/admin-token"_s;
        QVERIFY(test::writeFile(path, "old-token\n", 0644));
        QVERIFY(QFile::setPermissions(dir, QFile::Permissions(0x7755)));
        QVERIFY(sim.start(scenario(u"fresh-install"_s)));
        const auto mode = [](const QString &p) {
            return QFileInfo(p).permissions() & QFile::Permissions(0x7077);
        };
        QCOMPARE(mode(dir), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(mode(path), QFile::ReadOwner | QFile::WriteOwner);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray token = file.readAll().trimmed();
        QVERIFY(token.size() >= 32 && token != "old-token");
        QVERIFY(!sim.log().contains(token));
    }

    // The faults the command line and the model do not already meet through the sim: no
    // answer at all, and a slow one that holds up only its own request.
    void faults_data() {
        QTest::addColumn<QString>("fault");
        QTest::newRow("hang") << u"hang"_s;
        QTest::newRow("slow") << u"slow=1"_s;
    }

    void faults() {
        QFETCH(QString, fault);
        const bool hang = fault == u"hang";
        Sim sim;
        QVERIFY(sim.start({u"--fault"_s, fault}));
        QElapsedTimer t;
        t.start();
        QNetworkReply *other = sim.send("GET", u"/status"_s);
        const HttpResult r = Sim::await(sim.send("GET", u"/status"_s), hang ? 1000 : 4000);
        const HttpResult r2 = Sim::await(other, hang ? 1000 : 4000);
        const qint64 elapsed = t.elapsed();
        QCOMPARE(r.answered, !hang);
        QCOMPARE(r2.answered, !hang);
        QCOMPARE(bool(json::decode<DaemonStatus>(r.body)), !hang);
        // One after the other would take two seconds.
        if (!hang)
            QVERIFY2(elapsed >= 1000 && elapsed < 1900, qPrintable(QString::number(elapsed)));
        QCOMPARE(sim.stop(), 0); // SIGTERM ends it at once, even with a request held
        QTcpServer again;        // and the port is free again
        QVERIFY(again.listen(QHostAddress::LocalHost, sim.port));
    }

    void commandLine_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("stderrHas");
        QTest::newRow("unknown scenario") << scenario(u"busy-monday"_s) << 1 << "busy-monday"_ba;
        QTest::newRow("unknown fault")
            << QStringList{u"--fault"_s, u"sometimes"_s} << 2 << "sometimes"_ba;
        QTest::newRow("port not a number")
            << QStringList{u"--port"_s, u"eighty"_s} << 2 << "eighty"_ba;
        QTest::newRow("unknown account script")
            << QStringList{u"--account-port"_s, u"0"_s, u"--account-script"_s, u"pending=2,later"_s}
            << 2 << "\"later\""_ba;
    }

    void commandLine() {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, stderrHas);
        QTemporaryDir home;
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, home.path());
        p.setProcessEnvironment(env);
        p.start(simBin, QStringList{u"run"_s} + args);
        QVERIFY(p.waitForFinished(5000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), exitCode);
        const QByteArray err = p.readAllStandardError();
        QVERIFY2(err.startsWith("brixd-sim: ") && err.contains(stderrHas), err.constData());
        QVERIFY(!QFileInfo::exists(home.filePath(u".quon-brix/admin-token"_s)));
    }
};

QTEST_GUILESS_MAIN(BrixdSimTest)
#include "test_brixd_sim.moc"
