// Work timers, sync and the local console as the popover and the command line drive them:
// the status model against the fake daemon over real sockets, the rules behind the texts, and
// the popover's work side as a user reads it (timer rows and their buttons, the clock that
// ticks only while someone looks, project rows, the sharing line, setting up AI clients).

#include "app/status_model.h"
#include "features/sharing.h"
#include "features/work_timers.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "support/sim_process.h"
#include "ui/popover_panels.h"
#include "ui/popover_presenter.h"
#include "ui/work_panels.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;
using namespace std::chrono_literals;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

namespace {

WorkSegment segment(const char *start, const char *end) {
    WorkSegment s;
    s.id = QStringLiteral("seg");
    s.startedAt = QString::fromUtf8(start);
    if (end)
        s.endedAt = QString::fromUtf8(end);
    s.timeZone = QStringLiteral("Europe/Berlin");
    return s;
}

QJsonObject session(const char *id, const char *label, const char *state, const char *started) {
    return {{QStringLiteral("schemaVersion"), QStringLiteral("1")},
            {QStringLiteral("id"), QString::fromUtf8(id)},
            {QStringLiteral("projectLabel"), QString::fromUtf8(label)},
            {QStringLiteral("status"), QString::fromUtf8(state)},
            {QStringLiteral("segments"),
             QJsonArray{QJsonObject{{QStringLiteral("id"), QStringLiteral("s1")},
                                    {QStringLiteral("startedAt"), QString::fromUtf8(started)},
                                    {QStringLiteral("timeZone"), QStringLiteral("UTC")}}}},
            {QStringLiteral("createdAt"), QString::fromUtf8(started)},
            {QStringLiteral("updatedAt"), QString::fromUtf8(started)},
            {QStringLiteral("revision"), 1}};
}

QByteArray body(const QJsonArray &timers, const QJsonArray &projects, const QJsonObject &consent) {
    QJsonObject status = QJsonDocument::fromJson(test::minimalStatusBody()).object();
    status.insert(QStringLiteral("workTimers"), timers);
    status.insert(QStringLiteral("projects"), projects);
    if (!consent.isEmpty())
        status.insert(QStringLiteral("consent"), consent);
    return QJsonDocument(status).toJson();
}

QJsonObject project(const char *label, qint64 work, double cost, bool subtotal) {
    QJsonObject key;
    if (label)
        key.insert(QStringLiteral("project"), QString::fromUtf8(label));
    QJsonObject o{{QStringLiteral("key"), key},
                  {QStringLiteral("tokens"), work * 3},
                  {QStringLiteral("work"), work},
                  {QStringLiteral("cache"), 0},
                  {QStringLiteral("estCost"), cost},
                  {QStringLiteral("lastSeen"), QStringLiteral("2026-11-23T09:00:00Z")}};
    if (subtotal) {
        o.insert(QStringLiteral("unpricedTokens"), 500);
        o.insert(QStringLiteral("pricedSubtotal"), cost / 2);
    }
    return o;
}

struct Rig {
    FakeDaemon daemon;
    QTemporaryDir home;
    MeterClient client{daemon.base(), test::quickTimeouts()};
    StatusModel model{&client, daemon.environment(home.path())};
    ManualClock clock{QDateTime::fromString(QStringLiteral("2026-11-23T10:00:00Z"), Qt::ISODate)};
    PopoverPresenter presenter{&model, {}, WebLinks::from({}), daemon.environment(home.path())};

    Rig() { presenter.setContext(&clock, QLocale::c(), QTimeZone::utc()); }
    // Loads one status, so commands find their session's label and panels have rows.
    bool loaded(const QByteArray &body) {
        daemon.setReply(QStringLiteral("/status"), FakeReply::json(body));
        QSignalSpy pass(&model, &StatusModel::passFinished);
        model.refresh();
        return pass.wait(3000) && model.hasStatus();
    }
    QJsonObject commandBody(int i) const {
        return QJsonDocument::fromJson(
                   daemon.requests(QStringLiteral("/worklogs/command")).at(i).body)
            .object();
    }
    view::Work work() const { return workPanel(model, clock.now()); }
    view::Timer timer(int i) const { return work().timers.at(size_t(i)); }
    void act(const char *action, const char *id) {
        presenter.perform({view::toWire(view::Command::TimerAction), std::nullopt,
                           QString::fromLatin1(action), QString::fromLatin1(id)});
    }
};

} // namespace

