// The stand-in daemon as the app meets it: the real brixd-sim binary on a loopback port, with
// its own HOME, spoken to over real sockets.

#include "daemon_link/json_codec.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUuid>
#include <csignal>
#include <memory>

using namespace quonbrix;

namespace {

using EnvVars = QHash<QString, QString>;

const QString simBin = QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim");
const QString scenariosDir = QStringLiteral(QUONBRIX_SCENARIOS_DIR);

qint64 nowMs() {
    return QDateTime::currentMSecsSinceEpoch();
}

QStringList scenarioNames() {
    QStringList names;
    const QFileInfoList files =
        QDir(scenariosDir).entryInfoList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    for (const QFileInfo &f : files)
        names << f.completeBaseName();
    return names;
}

QJsonObject scenarioFile(const QString &name) {
    QFile f(scenariosDir + u'/' + name + QStringLiteral(".json"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(f.readAll()).object();
}

QByteArray compact(const QJsonObject &o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

QString newKey() {
    return QStringLiteral("mac-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QByteArray command(const QString &action, const QString &sessionId = {}, const QString &label = {},
                   const QString &key = newKey()) {
    QJsonObject o{{QStringLiteral("action"), action}, {QStringLiteral("idempotencyKey"), key}};
    if (!sessionId.isNull())
        o.insert(QStringLiteral("workSessionId"), sessionId);
    if (!label.isNull())
        o.insert(QStringLiteral("projectLabel"), label);
    return compact(o);
}

quint16 freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// ---- Relative times, read independently of the sim's own parser -------------------------

// Offset in ms of "now", "now-90m", "now+2d-5h", …; absent for any other text.
std::optional<qint64> placeholderOffset(const QString &text) {
    static const QRegularExpression whole(
        QStringLiteral("^now((?:[+-]\\d+(?:\\.\\d+)?[smhdw])*)$"));
    static const QRegularExpression term(QStringLiteral("([+-])(\\d+(?:\\.\\d+)?)([smhdw])"));
    const QRegularExpressionMatch m = whole.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    const QHash<QString, double> unit{{QStringLiteral("s"), 1e3},
                                      {QStringLiteral("m"), 6e4},
                                      {QStringLiteral("h"), 3.6e6},
                                      {QStringLiteral("d"), 8.64e7},
                                      {QStringLiteral("w"), 6.048e8}};
    double total = 0;
    auto it = term.globalMatch(m.captured(1));
    while (it.hasNext()) {
        const QRegularExpressionMatch t = it.next();
        total += (t.captured(1) == u"-" ? -1 : 1) * t.captured(2).toDouble() * unit[t.captured(3)];
    }
    return qint64(total);
}

bool isEpochMsKey(const QString &key) {
    return key.endsWith(u"Ms") || key == u"lastPushAt" || key == u"expiresAt";
}

// Walks a scenario's status as written next to the status as served. Every placeholder must
// have become the instant it names, taken from the moment the sim started ([t0, t1]), in the
// form its key has on the wire.
struct TimeCheck {
    qint64 t0 = 0;
    qint64 t1 = 0;
    int checked = 0;
    QStringList problems;

    void walk(const QJsonValue &written, const QJsonValue &served, const QString &key,
              const QString &path) {
        if (written.isObject()) {
            const QJsonObject w = written.toObject();
            const QJsonObject s = served.toObject();
            for (auto it = w.begin(); it != w.end(); ++it) {
                if (!s.contains(it.key()))
                    continue; // replaced by live state (timers, attention) or dropped
                walk(it.value(), s.value(it.key()), it.key(), path + u'.' + it.key());
            }
        } else if (written.isArray()) {
            const QJsonArray w = written.toArray();
            const QJsonArray s = served.toArray();
            for (qsizetype i = 0; i < w.size() && i < s.size(); ++i)
                walk(w.at(i), s.at(i), key, path + QStringLiteral("[%1]").arg(i));
        } else if (written.isString()) {
            const std::optional<qint64> offset = placeholderOffset(written.toString());
            if (offset)
                checkInstant(*offset, served, key, path);
        }
    }

    void checkInstant(qint64 offset, const QJsonValue &served, const QString &key,
                      const QString &path) {
        ++checked;
        const qint64 lo = t0 + offset - 1000;
        const qint64 hi = t1 + offset + 1000;
        if (key == u"period") {
            const QString d0 = QDateTime::fromMSecsSinceEpoch(lo).date().toString(Qt::ISODate);
            const QString d1 = QDateTime::fromMSecsSinceEpoch(hi).date().toString(Qt::ISODate);
            if (served.toString() != d0 && served.toString() != d1)
                problems << path + QStringLiteral(": date ") + served.toString();
            return;
        }
        qint64 at = 0;
        if (isEpochMsKey(key)) {
            if (!served.isDouble()) {
                problems << path + QStringLiteral(": not a number");
                return;
            }
            at = qint64(served.toDouble());
        } else {
            const QString text = served.toString();
            const QDateTime t = QDateTime::fromString(text, Qt::ISODateWithMs);
            if (!t.isValid() || !text.endsWith(u'Z')) {
                problems << path + QStringLiteral(": not ISO 8601 UTC: ") + text;
                return;
            }
            at = t.toMSecsSinceEpoch();
        }
        if (at < lo || at > hi)
            problems << path + QStringLiteral(": %1 ms away from now%2%3 ms")
                                   .arg(at - (t0 + offset))
                                   .arg(offset < 0 ? QString() : QStringLiteral("+"))
                                   .arg(offset);
    }
};

void collectStrings(const QJsonValue &v, QStringList &out) {
    if (v.isString()) {
        out << v.toString();
    } else if (v.isArray()) {
        for (const QJsonValue &x : v.toArray())
            collectStrings(x, out);
    } else if (v.isObject()) {
        for (const QJsonValue &x : v.toObject())
            collectStrings(x, out);
    }
}

// ---- The sim process and its HTTP side ----------------------------------------------------

struct HttpResult {
    bool answered = false;
    int status = 0;
    QByteArray body;
    QByteArray contentType;
    qint64 elapsedMs = 0;

    QJsonObject object() const { return QJsonDocument::fromJson(body).object(); }
};

struct Exit {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

class Sim {
public:
    Sim() { m_nam.setProxy(QNetworkProxy::NoProxy); }
    ~Sim() {
        if (m_proc.state() != QProcess::NotRunning) {
            m_proc.kill();
            m_proc.waitForFinished(2000);
        }
    }

    static QProcessEnvironment environment(const QString &home) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *var : {"BRIXD_SIM_SCENARIO", "BRIXD_SIM_FAULT", "BRIXD_SIM_SYNC_SKIP",
                                "QUON_BRIX_ADMIN_PORT"})
            env.remove(QLatin1String(var));
        env.insert(QStringLiteral("HOME"), home);
        return env;
    }

    // `brixd-sim run` with `args` (on any free port unless the arguments or the environment
    // name one); true once it says where it serves.
    bool start(QStringList args, const EnvVars &env = {}) {
        QProcessEnvironment e = environment(home.path());
        for (auto it = env.begin(); it != env.end(); ++it)
            e.insert(it.key(), it.value());
        if (!args.contains(QStringLiteral("--port")) &&
            !e.contains(QStringLiteral("QUON_BRIX_ADMIN_PORT")))
            args << QStringLiteral("--port") << QStringLiteral("0");
        m_proc.setProcessEnvironment(e);
        m_proc.setReadChannel(QProcess::StandardError);
        startedAtMs = nowMs();
        m_proc.start(simBin, QStringList{QStringLiteral("run")} + args);
        static const QRegularExpression serving(
            QStringLiteral("serving scenario \\S+ on http://127\\.0\\.0\\.1:(\\d+)"));
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 10000) {
            const QRegularExpressionMatch m = serving.match(QString::fromUtf8(log()));
            if (m.hasMatch()) {
                port = quint16(m.captured(1).toUInt());
                return true;
            }
            if (m_proc.state() == QProcess::NotRunning)
                return false;
            m_proc.waitForReadyRead(100);
        }
        return false;
    }

    QByteArray log() {
        m_log += m_proc.readAllStandardError();
        return m_log;
    }

    // Waits for more log output for up to `ms`.
    QByteArray logAfter(int ms) {
        m_proc.waitForReadyRead(ms);
        return log();
    }

    HttpResult request(const QByteArray &method, const QString &path, const QByteArray &body = {},
                       int timeoutMs = 5000) {
        QNetworkReply *reply = send(method, path, body);
        return await(reply, timeoutMs);
    }

    HttpResult get(const QString &path, int timeoutMs = 5000) {
        return request("GET", path, {}, timeoutMs);
    }
    HttpResult post(const QString &path, const QByteArray &body = {}, int timeoutMs = 5000) {
        return request("POST", path, body, timeoutMs);
    }

    QNetworkReply *send(const QByteArray &method, const QString &path,
                        const QByteArray &body = {}) {
        QNetworkRequest req(QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path)));
        req.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
        return m_nam.sendCustomRequest(req, method, body);
    }

    static HttpResult await(QNetworkReply *reply, int timeoutMs) {
        QElapsedTimer t;
        t.start();
        if (!reply->isFinished()) {
            QEventLoop loop;
            QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
            QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
            loop.exec();
        }
        HttpResult r;
        r.elapsedMs = t.elapsed();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        r.answered = reply->isFinished() && status.isValid();
        if (r.answered) {
            r.status = status.toInt();
            r.body = reply->readAll();
            r.contentType = reply->header(QNetworkRequest::ContentTypeHeader).toByteArray();
        } else {
            reply->abort();
        }
        reply->deleteLater();
        return r;
    }

    // The served status, decoded the way the app decodes it; fails the test when it does not.
    std::optional<DaemonStatus> status() {
        const HttpResult r = get(QStringLiteral("/status"));
        QString why;
        std::optional<DaemonStatus> s = json::decode<DaemonStatus>(r.body, &why);
        if (!r.answered || r.status != 200 || !s)
            qWarning("status not readable (%d): %s", r.status, qPrintable(why));
        return s;
    }

    // Sends a signal; the exit code, or -1 when it did not end normally within `withinMs`.
    int stop(int signalNumber = SIGTERM, int withinMs = 2000) {
        ::kill(pid_t(m_proc.processId()), signalNumber);
        if (!m_proc.waitForFinished(withinMs) || m_proc.exitStatus() != QProcess::NormalExit)
            return -1;
        log();
        return m_proc.exitCode();
    }

    QTemporaryDir home;
    quint16 port = 0;
    qint64 startedAtMs = 0;

private:
    QProcess m_proc;
    QNetworkAccessManager m_nam;
    QByteArray m_log;
};

Exit runOnce(const QStringList &args, const EnvVars &env, const QString &home) {
    QProcess p;
    QProcessEnvironment e = Sim::environment(home);
    for (auto it = env.begin(); it != env.end(); ++it)
        e.insert(it.key(), it.value());
    p.setProcessEnvironment(e);
    p.start(simBin, args);
    if (!p.waitForFinished(5000)) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

const WorkSession *findSession(const DaemonStatus &s, const QString &id) {
    if (!s.workTimers)
        return nullptr;
    for (const WorkSession &w : *s.workTimers) {
        if (w.id == id)
            return &w;
    }
    return nullptr;
}

const WorkSession *sessionWithStatus(const DaemonStatus &s, const QString &status) {
    if (!s.workTimers)
        return nullptr;
    for (const WorkSession &w : *s.workTimers) {
        if (w.status == status)
            return &w;
    }
    return nullptr;
}

} // namespace

class BrixdSimTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void everyScenarioIsServedReadableAndCurrent_data();
    void everyScenarioIsServedReadableAndCurrent();
    void scenariosShowWhatTheyPromise_data();
    void scenariosShowWhatTheyPromise();
    void typicalDayMovesButKeepsItsWindows();

