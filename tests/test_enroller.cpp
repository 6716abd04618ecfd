// Signing in with the device flow against a stand-in account API over real sockets: what the
// person sees (the code, the page, the messages), what the account API receives, what the
// keyring is given and the enrollment file the daemon reads.

#include "account/device_flow_enroller.h"
#include "app/sign_in_process.h"
#include "helpers/log_capture.h"
#include "support/fake_daemon.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <QTimer>
#include <memory>
#include <sys/stat.h>

using namespace quonbrix;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;
using quonbrix::test::LogCapture;

namespace {

// Characters the form encoding must escape ("+", "&", "=", "?", space, non-ASCII) next to ones
// it must keep ("/", ":").
const QString kDeviceCode = u"dc+/&=?:\u00e9 1"_s;
const QByteArray kEncodedDeviceCode = QByteArrayLiteral("dc%2B/%26%3D%3F:%C3%A9%201");
const QString kUserCode = u"WDJB-MJHT"_s;
const QString kAccess = u"at-7f3c9e1d5b"_s;
const QString kRefresh = u"rt-2a8b4c6d0e"_s;
const QString kPage = u"https://quon.example/activate"_s;
const QString kCompletePage = u"https://quon.example/activate?user_code=WDJB-MJHT"_s;

const QString kStart = u"/v1/auth/device/start"_s;
const QString kPoll = u"/v1/auth/device/poll"_s;
const QString kUserInfo = u"/v1/auth/device/userinfo"_s;

QJsonObject startBody() {
    return {{u"device_code"_s, kDeviceCode}, {u"user_code"_s, kUserCode},
            {u"verification_uri"_s, kPage},  {u"verification_uri_complete"_s, kCompletePage},
            {u"expires_in"_s, 600},          {u"interval"_s, 5}};
}

QJsonObject without(QJsonObject o, std::initializer_list<const char *> keys) {
    for (const char *key : keys)
        o.remove(QLatin1String(key));
    return o;
}

QJsonObject with(QJsonObject o, const char *key, const QJsonValue &value) {
    o.insert(QLatin1String(key), value);
    return o;
}

FakeReply tokensReply() {
    return FakeReply::json(QJsonObject{{u"access_token"_s, kAccess},
                                       {u"refresh_token"_s, kRefresh},
                                       {u"token_type"_s, u"Bearer"_s}});
}

FakeReply pollError(const char *error, int status = 400) {
    return FakeReply::json(QJsonObject{{u"error"_s, QLatin1String(error)}}, status);
}

int modeOf(const QString &path) {
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return int(st.st_mode & 07777);
}

QByteArray readAll(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Answers later and on the asking thread, like the keyring; can refuse one account, or hold
// its answers until told.
class FakeTokens final : public TokenStore {
public:
    QStringList accounts; // asked to store, in order
    QHash<QString, QString> secrets;
    QString refuse;
    bool hold = false;
    std::function<void()> held;

    void store(const QString &account, const QString &secret, QObject *context,
               std::function<void(std::optional<QString> error)> done) override {
        accounts << account;
        secrets.insert(account, secret);
        QPointer<QObject> guard(context);
        auto answer = [=, this] {
            if (guard)
                done(account == refuse ? std::optional(tokens::saveFailed) : std::nullopt);
        };
        if (hold)
            held = answer;
        else
            QTimer::singleShot(0, context, answer);
    }
};

// One enroller with everything it talks to: the account API, the keyring, a clock that moves
// only when the flow waits, and a home directory of its own.
struct Harness {
    QTemporaryDir home;
    FakeDaemon api;
    FakeTokens tokens;
    ManualClock clock{QDateTime(QDate(2026, 11, 23), QTime(9, 0), QTimeZone::utc())};
    QList<qint64> waits;
    bool holdWaits = false;
    std::function<void()> heldWait;
    std::unique_ptr<DeviceFlowEnroller> enroller;

    QList<EnrollPrompt> prompts;
    int done = 0;
    QStringList errors;

    // "plain" reaches the fake through an address the local-development rewrite does not
    // recognise, so the server's own page comes through.
    void make(const QString &baseKind = u"plain"_s,
              std::optional<QString> consoleUrl = std::nullopt,
              std::chrono::milliseconds requestTimeout = 15s) {
        QString base = u"http://[::ffff:127.0.0.1]:%1"_s.arg(api.port());
        if (baseKind == u"127.0.0.1"_s)
            base = api.base();
        else if (baseKind == u"localhost"_s)
            base = u"http://localhost:%1"_s.arg(api.port());
        Environment env({{u"HOME"_s, home.path()}, {u"QUON_ACCOUNT_API_BASE"_s, base}});
        if (consoleUrl)
            env.set(u"QUON_CONSOLE_URL"_s, *consoleUrl);
        DeviceFlowEnroller::Options options;
        options.env = env;
        options.tokens = &tokens;
        options.clock = &clock;
        options.requestTimeout = requestTimeout;
        options.wait = [this](std::chrono::seconds delay, QObject *context,
                              std::function<void()> then) {
            waits << delay.count();
            clock.set(clock.now().addSecs(delay.count()));
            if (holdWaits)
                heldWait = then; // fired later even if the run is gone: the run must notice
            else
                QTimer::singleShot(0, context, then);
        };
        enroller = std::make_unique<DeviceFlowEnroller>(options);
    }

    void scriptSuccess() {
        api.setReply(kStart, FakeReply::json(startBody()));
        api.setReply(kPoll, tokensReply());
        api.setReply(kUserInfo, FakeReply::json(QJsonObject{{u"org_id"_s, u"org_1"_s},
                                                            {u"user_id"_s, u"usr_1"_s}}));
    }

    void run() {
        enroller->run([this](const EnrollPrompt &p) { prompts << p; }, [this] { ++done; },
                      [this](const QString &message) { errors << message; });
    }

    bool ended() const { return done + errors.size() > 0; }
    QString privateDir() const { return home.path() + u"/.quon-brix"_s; }
    QString enrollmentFile() const { return privateDir() + u"/enrollment.json"_s; }
};

struct FailureCase {
    QJsonObject start = startBody();
    std::optional<FakeReply> startReply = {}; // instead of `start`
    QList<FakeReply> polls = {};
    FakeReply laterPolls = tokensReply();
    FakeReply userInfo = FakeReply::json(QJsonObject{});
    bool refuseConnections = false;
    QString refuseAccount = {};
    bool privateDirIsAFile = false;
    std::chrono::milliseconds requestTimeout = 15s;
    QString message = {};    // "$DIR" stands for the private directory
    QStringList stored = {}; // what the keyring was asked to keep
};

} // namespace

Q_DECLARE_METATYPE(FailureCase)

class EnrollerTest : public QObject {
    Q_OBJECT