Q_DECLARE_METATYPE(QList<quonbrix::WorkSegment>)

class WorkAndSyncTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void elapsed_data();
    void elapsed();
    void startSendsTrimmedLabelOnce();
    void sessionCommandsAndBusySet();
    void failuresBecomeFeedback_data();
    void failuresBecomeFeedback();
    void feedbackKeepsFourNewest();
    void syncMessages_data();
    void syncMessages();
    void localConsole_data();
    void localConsole();
    void sharingSummary_data();
    void sharingSummary();
    void timerRows();
    void clockTicksOnlyWhileShownAndRunning();
    void buttonsWaitForTheirCommand();
    void projectsAndSharing();
    void clientSetupFromThePopover();
};

void WorkAndSyncTest::elapsed_data() {
    QTest::addColumn<QList<WorkSegment>>("segments");
    QTest::addColumn<QString>("now");
    QTest::addColumn<qint64>("seconds");
    QTest::newRow("closed and running, with and without fractions")
        << QList<WorkSegment>{segment("2026-11-23T08:00:00Z", "2026-11-23T08:30:00.500Z"),
                              segment("2026-11-23T09:00:00.250Z", nullptr)}
        << QStringLiteral("2026-11-23T09:10:00Z") << qint64(1800 + 599);
    QTest::newRow("paused and resumed: three stretches of 10.9 s count 30")
        << QList<WorkSegment>{segment("2026-11-23T08:00:00.000Z", "2026-11-23T08:00:10.900Z"),
                              segment("2026-11-23T08:01:00.000Z", "2026-11-23T08:01:10.900Z"),
                              segment("2026-11-23T08:02:00.000Z", "2026-11-23T08:02:10.900Z")}
        << QStringLiteral("2026-11-23T09:00:00Z") << qint64(30);
    QTest::newRow("across the autumn DST change, in local offsets")
        << QList<WorkSegment>{segment("2026-10-25T01:30:00+02:00", "2026-10-25T02:30:00+01:00")}
        << QStringLiteral("2026-10-25T12:00:00Z") << qint64(7200);
    QTest::newRow("unreadable start counts nothing, unreadable end runs to now")
        << QList<WorkSegment>{segment("yesterday", "2026-11-23T08:30:00Z"),
                              segment("2026-11-23T08:59:00Z", "soon"),
                              segment("2026-11-23T08:00:00", "2026-11-23T08:30:00Z")}
        << QStringLiteral("2026-11-23T09:00:00Z") << qint64(60);
    QTest::newRow("an end before the start counts nothing")
        << QList<WorkSegment>{segment("2026-11-23T09:00:00Z", "2026-11-23T08:00:00Z")}
        << QStringLiteral("2026-11-23T09:00:00Z") << qint64(0);
}

void WorkAndSyncTest::elapsed() {
    QFETCH(QList<WorkSegment>, segments);
    QFETCH(QString, now);
    QFETCH(qint64, seconds);
    WorkSession session;
    session.segments.assign(segments.cbegin(), segments.cend());
    QCOMPARE(workTimerElapsedSeconds(session, QDateTime::fromString(now, Qt::ISODate)), seconds);
}