    void timerLifecycle_data();
    void timerLifecycle();
    void timerErrors_data();
    void timerErrors();
    void repeatedIdempotencyKeyIsAppliedOnce();

    void syncReplies_data();
    void syncReplies();
    void signOutClearsEnrollment();
    void handoffTokensAreFreshAndNeverLogged();
    void heartbeats_data();
    void heartbeats();
    void otherRequestsGetJson404_data();
    void otherRequestsGetJson404();

    void adminTokenFile_data();
    void adminTokenFile();
    void faults_data();
    void faults();
    void stopsOnSignal_data();
    void stopsOnSignal();
    void launchedLikeTheSupervisorDoes();
    void commandLine_data();
    void commandLine();

private:
    QTemporaryDir m_scratch;
    // One sim for the tests that leave its state as they found it (errors, heartbeats, 404s).
    std::unique_ptr<Sim> m_shared;
};

void BrixdSimTest::initTestCase() {
    QVERIFY2(QFileInfo::exists(simBin), qPrintable(simBin));
    QVERIFY(m_scratch.isValid());
    m_shared = std::make_unique<Sim>();
    QVERIFY(m_shared->start({QStringLiteral("--scenario"), QStringLiteral("timers-running")}));
}

void BrixdSimTest::cleanupTestCase() {
    if (m_shared)
        QCOMPARE(m_shared->stop(), 0);
}