    LogCapture *m_log = nullptr;

private Q_SLOTS:
    void initTestCase() {
        QLoggingCategory::setFilterRules(u"quonbrix.*.debug=true"_s);
        m_log = new LogCapture;
    }
    void cleanupTestCase() { delete m_log; }
    void init() { m_log->clear(); }

    void signInWritesTheEnrollment_data() {
        QTest::addColumn<QJsonObject>("userInfo");
        QTest::addColumn<bool>("looserFilesBefore");
        QTest::addColumn<QByteArray>("enrollment");
        QTest::newRow("first sign-in")
            << QJsonObject{{u"org_id"_s, u"org_1"_s}, {u"user_id"_s, u"usr_1"_s}} << false
            << QByteArray(R"({"orgId":"org_1","userId":"usr_1"})");
        QTest::newRow("ids missing or not strings, over looser files from before")
            << QJsonObject{{u"user_id"_s, 42}} << true << QByteArray(R"({"orgId":"","userId":""})");
    }

    // One whole sign-in: the three requests as the account API sees them, the keyring's
    // order, the file, and a log that never shows a code or a token.
    void signInWritesTheEnrollment() {
        QFETCH(QJsonObject, userInfo);
        QFETCH(bool, looserFilesBefore);
        QFETCH(QByteArray, enrollment);
        Harness h;
        h.make();
        h.scriptSuccess();
        h.api.enqueue(kPoll, pollError("authorization_pending"));
        h.api.setReply(kUserInfo, FakeReply::json(userInfo));
        if (looserFilesBefore) {
            QVERIFY(QDir().mkdir(h.privateDir()));
            QFile old(h.enrollmentFile());
            QVERIFY(old.open(QIODevice::WriteOnly) && old.write("{}") == 2);
            old.close();
            QVERIFY(::chmod(QFile::encodeName(h.enrollmentFile()).constData(), 0644) == 0);
            QVERIFY(::chmod(QFile::encodeName(h.privateDir()).constData(), 0755) == 0);
        }

        h.run();
        QVERIFY(h.enroller->isRunning());
        QTRY_VERIFY_WITH_TIMEOUT(h.ended(), 5000);
        QCOMPARE(h.errors, QStringList());
        QCOMPARE(h.done, 1);
        QVERIFY(!h.enroller->isRunning());
        QCOMPARE(h.prompts.size(), 1);

        const auto start = h.api.requests(kStart);
        QCOMPARE(start.size(), 1);
        QCOMPARE(start[0].method, QByteArray("POST"));
        QCOMPARE(start[0].header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(start[0].body, QByteArray(R"({"client_id":"quon-brix"})"));
        const auto polls = h.api.requests(kPoll);
        QCOMPARE(polls.size(), 2);
        QCOMPARE(polls[0].header("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(polls[0].body, "grant_type=urn:ietf:params:oauth:grant-type:device_code"
                                "&device_code=" +
                                    kEncodedDeviceCode + "&client_id=quon-brix");
        const auto lookups = h.api.requests(kUserInfo);
        QCOMPARE(lookups.size(), 1);
        QCOMPARE(lookups[0].method, QByteArray("GET"));
        QCOMPARE(lookups[0].header("authorization"), "Bearer " + kAccess.toUtf8());

        QCOMPARE(h.tokens.accounts, QStringList({u"quon-brix-refresh"_s, u"quon-brix"_s}));
        QCOMPARE(h.tokens.secrets.value(u"quon-brix-refresh"_s), kRefresh);
        QCOMPARE(h.tokens.secrets.value(u"quon-brix"_s), kAccess);

        QCOMPARE(readAll(h.enrollmentFile()), enrollment);
        QCOMPARE(modeOf(h.enrollmentFile()), 0600);
        QCOMPARE(modeOf(h.privateDir()), 0700);
        QCOMPARE(
            QDir(h.privateDir()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
            QStringList{u"enrollment.json"_s});

        const QStringList lines = m_log->lines("quonbrix.account");
        QVERIFY(lines.size() >= 4); // started, waiting, pending (debug), approved, done
        for (const QString &line : lines) {
            for (const QString &secret : {kDeviceCode, kUserCode, kAccess, kRefresh})
                QVERIFY2(!line.contains(secret), qPrintable(line));
        }
    }

    void pollInterval_data() {
        QTest::addColumn<QJsonValue>("interval");     // undefined: not in the answer
        QTest::addColumn<QList<FakeReply>>("before"); // poll answers before the tokens
        QTest::addColumn<QList<qint64>>("waits");
        const FakeReply pending = pollError("authorization_pending");
        const FakeReply slowDown = pollError("slow_down");
        QTest::newRow("0 polls every second")
            << QJsonValue(0) << QList{pending} << QList<qint64>{1, 1};
        QTest::newRow("negative polls every second")
            << QJsonValue(-3) << QList<FakeReply>{} << QList<qint64>{1};
        QTest::newRow("missing polls every 5 s")
            << QJsonValue(QJsonValue::Undefined) << QList{pending} << QList<qint64>{5, 5};
        QTest::newRow("a fraction is no interval, 5 s")
            << QJsonValue(2.5) << QList<FakeReply>{} << QList<qint64>{5};
        QTest::newRow("each slow_down adds 5 s")
            << QJsonValue(5) << QList{slowDown, slowDown, slowDown} << QList<qint64>{5, 10, 15, 20};
    }

    void pollInterval() {
        QFETCH(QJsonValue, interval);
        QFETCH(QList<FakeReply>, before);
        QFETCH(QList<qint64>, waits);
        Harness h;
        h.make();
        h.scriptSuccess();
        h.api.setReply(kStart, FakeReply::json(interval.isUndefined()
                                                   ? without(startBody(), {"interval"})
                                                   : with(startBody(), "interval", interval)));
        for (const FakeReply &reply : before)
            h.api.enqueue(kPoll, reply);

        h.run();
        QTRY_VERIFY_WITH_TIMEOUT(h.ended(), 5000);
        QCOMPARE(h.errors, QStringList());
        QCOMPARE(h.waits, waits);
        QCOMPARE(h.api.requests(kPoll).size(), waits.size());
    }

    void promptPage_data() {
        QTest::addColumn<QString>("base");
        QTest::addColumn<std::optional<QString>>("consoleUrl");
        QTest::addColumn<QJsonObject>("start");
        QTest::addColumn<QString>("page");
        QTest::addColumn<qint64>("expiresIn");
        QTest::newRow("the page with the code filled in comes first")
            << u"plain"_s << std::optional<QString>() << startBody() << kCompletePage
            << qint64(600);
        QTest::newRow("only verification_uri; no expires_in means 900 s")
            << u"plain"_s << std::optional<QString>()
            << without(startBody(), {"verification_uri_complete", "expires_in"}) << kPage
            << qint64(900);
        QTest::newRow("API on 127.0.0.1: the console's activate page")
            << u"127.0.0.1"_s << std::optional<QString>() << startBody()
            << u"https://console.quon.app/activate?code=WDJB-MJHT"_s << qint64(600);
        QTest::newRow("API on localhost: QUON_CONSOLE_URL's activate page")
            << u"localhost"_s << std::optional<QString>(u"http://localhost:3000/"_s) << startBody()
            << u"http://localhost:3000/activate?code=WDJB-MJHT"_s << qint64(600);
    }

    void promptPage() {
        QFETCH(QString, base);
        QFETCH(std::optional<QString>, consoleUrl);
        QFETCH(QJsonObject, start);
        QFETCH(QString, page);
        QFETCH(qint64, expiresIn);
        Harness h;
        h.make(base, consoleUrl);
        h.scriptSuccess();
        h.api.setReply(kStart, FakeReply::json(start));

        h.run();
        QTRY_VERIFY_WITH_TIMEOUT(h.ended(), 5000);
        QCOMPARE(h.errors, QStringList());
        QCOMPARE(h.prompts.size(), 1);
        QCOMPARE(h.prompts[0], (EnrollPrompt{kUserCode, page, page, expiresIn}));
    }

    void apiBase_data() {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("base");
        QTest::newRow("ftp is not http") << u"ftp://h/api"_s << u"https://api.quon.app"_s;
        QTest::newRow("empty") << QString() << u"https://api.quon.app"_s;
        QTest::newRow("exactly one trailing slash goes")
            << u"http://h:8080/api//"_s << u"http://h:8080/api/"_s;
    }

    void apiBase() {
        QFETCH(QString, value);
        QFETCH(QString, base);
        DeviceFlowEnroller::Options options;
        options.env.set(u"QUON_ACCOUNT_API_BASE"_s, value);
        QCOMPARE(DeviceFlowEnroller(options).apiBase(), base);
    }

    void failure_data() {
        QTest::addColumn<FailureCase>("c");
        const QStringList refreshOnly{u"quon-brix-refresh"_s};
        const QStringList both{u"quon-brix-refresh"_s, u"quon-brix"_s};
        const QString malformed = u"Malformed /device/start response"_s;
        const QString expired = u"Sign-in window expired. Try again."_s;
        const QString keyring = u"Could not save sign-in credentials to the keyring"_s;
        const FakeReply pending = pollError("authorization_pending");
        const QList<std::pair<const char *, FailureCase>> rows = {
            {"start answers 500",
             {.startReply = FakeReply::error(500),
              .message = u"Sign-in failed to start (HTTP 500)"_s}},
            {"start without device_code",
             {.start = without(startBody(), {"device_code"}), .message = malformed}},
            {"start with a numeric user_code",
             {.start = with(startBody(), "user_code", 4242), .message = malformed}},
            {"start with neither page",
             {.start = without(startBody(), {"verification_uri", "verification_uri_complete"}),
              .message = malformed}},
            {"start body is not JSON", {.startReply = FakeReply::garbage(), .message = malformed}},
            {"account API not reachable",
             {.refuseConnections = true, .message = u"Connection refused"_s}},
            {"code expired", {.polls = {pollError("expired_token")}, .message = expired}},
            {"window closes while approval is pending",
             {.start = with(startBody(), "expires_in", 10),
              .polls = {pending, pending},
              .message = expired}},
            {"denied",
             {.polls = {pollError("access_denied")}, .message = u"Sign-in was denied."_s}},
            {"another poll error",
             {.polls = {pollError("invalid_grant")}, .message = u"Sign-in error: invalid_grant"_s}},
            {"poll answers 500 without an error",
             {.polls = {FakeReply::html(500)}, .message = u"Sign-in failed (HTTP 500)"_s}},
            {"200 without a refresh token",
             {.polls = {FakeReply::json(QJsonObject{{u"access_token"_s, kAccess}})},
              .message = u"Sign-in failed (HTTP 200)"_s}},
            // Qt sends a request again, once, when its connection closes without an answer.
            {"poll connection dropped",
             {.laterPolls = FakeReply::drop(), .message = u"Connection closed"_s}},
            {"poll gets no answer in time",
             {.laterPolls = FakeReply::hang(),
              .requestTimeout = 300ms,
              .message = u"Operation canceled"_s}},
            {"account lookup refused",
             {.userInfo = FakeReply::error(401, "unauthorized"),
              .message = u"Could not resolve your account (HTTP 401)"_s}},
            {"keyring refuses the refresh token",
             {.refuseAccount = u"quon-brix-refresh"_s, .message = keyring, .stored = refreshOnly}},
            {"keyring refuses the access token",
             {.refuseAccount = u"quon-brix"_s, .message = keyring, .stored = both}},
            {"private folder is a file",
             {.privateDirIsAFile = true, .message = u"$DIR is not a directory"_s, .stored = both}},
        };
        for (const auto &[name, c] : rows)
            QTest::newRow(name) << c;
    }

    // Every failure reaches the person as one message, and none leaves an enrollment file.
    void failure() {
        QFETCH(FailureCase, c);
        Harness h;
        h.make(u"plain"_s, std::nullopt, c.requestTimeout);
        h.api.setReply(kStart, c.startReply.value_or(FakeReply::json(c.start)));
        for (const FakeReply &reply : c.polls)
            h.api.enqueue(kPoll, reply);
        h.api.setReply(kPoll, c.laterPolls);
        h.api.setReply(kUserInfo, c.userInfo);
        h.tokens.refuse = c.refuseAccount;
        if (c.refuseConnections)
            h.api.refuse();
        if (c.privateDirIsAFile) {
            QFile file(h.privateDir());
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("x") == 1);
        }

        h.run();
        QTRY_VERIFY_WITH_TIMEOUT(h.ended(), 5000);
        QTest::qWait(20); // nothing more may follow
        QCOMPARE(h.errors, QStringList{QString(c.message).replace(u"$DIR"_s, h.privateDir())});
        QCOMPARE(h.done, 0);
        QVERIFY(!h.enroller->isRunning());
        QCOMPARE(h.tokens.accounts, c.stored);
        QVERIFY(!QFileInfo::exists(h.enrollmentFile()));
    }

    void cancellation_data() {
        QTest::addColumn<QString>("when");
        QTest::newRow("a second run while the first waits for its code") << u"start"_s;
        QTest::newRow("cancel() while waiting to poll") << u"wait"_s;
        QTest::newRow("cancel() while the keyring stores") << u"keyring"_s;
    }

    // A cancelled sign-in calls nothing, asks the account API nothing more and writes nothing.
    void cancellation() {
        QFETCH(QString, when);
        Harness h;
        h.make();
        h.scriptSuccess();
        if (when == u"start"_s)
            h.api.enqueue(kStart, FakeReply::json(startBody()).delayed(300));
        h.holdWaits = when == u"wait"_s;
        h.tokens.hold = when == u"keyring"_s;

        int firstCalls = 0;
        h.enroller->run([&](const EnrollPrompt &) { ++firstCalls; }, [&] { ++firstCalls; },
                        [&](const QString &) { ++firstCalls; });
        if (when == u"start"_s) {
            QVERIFY(h.api.waitForRequests(kStart, 1));
            h.run();
            QTRY_VERIFY_WITH_TIMEOUT(h.ended(), 5000);
            QCOMPARE(h.errors, QStringList());
            QCOMPARE(h.done, 1);
            QTest::qWait(400); // past the first run's delayed answer
            QCOMPARE(firstCalls, 0);
            return;
        }
        if (when == u"wait"_s) {
            QTRY_VERIFY_WITH_TIMEOUT(bool(h.heldWait), 5000);
            h.enroller->cancel();
            h.heldWait();
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(bool(h.tokens.held), 5000);
            h.enroller->cancel();
            h.tokens.held(); // the refresh token is in; the run must not go on
        }
        QVERIFY(!h.enroller->isRunning());
        QTest::qWait(50);
        QCOMPARE(firstCalls, 1); // the prompt, before the cancel
        QCOMPARE(h.api.requests(kPoll).size(), when == u"wait"_s ? 0 : 1);
        QCOMPARE(h.tokens.accounts,
                 when == u"wait"_s ? QStringList() : QStringList{u"quon-brix-refresh"_s});
        QVERIFY(!QFileInfo::exists(h.enrollmentFile()));
    }
    // The tray's way: the flow in `quonbrix signin --events`, here a script printing what the
    // real one would (or worse). Every run ends with exactly one of done and error.
    void signInProcessReports_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("reported");
        const QString prompt =
            uR"(echo '{"prompt":{"userCode":"AB-CD","verificationUri":"http://x/a","expiresIn":900}}')"_s;
        QTest::newRow("prompt, then done")
            << prompt + u"\necho '{\"done\":true}'"_s << u"prompt AB-CD|done"_s;
        QTest::newRow("the flow's own error")
            << prompt + u"\necho '{\"error\":\"Sign-in was denied.\"}'"_s
            << u"prompt AB-CD|error Sign-in was denied."_s;
        QTest::newRow("garbage is skipped")
            << u"echo 'not json'\necho '{\"done\":true}'"_s << u"done"_s;
        QTest::newRow("exits without a word")
            << u"exit 3"_s << u"error Sign-in stopped unexpectedly (exit code 3)"_s;
        QTest::newRow("killed") << prompt + u"\nkill -9 $$"_s
                                << u"prompt AB-CD|error Sign-in stopped unexpectedly (crashed)"_s;
        // The real helper against the stand-in API, logging at debug; with no keyring to reach
        // it fails at the end, after every secret has passed through it.
        QTest::newRow("the real helper, logging at debug")
            << u"QT_LOGGING_RULES='quonbrix.*.debug=true' QUON_ACCOUNT_API_BASE=$API HOME=$HOME "
               "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent "
               "exec " QUONBRIX_BIN_DIR "/quonbrix-signin --events 2>$HOME/log"_s
            << u"prompt WDJB-MJHT|error "_s + tokens::saveFailed;
    }
    void signInProcessReports() {
        QFETCH(QString, script);
        QFETCH(QString, reported);
        QTemporaryDir dir;
        FakeDaemon api;
        api.setReply(kStart, FakeReply::json(with(startBody(), "interval", 1)));
        api.enqueue(kPoll, pollError("authorization_pending"));
        api.setReply(kPoll, tokensReply());
        api.setReply(kUserInfo, FakeReply::json(QJsonObject{{u"org_id"_s, u"org_1"_s}}));
        script.replace(u"$API"_s, api.base()).replace(u"$HOME"_s, dir.path());
        const QString program = dir.filePath(u"quonbrix"_s);
        QFile file(program);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + script.toUtf8() + "\n");
        file.close();
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        SignInProcess process(program);
        QStringList seen;
        process.run([&](const EnrollPrompt &p) { seen << u"prompt "_s + p.userCode; },
                    [&] { seen << u"done"_s; }, [&](const QString &m) { seen << u"error "_s + m; });
        // No secret on any command line while it runs, nor in its log.
        const QList<QByteArray> secrets{kDeviceCode.toUtf8(), kAccess.toUtf8(), kRefresh.toUtf8()};
        QStringList exposed;
        QTimer argvScan;
        connect(&argvScan, &QTimer::timeout, this, [&] {
            for (const QString &pid : QDir(u"/proc"_s).entryList({u"[0-9]*"_s}, QDir::Dirs)) {
                QFile cmdline(u"/proc/%1/cmdline"_s.arg(pid));
                const QByteArray argv = cmdline.open(QIODevice::ReadOnly) ? cmdline.readAll() : "";
                for (const QByteArray &secret : secrets)
                    if (argv.contains(secret))
                        exposed << QString::fromUtf8(argv);
            }
        });
        argvScan.start(10);
        QTRY_VERIFY_WITH_TIMEOUT(
            seen.join(u'|').contains(u"done"_s) || seen.join(u'|').contains(u"error"_s), 10000);
        argvScan.stop();
        QTest::qWait(100); // nothing more comes
        QCOMPARE(seen.join(u'|'), reported);
        QCOMPARE(exposed, QStringList());
        if (!script.contains(u"quonbrix-signin"_s))
            return;
        const QByteArray log = readAll(dir.filePath(u"log"_s));
        QVERIFY2(log.contains("[QuonBrix] sign-in: approval pending"), log.constData());
        for (const QByteArray &secret : secrets)
            QVERIFY2(!log.contains(secret), log.constData());
    }
};

QTEST_GUILESS_MAIN(EnrollerTest)
#include "test_enroller.moc"