void WorkAndSyncTest::startSendsTrimmedLabelOnce() {
    Rig rig;
    rig.daemon.setReply(QStringLiteral("/worklogs/command"),
                        FakeReply::json(QByteArray("{}")).delayed(300));
    QSignalSpy succeeded(&rig.model, &StatusModel::workTimerSucceeded);
    rig.model.startWorkTimer(QStringLiteral(" \n\t "));
    rig.model.startWorkTimer(QStringLiteral("  Client A \n"));
    QCOMPARE(rig.model.workTimerBusyIDs(), QSet<QString>{QStringLiteral("__start__")});
    rig.model.startWorkTimer(QStringLiteral("Client B")); // a start is in flight: ignored
    QTRY_COMPARE(succeeded.count(), 1);
    QTest::qWait(100);
    QCOMPARE(rig.daemon.requests(QStringLiteral("/worklogs/command")).size(), 1);

    const QJsonObject body = rig.commandBody(0);
    QCOMPARE(body.keys(), (QStringList{QStringLiteral("action"), QStringLiteral("idempotencyKey"),
                                       QStringLiteral("projectLabel")}));
    QCOMPARE(body.value(QStringLiteral("action")).toString(), QStringLiteral("start"));
    QCOMPARE(body.value(QStringLiteral("projectLabel")).toString(), QStringLiteral("Client A"));
    static const QRegularExpression key(
        QStringLiteral("^mac-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"));
    QVERIFY(key.match(body.value(QStringLiteral("idempotencyKey")).toString()).hasMatch());

    // A success without a session still gives feedback and a notification.
    QVERIFY(rig.model.workTimerBusyIDs().isEmpty());
    QCOMPARE(rig.model.workTimerFeedback().size(), size_t(1));
    QCOMPARE(rig.model.workTimerFeedback().back().message, QStringLiteral("Timer started"));
    QCOMPARE(succeeded.at(0).at(3).toString(), QStringLiteral("Timer started"));
    QCOMPARE(succeeded.at(0).at(2).value<std::optional<QString>>(),
             std::optional<QString>(QStringLiteral("Client A")));
}

void WorkAndSyncTest::sessionCommandsAndBusySet() {
    Rig rig;
    QVERIFY(rig.loaded(test::fixture(QStringLiteral("status-full.json")))); // ws_01 is Client A
    rig.daemon.setReply(QStringLiteral("/worklogs/command"),
                        FakeReply::json(QByteArray("{}")).delayed(300));
    QSignalSpy succeeded(&rig.model, &StatusModel::workTimerSucceeded);
    rig.model.pauseWorkTimer(QStringLiteral("ws_01"));
    rig.model.pauseWorkTimer(QStringLiteral("ws_01"));   // same session in flight: ignored
    rig.model.completeWorkTimer(QStringLiteral("ws_Y")); // another session: sent
    QCOMPARE(rig.model.workTimerBusyIDList(),
             (QStringList{QStringLiteral("ws_01"), QStringLiteral("ws_Y")}));
    QTRY_COMPARE(succeeded.count(), 2);
    QCOMPARE(rig.daemon.requests(QStringLiteral("/worklogs/command")).size(), 2);
    QCOMPARE(rig.commandBody(0).value(QStringLiteral("workSessionId")).toString(),
             QStringLiteral("ws_01"));
    QVERIFY(!rig.commandBody(0).contains(QStringLiteral("projectLabel")));
    QVERIFY(rig.model.workTimerBusyIDs().isEmpty());
    // The label comes from the status for a known session; an unknown one has none.
    const auto &feedback = rig.model.workTimerFeedback();
    QCOMPARE(feedback[0].projectLabel, std::optional<QString>(QStringLiteral("Client A")));
    QCOMPARE(feedback[0].message, QStringLiteral("Timer paused"));
    QCOMPARE(feedback[1].projectLabel, std::optional<QString>());
    QCOMPARE(feedback[1].message, QStringLiteral("Timer completed"));
}