// ---- Scenarios ----------------------------------------------------------------------------

void BrixdSimTest::everyScenarioIsServedReadableAndCurrent_data() {
    QTest::addColumn<QString>("name");
    const QStringList names = scenarioNames();
    QVERIFY(names.size() >= 5);
    for (const QString &name : names)
        QTest::newRow(qPrintable(name)) << name;
}

void BrixdSimTest::everyScenarioIsServedReadableAndCurrent() {
    QFETCH(QString, name);
    Sim sim;
    // By name: the file in the source tree must also be the one compiled into the binary.
    QVERIFY(sim.start({QStringLiteral("--scenario"), name}));
    const HttpResult r = sim.get(QStringLiteral("/status"));
    const qint64 t1 = nowMs();
    QCOMPARE(r.status, 200);
    QCOMPARE(r.contentType, QByteArrayLiteral("application/json"));
    QString why;
    QVERIFY2(json::decode<DaemonStatus>(r.body, &why), qPrintable(why));

    TimeCheck times{sim.startedAtMs, t1, 0, {}};
    times.walk(scenarioFile(name).value(u"status"), r.object(), QString(),
               QStringLiteral("status"));
    QVERIFY2(times.problems.isEmpty(), qPrintable(times.problems.join(u'\n')));
    QVERIFY2(times.checked > 0, "a scenario without a single relative time goes stale");

    QStringList served;
    collectStrings(r.object(), served);
    static const QRegularExpression leftover(QStringLiteral("^now([+-]|$)"));
    for (const QString &s : served)
        QVERIFY2(!leftover.match(s).hasMatch(), qPrintable(QStringLiteral("unresolved: ") + s));
}

void BrixdSimTest::scenariosShowWhatTheyPromise_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("enrolled");
    QTest::addColumn<int>("openTimers");
    // Highest usedPercent among fresh provider readings, as the icon grades it; -1 for none.
    QTest::addColumn<double>("highestAtLeast");
    QTest::addColumn<double>("highestBelow");
    QTest::addColumn<int>("staleReadings");
    QTest::addColumn<int>("scopedReadings");
    QTest::addColumn<int>("resetTickets"); // -1: no reading
    QTest::addColumn<QString>("alert");    // empty: none
    QTest::addColumn<int>("sharedProjects");
    QTest::addColumn<int>("consentProjects");

    QTest::newRow("fresh-install") << QStringLiteral("fresh-install") << false << 0 << -1.0 << -1.0
                                   << 0 << 0 << -1 << QString() << 0 << 0;
    QTest::newRow("typical-day") << QStringLiteral("typical-day") << false << 0 << 1.0 << 80.0 << 0
                                 << 0 << 1 << QStringLiteral("ok") << 0 << 2;
    QTest::newRow("near-limits") << QStringLiteral("near-limits") << false << 0 << 95.0 << 100.01
                                 << 1 << 1 << 2 << QStringLiteral("warn") << 0 << 2;
    QTest::newRow("timers-running") << QStringLiteral("timers-running") << false << 2 << 1.0 << 80.0
                                    << 0 << 0 << -1 << QString() << 0 << 0;
    QTest::newRow("signed-in-sharing") << QStringLiteral("signed-in-sharing") << true << 0 << 1.0
                                       << 80.0 << 0 << 0 << -1 << QStringLiteral("ok") << 2 << 4;
}

void BrixdSimTest::scenariosShowWhatTheyPromise() {
    QFETCH(QString, name);
    QFETCH(bool, enrolled);
    QFETCH(int, openTimers);
    QFETCH(double, highestAtLeast);
    QFETCH(double, highestBelow);
    QFETCH(int, staleReadings);
    QFETCH(int, scopedReadings);
    QFETCH(int, resetTickets);
    QFETCH(QString, alert);
    QFETCH(int, sharedProjects);
    QFETCH(int, consentProjects);

    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), name}));
    const std::optional<DaemonStatus> s = sim.status();
    QVERIFY(s);

    QCOMPARE(s->enrolled, enrolled);
    QCOMPARE(s->orgId.has_value(), enrolled);
    QCOMPARE(qsizetype(s->workTimers.value_or(std::vector<WorkSession>{}).size()), openTimers);
    QCOMPARE(s->workTimer.has_value(), openTimers > 0);

    double highest = -1;
    int stale = 0;
    int scoped = 0;
    for (const ProviderLimitSnapshot &p :
         s->providerLimits.value_or(std::vector<ProviderLimitSnapshot>{})) {
        if (p.stale.value_or(false))
            ++stale;
        else
            highest = std::max(highest, p.usedPercent);
        if (p.window == u"week_scoped" && p.scopeLabel && !p.scopeLabel->isEmpty())
            ++scoped;
    }
    if (highestAtLeast < 0) {
        QVERIFY(!s->providerLimits || s->providerLimits->empty());
    } else {
        QVERIFY2(highest >= highestAtLeast && highest < highestBelow,
                 qPrintable(QString::number(highest)));
    }
    QCOMPARE(stale, staleReadings);
    QCOMPARE(scoped, scopedReadings);
    QCOMPARE(s->codexResetCredits ? int(s->codexResetCredits->availableCount.value_or(0)) : -1,
             resetTickets);
    QCOMPARE(s->alert ? s->alert->state : QString(), alert);
    int shared = 0;
    for (const ProjectConsent &c : s->consent.projects)
        shared += c.shared ? 1 : 0;
    QCOMPARE(shared, sharedProjects);
    QCOMPARE(int(s->consent.projects.size()), consentProjects);
    if (enrolled) {
        QVERIFY(s->consent.master.shared);
        QVERIFY(s->lastPushAt && *s->lastPushAt < double(nowMs()) &&
                *s->lastPushAt > double(nowMs() - 3600 * 1000));
    }
}