void WorkAndSyncTest::failuresBecomeFeedback_data() {
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<QString>("message");
    QTest::newRow("409 with only a code")
        << FakeReply::json(QByteArray(R"({"errorCode":"timer_already_running"})"), 409)
        << QStringLiteral("timer_already_running");
    QTest::newRow("422: the message wins over the code")
        << FakeReply::json(
               QByteArray(R"({"errorCode":"label_invalid","message":"Label too long"})"), 422)
        << QStringLiteral("Label too long");
    QTest::newRow("500 with an HTML body")
        << FakeReply::html(500) << QStringLiteral("Timer command failed");
    QTest::newRow("2xx garbage") << FakeReply::garbage()
                                 << QStringLiteral("Timer command returned an invalid response");
    QTest::newRow("daemon gone") << FakeReply::drop()
                                 << QStringLiteral("Timer command failed — is the daemon running?");
}

void WorkAndSyncTest::failuresBecomeFeedback() {
    QFETCH(FakeReply, reply);
    QFETCH(QString, message);
    Rig rig;
    rig.daemon.setReply(QStringLiteral("/worklogs/command"), reply);
    QSignalSpy feedback(&rig.model, &StatusModel::workTimerFeedbackChanged);
    QSignalSpy succeeded(&rig.model, &StatusModel::workTimerSucceeded);
    rig.model.cancelWorkTimer(QStringLiteral("ws_1"));
    QTRY_COMPARE(feedback.count(), 1);
    const WorkTimerFeedback &entry = rig.model.workTimerFeedback().back();
    QVERIFY(entry.isError);
    QCOMPARE(entry.message, message);
    QCOMPARE(entry.sessionId, std::optional<QString>(QStringLiteral("ws_1")));
    QCOMPARE(succeeded.count(), 0); // no notification for a failure
    // The status is read again all the same.
    QTRY_VERIFY(!rig.daemon.requests(QStringLiteral("/status")).isEmpty());
}

void WorkAndSyncTest::feedbackKeepsFourNewest() {
    Rig rig;
    rig.daemon.setReply(QStringLiteral("/worklogs/command"), FakeReply::json(QByteArray("{}")));
    QSignalSpy feedback(&rig.model, &StatusModel::workTimerFeedbackChanged);
    const QStringList ids{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                          QStringLiteral("d"), QStringLiteral("e"), QStringLiteral("f")};
    for (const QString &id : ids) {
        rig.model.pauseWorkTimer(id);
        QTRY_COMPARE(feedback.count(), ids.indexOf(id) + 1);
    }
    QStringList kept;
    for (const auto &entry : rig.model.workTimerFeedback())
        kept << entry.sessionId.value_or(QString());
    QCOMPARE(kept, ids.mid(2));
}

void WorkAndSyncTest::syncMessages_data() {
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *name, const char *json, const char *message) {
        QTest::newRow(name) << QByteArray(json) << QString::fromUtf8(message); // null: refused
    };
    row("not enrolled, one local row",
        R"({"ok":true,"collected":1,"pushed":0,"queued":0,"skipped":"not-enrolled"})",
        "Refreshed 1 local row");
    row("not enrolled, three local rows",
        R"({"ok":true,"collected":3,"pushed":0,"queued":0,"skipped":"not-enrolled"})",
        "Refreshed 3 local rows");
    row("not enrolled, nothing collected",
        R"({"ok":true,"collected":0,"pushed":0,"queued":0,"skipped":"not-enrolled"})",
        "Not enrolled");
    row("consent off", R"({"ok":true,"collected":4,"pushed":0,"queued":4,"skipped":"consent-off"})",
        "Sharing paused — turn it back on in the console");
    row("busy", R"({"ok":false,"collected":0,"pushed":0,"queued":0,"skipped":"busy"})",
        "A sync is already running");
    row("error", R"({"ok":false,"collected":0,"pushed":0,"queued":0,"skipped":"error"})",
        "Sync failed — check your connection");
    row("unknown code", R"({"ok":true,"collected":0,"pushed":0,"queued":0,"skipped":"consent-on"})",
        "Nothing to sync");
    row("one pushed", R"({"ok":true,"collected":1,"pushed":1,"queued":0})", "Synced 1 row");
    row("twelve pushed", R"({"ok":true,"collected":12,"pushed":12,"queued":0})", "Synced 12 rows");
    row("nothing pushed", R"({"ok":true,"collected":0,"pushed":0,"queued":0})",
        "Already up to date");
    row("unreadable answer", "<html>", "Sync failed — is the daemon running?");
    row("daemon gone", nullptr, "Sync failed — is the daemon running?");
}