void BrixdSimTest::typicalDayMovesButKeepsItsWindows() {
    Sim sim;
    QVERIFY(sim.start({})); // the default scenario
    QVERIFY(sim.log().contains("serving scenario typical-day"));
    const std::optional<DaemonStatus> first = sim.status();
    QTest::qWait(400);
    const std::optional<DaemonStatus> second = sim.status();
    QVERIFY(first && second);
    // A watcher sees the figures move…
    QVERIFY2(second->tokens > first->tokens, qPrintable(QString::number(second->tokens)));
    QVERIFY(second->claudeCode > first->claudeCode);
    QVERIFY(second->estCost > first->estCost);
    // …while what the app keys its notifications on stays put from poll to poll.
    QVERIFY(first->currentWindow && second->currentWindow);
    QCOMPARE(second->currentWindow->start, first->currentWindow->start);
    QVERIFY(first->providerLimits && second->providerLimits);
    QCOMPARE(second->providerLimits->size(), first->providerLimits->size());
    for (size_t i = 0; i < first->providerLimits->size(); ++i)
        QCOMPARE(second->providerLimits->at(i).resetsAtMs, first->providerLimits->at(i).resetsAtMs);
}

// ---- Work timers --------------------------------------------------------------------------

void BrixdSimTest::timerLifecycle_data() {
    QTest::addColumn<QString>("finish");
    QTest::addColumn<QString>("finalStatus");
    QTest::addColumn<bool>("completedAt");
    QTest::newRow("complete") << QStringLiteral("complete") << QStringLiteral("completed") << true;
    QTest::newRow("cancel") << QStringLiteral("cancel") << QStringLiteral("cancelled") << false;
}

void BrixdSimTest::timerLifecycle() {
    QFETCH(QString, finish);
    QFETCH(QString, finalStatus);
    QFETCH(bool, completedAt);

    // Alongside the scenario's two open timers, the running one of them being current.
    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("timers-running")}));
    std::optional<DaemonStatus> s = sim.status();
    QVERIFY(s && s->workTimers && s->workTimer);
    const size_t openBefore = s->workTimers->size();
    const QString currentBefore = s->workTimer->id;
    QCOMPARE(s->workTimer->status, QStringLiteral("running"));

    HttpResult r = sim.post(QStringLiteral("/worklogs/command"),
                            command(QStringLiteral("start"), {}, QStringLiteral("  Client A\n")));
    QCOMPARE(r.status, 200);
    std::optional<WorkTimerCommandResponse> reply = json::decode<WorkTimerCommandResponse>(r.body);
    QVERIFY(reply && reply->session);
    const QString id = reply->session->id;
    QVERIFY(id.startsWith(u"ws_"));
    QCOMPARE(reply->session->projectLabel, QStringLiteral("Client A"));

    struct Step {
        QString action; // empty: just after start
        QString status;
        size_t segments;
        bool lastSegmentOpen;
    };
    const Step steps[] = {
        {QString(), QStringLiteral("running"), 1, true},
        {QStringLiteral("pause"), QStringLiteral("paused"), 1, false},
        {QStringLiteral("resume"), QStringLiteral("running"), 2, true},
    };
    qint64 revision = 0;
    for (const Step &step : steps) {
        const QByteArray stepName =
            (step.action.isEmpty() ? QStringLiteral("start") : step.action).toUtf8();
        if (!step.action.isEmpty())
            QCOMPARE(sim.post(QStringLiteral("/worklogs/command"), command(step.action, id)).status,
                     200);
        s = sim.status();
        QVERIFY(s);
        const WorkSession *w = findSession(*s, id);
        QVERIFY2(w, stepName.constData());
        QCOMPARE(w->status, step.status);
        QCOMPARE(w->segments.size(), step.segments);
        QCOMPARE(!w->segments.back().endedAt.has_value(), step.lastSegmentOpen);
        QVERIFY2(w->revision > revision, stepName.constData());
        revision = w->revision;
        QVERIFY(!w->segments.front().timeZone.isEmpty());
        QCOMPARE(s->workTimers->size(), openBefore + 1);
        QVERIFY(s->workTimer && s->workTimer->id == id);
        // Every segment but a running one has ended, and stamps never run backwards.
        for (const WorkSegment &seg : w->segments) {
            const QDateTime started = QDateTime::fromString(seg.startedAt, Qt::ISODateWithMs);
            QVERIFY(started.isValid());
            if (seg.endedAt)
                QVERIFY(QDateTime::fromString(*seg.endedAt, Qt::ISODateWithMs) >= started);
        }
    }

    r = sim.post(QStringLiteral("/worklogs/command"), command(finish, id));
    QCOMPARE(r.status, 200);
    reply = json::decode<WorkTimerCommandResponse>(r.body);
    QVERIFY(reply && reply->session);
    QCOMPARE(reply->session->status, finalStatus);
    QCOMPARE(reply->session->completedAt.has_value(), completedAt);
    for (const WorkSegment &seg : reply->session->segments)
        QVERIFY(seg.endedAt);
    // Gone from the list the popover shows; the timer touched before it is current again.
    s = sim.status();
    QVERIFY(s && s->workTimers);
    QCOMPARE(s->workTimers->size(), openBefore);
    QVERIFY(!findSession(*s, id));
    QVERIFY(s->workTimer);
    QCOMPARE(s->workTimer->id, currentBefore);
    // A finished session cannot be picked up again.
    r = sim.post(QStringLiteral("/worklogs/command"), command(QStringLiteral("resume"), id));
    QCOMPARE(r.status, 409);
    QVERIFY(sim.log().contains("timer " + finish.toUtf8()));
}

void BrixdSimTest::timerErrors_data() {
    QTest::addColumn<QByteArray>("body"); // {running} and {paused} name the scenario's sessions
    QTest::addColumn<int>("httpStatus");
    QTest::addColumn<QString>("errorCode");

    const auto cmd = [](const char *action, const char *session, const char *label = nullptr) {
        return command(QString::fromLatin1(action),
                       session ? QString::fromLatin1(session) : QString(),
                       label ? QString::fromUtf8(label) : QString());
    };
    QTest::newRow("unknown session")
        << cmd("pause", "ws_nobody") << 404 << QStringLiteral("not-found");
    QTest::newRow("pause a paused timer")
        << cmd("pause", "{paused}") << 409 << QStringLiteral("invalid-transition");
    QTest::newRow("resume a running timer")
        << cmd("resume", "{running}") << 409 << QStringLiteral("invalid-transition");
    QTest::newRow("start with a blank label")
        << cmd("start", nullptr, " \n\t ") << 400 << QStringLiteral("invalid-request");
    QTest::newRow("start without a label")
        << cmd("start", nullptr) << 400 << QStringLiteral("invalid-request");
    QTest::newRow("pause without a session")
        << cmd("pause", nullptr) << 400 << QStringLiteral("invalid-request");
    QTest::newRow("unknown action")
        << cmd("snooze", "{running}") << 400 << QStringLiteral("unknown-action");
    QTest::newRow("no idempotency key")
        << QByteArray(R"({"action":"pause","workSessionId":"{running}"})") << 400
        << QStringLiteral("invalid-request");
    QTest::newRow("not JSON") << QByteArray("{\"action\": pause") << 400
                              << QStringLiteral("invalid-request");
    QTest::newRow("JSON but not an object")
        << QByteArray("[1,2]") << 400 << QStringLiteral("invalid-request");
    QTest::newRow("empty body") << QByteArray() << 400 << QStringLiteral("invalid-request");
}

void BrixdSimTest::timerErrors() {
    QFETCH(QByteArray, body);
    QFETCH(int, httpStatus);
    QFETCH(QString, errorCode);

    const std::optional<DaemonStatus> before = m_shared->status();
    QVERIFY(before);
    const WorkSession *running = sessionWithStatus(*before, QStringLiteral("running"));
    const WorkSession *paused = sessionWithStatus(*before, QStringLiteral("paused"));
    QVERIFY(running && paused);
    body.replace("{running}", running->id.toUtf8()).replace("{paused}", paused->id.toUtf8());

    const HttpResult r = m_shared->post(QStringLiteral("/worklogs/command"), body);
    QCOMPARE(r.status, httpStatus);
    QCOMPARE(r.contentType, QByteArrayLiteral("application/json"));
    const std::optional<WorkTimerErrorResponse> error =
        json::decode<WorkTimerErrorResponse>(r.body);
    QVERIFY(error);
    QCOMPARE(error->errorCode.value_or(QString()), errorCode);
    QVERIFY(!error->message.value_or(QString()).isEmpty());

    // A refused command leaves every timer as it was.
    const std::optional<DaemonStatus> after = m_shared->status();
    QVERIFY(after && after->workTimers);
    QCOMPARE(*after->workTimers, *before->workTimers);
    QCOMPARE(after->workTimer, before->workTimer);
}

void BrixdSimTest::repeatedIdempotencyKeyIsAppliedOnce() {
    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("fresh-install")}));
    const QString startKey = newKey();
    const QByteArray start =
        command(QStringLiteral("start"), {}, QStringLiteral("Client B"), startKey);
    const HttpResult first = sim.post(QStringLiteral("/worklogs/command"), start);
    const HttpResult again = sim.post(QStringLiteral("/worklogs/command"), start);
    QCOMPARE(first.status, 200);
    QCOMPARE(again.status, 200);
    QCOMPARE(again.body, first.body);
    std::optional<DaemonStatus> s = sim.status();
    QVERIFY(s && s->workTimers);
    QCOMPARE(s->workTimers->size(), size_t(1));
    const QString id = s->workTimers->front().id;

    // A retried pause is answered as the first one was, not refused as a second pause.
    const QByteArray pause = command(QStringLiteral("pause"), id, {}, newKey());
    const HttpResult paused = sim.post(QStringLiteral("/worklogs/command"), pause);
    const HttpResult retried = sim.post(QStringLiteral("/worklogs/command"), pause);
    QCOMPARE(paused.status, 200);
    QCOMPARE(retried.status, 200);
    QCOMPARE(retried.body, paused.body);
    s = sim.status();
    QVERIFY(s && s->workTimers && s->workTimers->size() == 1);
    QCOMPARE(s->workTimers->front().revision, qint64(2));
    QCOMPARE(s->workTimers->front().status, QStringLiteral("paused"));
    // The same pause under a new key is a real second pause.
    QCOMPARE(
        sim.post(QStringLiteral("/worklogs/command"), command(QStringLiteral("pause"), id)).status,
        409);
}

// ---- Sync, sign-out, handoff, attention ---------------------------------------------------

void BrixdSimTest::syncReplies_data() {
    QTest::addColumn<QString>("scenario"); // a name, or "sharing-paused" for a file made here
    QTest::addColumn<QString>("forcedSkip");
    QTest::addColumn<QString>("skipped"); // empty: a push
    QTest::addColumn<bool>("ok");
    QTest::addColumn<bool>("collectsFirst");

    QTest::newRow("not signed in") << QStringLiteral("fresh-install") << QString()
                                   << QStringLiteral("not-enrolled") << true << true;
    QTest::newRow("signed in, sharing on")
        << QStringLiteral("signed-in-sharing") << QString() << QString() << true << true;
    QTest::newRow("signed in, sharing paused") << QStringLiteral("sharing-paused") << QString()
                                               << QStringLiteral("consent-off") << true << true;
    QTest::newRow("forced busy") << QStringLiteral("signed-in-sharing") << QStringLiteral("busy")
                                 << QStringLiteral("busy") << true << false;
    QTest::newRow("forced error") << QStringLiteral("typical-day") << QStringLiteral("error")
                                  << QStringLiteral("error") << false << false;
    QTest::newRow("forced unknown code")
        << QStringLiteral("typical-day") << QStringLiteral("consent-on")
        << QStringLiteral("consent-on") << true << false;
}