void WorkAndSyncTest::syncMessages() {
    QFETCH(QByteArray, reply);
    QFETCH(QString, message);
    Rig rig;
    if (reply.isNull())
        rig.daemon.refuse();
    rig.daemon.setReply(QStringLiteral("/sync"), FakeReply::json(reply));
    QSignalSpy finished(&rig.model, &StatusModel::syncFinished);
    rig.model.syncNow();
    rig.model.syncNow(); // a second press while the first runs is ignored
    QVERIFY(rig.model.syncing());
    QVERIFY(finished.wait(3000));
    QVERIFY(!rig.model.syncing());
    QTest::qWait(100);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(rig.model.syncMessage(), message);
    // Followed by a fresh status read, so the popover shows the new counts.
    if (!reply.isNull())
        QTRY_VERIFY(!rig.daemon.requests(QStringLiteral("/status")).isEmpty());
}

void WorkAndSyncTest::localConsole_data() {
    QTest::addColumn<int>("failuresFirst");
    QTest::addColumn<QString>("browser");
    QTest::addColumn<QString>("message");
    QTest::newRow("handoff on the sixth attempt") << 5 << "accepts" << QString();
    QTest::newRow("no handoff after six attempts")
        << 6 << "accepts" << QStringLiteral("Restart app and retry");
    QTest::newRow("browser refuses") << 0 << "refuses" << QStringLiteral("Open browser and retry");
    // The opening is over, then the user cancels the app chooser: the popover still says so.
    QTest::newRow("refused after accepting")
        << 0 << "refuses later" << QStringLiteral("Open browser and retry");
}

void WorkAndSyncTest::localConsole() {
    QFETCH(int, failuresFirst);
    QFETCH(QString, browser);
    QFETCH(QString, message);
    Rig rig;
    if (failuresFirst > 0)
        rig.daemon.enqueue(QStringLiteral("/local-view/handoff"), FakeReply::error(503),
                           failuresFirst);
    rig.daemon.setReply(
        QStringLiteral("/local-view/handoff"),
        FakeReply::json(QByteArray(R"({"handoff":"tok-9Z","expiresAt":1795424460000})")));
    QList<QUrl> opened;
    rig.model.setUrlOpener([&](const QUrl &url, QObject *context, UrlOpenDone done) {
        opened << url;
        // Answers after returning, as the desktop does.
        const bool refuses = browser == QLatin1String("refuses");
        QTimer::singleShot(0, context, [=] {
            done(refuses ? UrlOpenOutcome::Refused : UrlOpenOutcome::Accepted);
        });
        if (browser == QLatin1String("refuses later"))
            QTimer::singleShot(100, context, [=] { done(UrlOpenOutcome::RefusedLater); });
    });
    QSignalSpy finished(&rig.model, &StatusModel::localConsoleFinished);
    QString messageWhenFinished;
    connect(&rig.model, &StatusModel::localConsoleFinished, this,
            [&] { messageWhenFinished = rig.model.localConsoleMessage(); });
    const QUrl page(QStringLiteral("https://console.example.test/local"));
    rig.model.openLocalConsole(page);
    rig.model.openLocalConsole(page); // ignored while the first is under way
    QVERIFY(rig.model.openingLocalConsole());
    QVERIFY(finished.wait(5000));
    QTest::qWait(50);
    QCOMPARE(finished.count(), 1);
    QVERIFY(!rig.model.openingLocalConsole());
    QCOMPARE(messageWhenFinished, browser == QLatin1String("refuses later") ? QString() : message);
    QTRY_COMPARE(rig.model.localConsoleMessage(), message);
    QCOMPARE(rig.daemon.requests(QStringLiteral("/local-view/handoff")).size(),
             qsizetype(std::min(failuresFirst + 1, 6)));
    if (failuresFirst >= 6) {
        QVERIFY(opened.isEmpty());
        return;
    }
    QCOMPARE(opened.size(), 1);
    // The token travels only in the fragment, which the browser keeps to itself.
    QCOMPARE(opened[0].toString(),
             QStringLiteral("https://console.example.test/local#handoff=tok-9Z"));
    QVERIFY(!opened[0].hasQuery());
}

void WorkAndSyncTest::sharingSummary_data() {
    QTest::addColumn<int>("shared");
    QTest::addColumn<int>("total");
    QTest::addColumn<QString>("text");
    QTest::newRow("no projects") << 0 << 0
                                 << QStringLiteral("Choose project sharing in the web console.");
    QTest::newRow("one, not shared")
        << 0 << 1 << QStringLiteral("1 project label available in console.");
    QTest::newRow("three, none shared")
        << 0 << 3 << QStringLiteral("3 project labels available in console.");
    QTest::newRow("one shared") << 1 << 4
                                << QStringLiteral(
                                       "1 project label shared. Details stay in console.");
    QTest::newRow("two of five") << 2 << 5
                                 << QStringLiteral(
                                        "2 project labels shared. Details stay in console.");
}

void WorkAndSyncTest::sharingSummary() {
    QFETCH(int, shared);
    QFETCH(int, total);
    QFETCH(QString, text);
    ConsentState consent;
    for (int i = 0; i < total; ++i)
        consent.projects.append(QString::number(i), ProjectConsent{i < shared});
    const SharingCounts counts = sharingCounts(consent);
    QCOMPARE(counts.shared, qsizetype(shared));
    QCOMPARE(counts.total, qsizetype(total));
    QCOMPARE(quonbrix::sharingSummary(counts), text);
}

void WorkAndSyncTest::timerRows() {
    Rig rig;
    QCOMPARE(rig.work().timersHeader, QStringLiteral("No open timers"));
    QVERIFY(rig.loaded(body({session("ws_1", "Client A", "running", "2026-11-23T08:45:30Z"),
                             session("ws_2", "Internal", "paused", "2026-11-23T09:59:00Z"),
                             session("ws_3", "Old", "completed", "2026-11-23T07:00:00Z")},
                            {}, {})));
    QCOMPARE(rig.work().timersHeader,
             QStringLiteral("2 open timers · concurrent timer time is additive"));
    QCOMPARE(rig.timer(0).elapsed, QStringLiteral("01:14:30"));
    QCOMPARE(rig.timer(0).stateWord, QStringLiteral("Running"));
    QCOMPARE(rig.timer(0).color, toneColor(Tone::Green));
    QCOMPARE(rig.timer(0).caption, QStringLiteral("Project-only time"));
    QCOMPARE(rig.timer(0).primaryAction, QStringLiteral("pause"));
    QCOMPARE(rig.timer(0).primary.help, QStringLiteral("Pause this timer"));
    QCOMPARE(rig.timer(1).stateWord, QStringLiteral("Paused"));
    QCOMPARE(rig.timer(1).color, toneColor(Tone::Orange));
    QCOMPARE(rig.timer(1).primary.help, QStringLiteral("Resume this timer"));
    QCOMPARE(rig.timer(1).complete.help, QStringLiteral("Complete this timer"));
    QCOMPARE(rig.timer(1).cancel.help, QStringLiteral("Cancel this timer"));

    // One open timer is counted in the singular; the completed one is not counted.
    QVERIFY(rig.loaded(body({session("ws_1", "Client A", "running", "2026-11-23T08:45:30Z"),
                             session("ws_3", "Old", "completed", "2026-11-23T07:00:00Z")},
                            {}, {})));
    QCOMPARE(rig.work().timersHeader,
             QStringLiteral("1 open timer · concurrent timer time is additive"));
}