void BrixdSimTest::syncReplies() {
    QFETCH(QString, scenario);
    QFETCH(QString, forcedSkip);
    QFETCH(QString, skipped);
    QFETCH(bool, ok);
    QFETCH(bool, collectsFirst);

    if (scenario == u"sharing-paused") {
        QJsonObject file = scenarioFile(QStringLiteral("signed-in-sharing"));
        QJsonObject status = file.value(u"status").toObject();
        QJsonObject consent = status.value(u"consent").toObject();
        consent.insert(QStringLiteral("master"),
                       QJsonObject{{QStringLiteral("shared"), false},
                                   {QStringLiteral("grain"), QStringLiteral("daily")}});
        status.insert(QStringLiteral("consent"), consent);
        file.insert(QStringLiteral("status"), status);
        scenario = m_scratch.filePath(QStringLiteral("sharing-paused.json"));
        QFile f(scenario);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QJsonDocument(file).toJson());
    }
    EnvVars env;
    if (!forcedSkip.isEmpty())
        env.insert(QStringLiteral("BRIXD_SIM_SYNC_SKIP"), forcedSkip);
    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), scenario}, env));
    const std::optional<DaemonStatus> before = sim.status();
    QVERIFY(before);

    const qint64 syncedFrom = nowMs();
    std::optional<SyncResult> firstSync, secondSync;
    for (std::optional<SyncResult> *sync : {&firstSync, &secondSync}) {
        const HttpResult r = sim.post(QStringLiteral("/sync"));
        QCOMPARE(r.status, 200);
        *sync = json::decode<SyncResult>(r.body);
        QVERIFY(*sync);
        QCOMPARE((*sync)->ok, ok);
        QCOMPARE((*sync)->skipped.value_or(QString()), skipped);
    }
    QCOMPARE(firstSync->collected > 0, collectsFirst);
    QCOMPARE(secondSync->collected, qint64(0));
    const std::optional<DaemonStatus> after = sim.status();
    QVERIFY(after);
    if (skipped.isEmpty()) {
        // Synced N rows, then already up to date; the push shows as just now.
        QVERIFY(firstSync->pushed > 0);
        QCOMPARE(secondSync->pushed, qint64(0));
        QVERIFY(after->lastPushAt && *after->lastPushAt >= double(syncedFrom) &&
                *after->lastPushAt <= double(nowMs()));
        QCOMPARE(secondSync->lastPushAt, after->lastPushAt);
    } else {
        QCOMPARE(firstSync->pushed, qint64(0));
        QCOMPARE(secondSync->pushed, qint64(0));
        QCOMPARE(after->lastPushAt, before->lastPushAt);
    }
    QVERIFY(sim.log().contains("POST /sync"));
}

void BrixdSimTest::signOutClearsEnrollment() {
    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("signed-in-sharing")}));
    std::optional<DaemonStatus> s = sim.status();
    QVERIFY(s && s->enrolled && s->orgId);

    const HttpResult r = sim.post(QStringLiteral("/enroll/clear"));
    QCOMPARE(r.status, 200);
    QCOMPARE(r.object().value(u"ok"), QJsonValue(true));
    s = sim.status();
    QVERIFY(s);
    QVERIFY(!s->enrolled);
    QVERIFY(!s->orgId);
    const std::optional<SyncResult> sync =
        json::decode<SyncResult>(sim.post(QStringLiteral("/sync")).body);
    QVERIFY(sync);
    QCOMPARE(sync->skipped.value_or(QString()), QStringLiteral("not-enrolled"));
}

void BrixdSimTest::handoffTokensAreFreshAndNeverLogged() {
    const qint64 before = nowMs();
    const HttpResult a = m_shared->post(QStringLiteral("/local-view/handoff"));
    const HttpResult b = m_shared->post(QStringLiteral("/local-view/handoff"));
    const qint64 after = nowMs();
    QCOMPARE(a.status, 200);
    QCOMPARE(b.status, 200);
    const std::optional<LocalViewHandoff> first = json::decode<LocalViewHandoff>(a.body);
    const std::optional<LocalViewHandoff> second = json::decode<LocalViewHandoff>(b.body);
    QVERIFY(first && second);
    QVERIFY(first->handoff != second->handoff);
    static const QRegularExpression urlSafe(QStringLiteral("^[A-Za-z0-9_-]{32,}$"));
    QVERIFY2(urlSafe.match(first->handoff).hasMatch(), qPrintable(first->handoff));
    QVERIFY(first->expiresAt >= double(before + 59000) &&
            first->expiresAt <= double(after + 61000));

    const QByteArray log = m_shared->logAfter(100);
    QVERIFY(log.contains("handoff"));
    QVERIFY(!log.contains(first->handoff.toUtf8()));
    QVERIFY(!log.contains(second->handoff.toUtf8()));
}

void BrixdSimTest::heartbeats_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("httpStatus");
    QTest::addColumn<qint64>("addedSeconds");
    QTest::addColumn<qint64>("addedSamples");

    const QByteArray ts = QByteArray::number(nowMs());
    QTest::newRow("active")
        << QByteArray(R"({"active":true,"foregroundName":"Editor","idleSeconds":3,"ts":)" + ts +
                      "}")
        << 204 << qint64(15) << qint64(1);
    QTest::newRow("active, nothing in front")
        << QByteArray(R"({"active":true,"idleSeconds":0,"ts":)" + ts + "}") << 204 << qint64(15)
        << qint64(1);
    QTest::newRow("idle") << QByteArray(R"({"active":false,"idleSeconds":300,"ts":)" + ts + "}")
                          << 204 << qint64(0) << qint64(0);
    QTest::newRow("no time stamp")
        << QByteArray(R"({"active":true,"idleSeconds":3})") << 400 << qint64(0) << qint64(0);
    QTest::newRow("active as text") << QByteArray(R"({"active":"yes","idleSeconds":3,"ts":1})")
                                    << 400 << qint64(0) << qint64(0);
    QTest::newRow("not JSON") << QByteArray("active=1") << 400 << qint64(0) << qint64(0);
}

void BrixdSimTest::heartbeats() {
    QFETCH(QByteArray, body);
    QFETCH(int, httpStatus);
    QFETCH(qint64, addedSeconds);
    QFETCH(qint64, addedSamples);

    const std::optional<DaemonStatus> before = m_shared->status();
    QVERIFY(before);
    const AttentionDay was = before->attention.value_or(AttentionDay{});
    const qint64 sentAt = nowMs();
    const HttpResult r = m_shared->post(QStringLiteral("/attention/heartbeat"), body);
    QCOMPARE(r.status, httpStatus);
    if (httpStatus >= 400)
        QVERIFY(json::decode<WorkTimerErrorResponse>(r.body)
                    .value_or(WorkTimerErrorResponse{})
                    .errorCode);

    const std::optional<DaemonStatus> after = m_shared->status();
    QVERIFY(after);
    const AttentionDay now = after->attention.value_or(AttentionDay{});
    QCOMPARE(now.activeSeconds - was.activeSeconds, addedSeconds);
    QCOMPARE(now.activeSamples - was.activeSamples, addedSamples);
    if (addedSamples > 0) {
        QVERIFY(now.lastActiveAt && now.firstActiveAt);
        const QDateTime last = QDateTime::fromString(*now.lastActiveAt, Qt::ISODateWithMs);
        const QDateTime first = QDateTime::fromString(*now.firstActiveAt, Qt::ISODateWithMs);
        QVERIFY(last.toMSecsSinceEpoch() >= sentAt - 1 && last.toMSecsSinceEpoch() <= nowMs());
        QCOMPARE(now.spanSeconds, first.secsTo(last));
        QVERIFY(!now.period.isEmpty());
    } else {
        QCOMPARE(now, was);
    }
}