void WorkAndSyncTest::clockTicksOnlyWhileShownAndRunning() {
    Rig rig;
    QVERIFY(rig.loaded(body({session("ws_1", "A", "running", "2026-11-23T09:59:58Z")}, {}, {})));
    QVERIFY(!rig.presenter.isTicking()); // popover closed
    rig.presenter.startShowing();
    QVERIFY(rig.presenter.isTicking());
    rig.clock.set(rig.clock.now().addSecs(1));
    QSignalSpy ticks(&rig.presenter, &PopoverPresenter::changed);
    QVERIFY(ticks.wait(1500));
    // A tick moves the clock and nothing else.
    const auto sent = ticks.at(0).at(0).value<view::PopoverState>();
    QVERIFY(sent.work && !sent.header && !sent.limits && !sent.today && !sent.footer);
    QCOMPARE(sent.work->timers.at(0).elapsed, QStringLiteral("00:00:03"));
    rig.presenter.stopShowing();
    QVERIFY(!rig.presenter.isTicking());

    // Shown, but nothing runs: nothing ticks either.
    QVERIFY(rig.loaded(body({session("ws_1", "A", "paused", "2026-11-23T09:59:58Z")}, {}, {})));
    rig.presenter.startShowing();
    QVERIFY(!rig.presenter.isTicking());
}

void WorkAndSyncTest::buttonsWaitForTheirCommand() {
    Rig rig;
    QVERIFY(rig.loaded(body({session("ws_1", "A", "running", "2026-11-23T09:00:00Z"),
                             session("ws_2", "B", "running", "2026-11-23T09:00:00Z")},
                            {}, {})));
    rig.daemon.setReply(QStringLiteral("/worklogs/command"),
                        FakeReply::json(QByteArray("{}")).delayed(400));
    rig.act("pause", "ws_1");
    for (const view::Button &b : {rig.timer(0).primary, rig.timer(0).complete, rig.timer(0).cancel})
        QVERIFY(!b.enabled);
    QVERIFY(rig.timer(1).primary.enabled);
    rig.presenter.perform(
        {view::toWire(view::Command::StartTimer), QStringLiteral("C"), std::nullopt, std::nullopt});
    QVERIFY(!rig.work().start.enabled);
    QTRY_VERIFY(rig.work().start.enabled);
    QTRY_VERIFY(rig.timer(0).primary.enabled);
    QCOMPARE(rig.work().feedback.symbol, QStringLiteral("image://symbol/checkmark.circle.fill"));
}

void WorkAndSyncTest::projectsAndSharing() {
    Rig rig;
    QVERIFY(projectsPanel(rig.model.status()).rows.empty());
    QVERIFY(!sharingPanel(rig.model.status()).shown);
    const QJsonObject consent{
        {QStringLiteral("master"), QJsonObject{{QStringLiteral("shared"), true},
                                               {QStringLiteral("grain"), QStringLiteral("daily")}}},
        {QStringLiteral("projects"),
         QJsonObject{{QStringLiteral("a"), QJsonObject{{QStringLiteral("shared"), true}}},
                     {QStringLiteral("b"), QJsonObject{{QStringLiteral("shared"), false}}}}}};
    QVERIFY(rig.loaded(
        body({}, {project("acme/web", 640000, 13.8, false), project(nullptr, 1200, 250.0, true)},
             consent)));
    const auto rows = projectsPanel(rig.model.status()).rows;
    QCOMPARE(rows.at(0).label, QStringLiteral("acme/web"));
    QCOMPARE(rows.at(0).figures, QStringLiteral("640.0K work tokens · $13.80"));
    QCOMPARE(rows.at(0).costHelp,
             QStringLiteral(
                 "API list-price equivalent on the quon basis; not your subscription charge"));
    QCOMPARE(rows.at(1).label, QStringLiteral("Unlabeled"));
    QCOMPARE(rows.at(1).figures, QStringLiteral("1.2K work tokens · $125"));
    QCOMPARE(rows.at(1).costHelp,
             QStringLiteral("Priced subtotal only; the complete API equivalent is unavailable"));

    const view::Sharing sharing = sharingPanel(rig.model.status());
    QVERIFY(sharing.shown);
    QCOMPARE(sharing.state, QStringLiteral("Sharing enabled"));
    QCOMPARE(sharing.summary, QStringLiteral("1 project label shared. Details stay in console."));
    QCOMPARE(updateButton(rig.model).label, QStringLiteral("Update now"));
    QCOMPARE(footer(rig.model).workspace.label, QStringLiteral("Open workspace"));
}

// The set-up screen as the person uses it: no token yet, then the daemon's token, an install
// into a real file in the home folder, the copied snippet and another client chosen.
void WorkAndSyncTest::clientSetupFromThePopover() {
    Rig rig;
    const auto mcp = [&rig] { return *rig.presenter.state().mcp; };
    const auto command = [&rig](view::Command c, const char *client = nullptr) {
        rig.presenter.perform({view::toWire(c), std::nullopt, std::nullopt,
                               client ? std::optional(QString::fromLatin1(client)) : std::nullopt});
    };
    const auto clientState = [&mcp](int i) { return mcp().clients.at(size_t(i)).state; };
    QSignalSpy changes(&rig.presenter, &PopoverPresenter::changed);
    rig.presenter.startShowing();

    command(view::Command::ShowMcpSetup);
    QTRY_COMPARE(clientState(2), QStringLiteral("Not installed"));
    QVERIFY(!mcp().install.enabled);
    QVERIFY(!mcp().waitingText.isEmpty());
    QVERIFY(mcp().snippet.contains(QStringLiteral("Bearer <admin-token>")));

    const QString token = rig.home.filePath(QStringLiteral(".quon-brix/admin-token"));
    QVERIFY(test::writeFile(token, "tok-1\n"));
    command(view::Command::ShowMcpSetup);
    QTRY_VERIFY(mcp().install.enabled);
    QVERIFY(mcp().waitingText.isEmpty());

    command(view::Command::SelectMcpClient, "codex");
    QCOMPARE(mcp().selectedClient, QStringLiteral("codex"));
    QVERIFY(mcp().snippet.startsWith(QStringLiteral("[mcp_servers.quon-brix]")));
    command(view::Command::InstallMcpClient, "codex");
    QTRY_COMPARE(mcp().result, QStringLiteral("Installed"));
    QTRY_COMPARE(clientState(2), QStringLiteral("Installed"));
    QVERIFY(QFile::exists(rig.home.filePath(QStringLiteral(".codex/config.toml"))));
    command(view::Command::InstallMcpClient, "codex");
    QTRY_COMPARE(mcp().result, QStringLiteral("Already up to date"));

    // A new token makes the installed entry stale; "Update" is offered and fixes it.
    QVERIFY(test::writeFile(token, "tok-2\n"));
    command(view::Command::ShowMcpSetup);
    QVERIFY(mcp().result.isEmpty()); // a screen shown anew starts without old outcomes
    QTRY_COMPARE(clientState(2), QStringLiteral("Installed · token out of date"));
    QVERIFY(mcp().clients.at(2).showUpdate);
    command(view::Command::InstallMcpClient, "codex");
    QTRY_COMPARE(clientState(2), QStringLiteral("Installed"));
    QCOMPARE(mcp().result, QStringLiteral("Updated"));

    QSignalSpy copies(&rig.presenter, &PopoverPresenter::copyRequested);
    command(view::Command::CopyMcpSnippet);
    QCOMPARE(copies.size(), 1);
    QCOMPARE(copies.at(0).at(0).toString(), mcp().snippet);
    QCOMPARE(mcp().copy.label, QStringLiteral("Copied"));
    command(view::Command::SelectMcpClient, "claude-desktop");
    QCOMPARE(mcp().copy.label, QStringLiteral("Copy"));
    QVERIFY(mcp().result.isEmpty()); // each client shows its own last result
    QVERIFY(changes.size() > 0);
}

QTEST_MAIN(WorkAndSyncTest)
#include "test_work_and_sync.moc"