void BrixdSimTest::otherRequestsGetJson404_data() {
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::newRow("unknown path") << QByteArray("GET") << QStringLiteral("/metrics");
    QTest::newRow("status by POST") << QByteArray("POST") << QStringLiteral("/status");
    QTest::newRow("sync by GET") << QByteArray("GET") << QStringLiteral("/sync");
    QTest::newRow("trailing slash") << QByteArray("GET") << QStringLiteral("/status/");
    QTest::newRow("DELETE") << QByteArray("DELETE") << QStringLiteral("/worklogs/command");
}

void BrixdSimTest::otherRequestsGetJson404() {
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    const HttpResult r = m_shared->request(method, path);
    QCOMPARE(r.status, 404);
    QCOMPARE(r.contentType, QByteArrayLiteral("application/json"));
    QCOMPARE(r.object().value(u"errorCode").toString(), QStringLiteral("not-found"));
}

// ---- Process: token file, faults, signals, command line -----------------------------------

void BrixdSimTest::adminTokenFile_data() {
    QTest::addColumn<bool>("leftovers");
    QTest::newRow("fresh home") << false;
    QTest::newRow("loose directory and old token") << true;
}

void BrixdSimTest::adminTokenFile() {
    QFETCH(bool, leftovers);
    Sim sim;
    const QString dir = sim.home.filePath(QStringLiteral(".quon-brix"));
    const QString path = dir + QStringLiteral("/admin-token");
    if (leftovers) {
        QVERIFY(QDir().mkdir(dir));
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("old-token\n");
        old.close();
        QVERIFY(QFile::setPermissions(dir, QFile::Permissions(0x7755)));
        QVERIFY(QFile::setPermissions(path, QFile::Permissions(0x6644)));
    }
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("fresh-install")}));

    QCOMPARE(QFileInfo(dir).permissions() & QFile::Permissions(0x7077),
             QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QCOMPARE(QFileInfo(path).permissions() & QFile::Permissions(0x7077),
             QFile::ReadOwner | QFile::WriteOwner);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray token = file.readAll().trimmed();
    QVERIFY(token.size() >= 32);
    QVERIFY(token != "old-token");
    QVERIFY(!sim.log().contains(token));
    // Nothing but the token file is left behind (no temporary copies).
    QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("admin-token")});
}

void BrixdSimTest::faults_data() {
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("viaEnvironment");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("httpStatus"); // 0: no answer expected

    QTest::newRow("500 on status")
        << QStringLiteral("500") << false << QByteArray("GET") << QStringLiteral("/status") << 500;
    QTest::newRow("500 on sync") << QStringLiteral("500") << true << QByteArray("POST")
                                 << QStringLiteral("/sync") << 500;
    QTest::newRow("garbage on status") << QStringLiteral("garbage") << true << QByteArray("GET")
                                       << QStringLiteral("/status") << 200;
    QTest::newRow("hang on status")
        << QStringLiteral("hang") << false << QByteArray("GET") << QStringLiteral("/status") << 0;
    QTest::newRow("hang on handoff") << QStringLiteral("hang") << true << QByteArray("POST")
                                     << QStringLiteral("/local-view/handoff") << 0;
    QTest::newRow("slow status") << QStringLiteral("slow=0.5") << false << QByteArray("GET")
                                 << QStringLiteral("/status") << 200;
}

void BrixdSimTest::faults() {
    QFETCH(QString, fault);
    QFETCH(bool, viaEnvironment);
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(int, httpStatus);

    Sim sim;
    QStringList args{QStringLiteral("--scenario"), QStringLiteral("typical-day")};
    EnvVars env;
    if (viaEnvironment)
        env.insert(QStringLiteral("BRIXD_SIM_FAULT"), fault);
    else
        args << QStringLiteral("--fault") << fault;
    QVERIFY(sim.start(args, env));
    QVERIFY(sim.log().contains("with fault " + fault.toUtf8()));

    if (httpStatus == 0) {
        const HttpResult r = sim.request(method, path, {}, 1000);
        QVERIFY2(!r.answered, r.body.constData());
        // Held, not dropped: the sim is still alive and still stops cleanly.
        QCOMPARE(sim.stop(), 0);
        return;
    }
    if (fault.startsWith(u"slow=")) {
        // Two at once: each waits its half second, neither waits for the other.
        QElapsedTimer both;
        both.start();
        QNetworkReply *one = sim.send(method, path);
        QNetworkReply *two = sim.send(method, path);
        const HttpResult a = Sim::await(one, 5000);
        const HttpResult b = Sim::await(two, 5000);
        const qint64 total = both.elapsed();
        for (const HttpResult &r : {a, b}) {
            QCOMPARE(r.status, 200);
            QVERIFY(json::decode<DaemonStatus>(r.body));
        }
        QVERIFY2(total >= 500, qPrintable(QString::number(total)));
        QVERIFY2(total < 950, qPrintable(QString::number(total)));
        return;
    }
    const HttpResult r = sim.request(method, path);
    QVERIFY(r.answered);
    QCOMPARE(r.status, httpStatus);
    QVERIFY(!json::decode<DaemonStatus>(r.body));
    QVERIFY(!json::decode<SyncResult>(r.body));
    if (fault == u"500")
        QCOMPARE(r.object().value(u"error").toString(), QStringLiteral("simulated failure"));
    else
        QVERIFY(QJsonDocument::fromJson(r.body).isNull());
}

void BrixdSimTest::stopsOnSignal_data() {
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void BrixdSimTest::stopsOnSignal() {
    QFETCH(int, signalNumber);
    Sim sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("timers-running")}));
    QVERIFY(sim.status());
    QElapsedTimer t;
    t.start();
    QCOMPARE(sim.stop(signalNumber, 2000), 0);
    QVERIFY(t.elapsed() < 2000);
    // The port is free again.
    QTcpServer again;
    QVERIFY(again.listen(QHostAddress::LocalHost, sim.port));
}

void BrixdSimTest::launchedLikeTheSupervisorDoes() {
    // `run` and nothing else: scenario, fault and port all come from the environment.
    const quint16 port = freePort();
    Sim sim;
    QVERIFY(sim.start({}, {{QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(port)},
                           {QStringLiteral("BRIXD_SIM_SCENARIO"), QStringLiteral("near-limits")},
                           {QStringLiteral("BRIXD_SIM_FAULT"), QStringLiteral("slow=0.2")}}));
    QCOMPARE(sim.port, port);
    QVERIFY(sim.log().contains("serving scenario near-limits"));
    const HttpResult r = sim.get(QStringLiteral("/status"));
    QCOMPARE(r.status, 200);
    QVERIFY(r.elapsedMs >= 200);
    const std::optional<DaemonStatus> s = json::decode<DaemonStatus>(r.body);
    QVERIFY(s && s->alert);
    QCOMPARE(s->alert->state, QStringLiteral("warn"));
}

void BrixdSimTest::commandLine_data() {
    QTest::addColumn<QStringList>("args"); // "{busy}" is a port something else listens on
    QTest::addColumn<EnvVars>("env");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("stderrHas"); // the one line on stderr contains this
    QTest::addColumn<QByteArray>("stdoutHas");

    const QString brokenPlaceholder = m_scratch.filePath(QStringLiteral("broken-time.json"));
    {
        QJsonObject file = scenarioFile(QStringLiteral("typical-day"));
        QJsonObject status = file.value(u"status").toObject();
        status.insert(QStringLiteral("lastPushAt"), QStringLiteral("now+2x"));
        file.insert(QStringLiteral("status"), status);
        QFile f(brokenPlaceholder);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QJsonDocument(file).toJson());
    }
    const QString noConsent = m_scratch.filePath(QStringLiteral("no-consent.json"));
    {
        QJsonObject file = scenarioFile(QStringLiteral("fresh-install"));
        QJsonObject status = file.value(u"status").toObject();
        status.remove(QStringLiteral("consent"));
        file.insert(QStringLiteral("status"), status);
        QFile f(noConsent);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QJsonDocument(file).toJson());
    }
    const EnvVars none;
    const auto run = [](std::initializer_list<const char *> rest) {
        QStringList args{QStringLiteral("run")};
        for (const char *a : rest)
            args << QString::fromUtf8(a);
        return args;
    };

    QTest::newRow("port in use") << run({"--port", "{busy}"}) << none << 1 << QByteArray("{busy}")
                                 << QByteArray();
    QTest::newRow("unknown scenario") << run({"--scenario", "busy-monday"}) << none << 1
                                      << QByteArray("busy-monday") << QByteArray();
    QTest::newRow("missing scenario file")
        << run({"--scenario", "/nonexistent/x.json"}) << none << 1
        << QByteArray("/nonexistent/x.json") << QByteArray();
    QTest::newRow("malformed time placeholder")
        << QStringList{QStringLiteral("run"), QStringLiteral("--scenario"), brokenPlaceholder}
        << none << 1 << QByteArray("now+2x") << QByteArray();
    QTest::newRow("status without consent")
        << QStringList{QStringLiteral("run"), QStringLiteral("--scenario"), noConsent} << none << 1
        << QByteArray("consent") << QByteArray();
    QTest::newRow("unknown fault")
        << run({"--fault", "sometimes"}) << none << 2 << QByteArray("sometimes") << QByteArray();
    QTest::newRow("slow without seconds")
        << run({"--fault", "slow="}) << none << 2 << QByteArray("slow=") << QByteArray();
    QTest::newRow("unknown fault from the environment")
        << run({}) << EnvVars{{QStringLiteral("BRIXD_SIM_FAULT"), QStringLiteral("flaky")}} << 2
        << QByteArray("flaky") << QByteArray();
    QTest::newRow("port not a number")
        << run({"--port", "eighty"}) << none << 2 << QByteArray("eighty") << QByteArray();
    QTest::newRow("port out of range from the environment")
        << run({}) << EnvVars{{QStringLiteral("QUON_BRIX_ADMIN_PORT"), QStringLiteral("70000")}}
        << 2 << QByteArray("70000") << QByteArray();
    QTest::newRow("unknown option")
        << run({"--frobnicate"}) << none << 2 << QByteArray("frobnicate") << QByteArray();
    QTest::newRow("no command") << QStringList() << none << 2 << QByteArray("command")
                                << QByteArray();
    QTest::newRow("unknown command")
        << QStringList{QStringLiteral("serve")} << none << 2 << QByteArray("serve") << QByteArray();
    QTest::newRow("help") << QStringList{QStringLiteral("--help")} << none << 0 << QByteArray()
                          << QByteArray("brixd-sim run");
    QTest::newRow("list") << QStringList{QStringLiteral("list")} << none << 0 << QByteArray()
                          << QByteArray("typical-day");
}

void BrixdSimTest::commandLine() {
    QFETCH(QStringList, args);
    QFETCH(EnvVars, env);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, stderrHas);
    QFETCH(QByteArray, stdoutHas);

    QTcpServer occupier;
    QVERIFY(occupier.listen(QHostAddress::LocalHost, 0));
    const QString busy = QString::number(occupier.serverPort());
    args.replaceInStrings(QStringLiteral("{busy}"), busy);
    stderrHas.replace("{busy}", busy.toUtf8());

    QTemporaryDir home;
    const Exit e = runOnce(args, env, home.path());
    QCOMPARE(e.code, exitCode);
    if (exitCode == 0) {
        QVERIFY2(e.out.contains(stdoutHas), e.out.constData());
        QVERIFY(e.err.isEmpty());
    } else {
        QCOMPARE(e.err.count('\n'), qsizetype(1));
        QVERIFY2(e.err.startsWith("brixd-sim: ") && e.err.contains(stderrHas), e.err.constData());
        // A sim that could not serve leaves no token behind.
        QVERIFY(!QFileInfo::exists(home.filePath(QStringLiteral(".quon-brix/admin-token"))));
    }
    if (args == QStringList{QStringLiteral("list")}) {
        // One line per scenario file, each with its description.
        const QStringList names = scenarioNames();
        QCOMPARE(e.out.count('\n'), qsizetype(names.size()));
        for (const QString &name : names) {
            const QString description = scenarioFile(name).value(u"description").toString();
            QVERIFY(!description.isEmpty());
            QVERIFY2(QString::fromUtf8(e.out).contains(name + QStringLiteral("  ")) &&
                         QString::fromUtf8(e.out).contains(description),
                     qPrintable(name));
        }
    }
}

QTEST_GUILESS_MAIN(BrixdSimTest)
#include "test_brixd_sim.moc"
