// The popover's work side as a user reads it: timer rows and their buttons, the clock that
// ticks only while someone looks, project rows and the sharing line.

#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "ui/work_panel_model.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

namespace {

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
    MeterClient client{daemon.base()};
    StatusModel status{&client, daemon.environment(home.path())};
    ManualClock clock{QDateTime::fromString(QStringLiteral("2026-11-23T10:00:00Z"), Qt::ISODate)};
    WorkPanelModel work{&status, WebLinks::from({})};

    Rig() { work.setClock(&clock); }
    bool load(const QByteArray &b) {
        daemon.setReply(QStringLiteral("/status"), FakeReply::json(b));
        QSignalSpy pass(&status, &StatusModel::passFinished);
        status.refresh();
        return pass.wait(3000) && status.hasStatus();
    }
    QVariantMap timer(int i) const { return work.timers().at(i).toMap(); }
};

} // namespace

class WorkPanelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void timerRows();
    void clockTicksOnlyWhileShownAndRunning();
    void buttonsWaitForTheirCommand();
    void projectsAndSharing();
};

void WorkPanelTest::timerRows() {
    Rig rig;
    QCOMPARE(rig.work.timersHeader(), QStringLiteral("No open timers"));
    QVERIFY(rig.load(body({session("ws_1", "Client A", "running", "2026-11-23T08:45:30Z"),
                           session("ws_2", "Internal", "paused", "2026-11-23T09:59:00Z"),
                           session("ws_3", "Old", "completed", "2026-11-23T07:00:00Z")},
                          {}, {})));
    QCOMPARE(rig.work.timersHeader(),
             QStringLiteral("2 open timers · concurrent timer time is additive"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("elapsed")).toString(), QStringLiteral("01:14:30"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("stateWord")).toString(), QStringLiteral("Running"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("caption")).toString(),
             QStringLiteral("Project-only time"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("primaryAction")).toString(),
             QStringLiteral("pause"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("primary")).toMap().value(QStringLiteral("help")),
             QVariant(QStringLiteral("Pause this timer")));
    QCOMPARE(rig.timer(1).value(QStringLiteral("stateWord")).toString(), QStringLiteral("Paused"));
    QCOMPARE(rig.timer(1).value(QStringLiteral("primary")).toMap().value(QStringLiteral("help")),
             QVariant(QStringLiteral("Resume this timer")));
    QCOMPARE(rig.timer(1).value(QStringLiteral("complete")).toMap().value(QStringLiteral("help")),
             QVariant(QStringLiteral("Complete this timer")));
    QCOMPARE(rig.timer(1).value(QStringLiteral("cancel")).toMap().value(QStringLiteral("help")),
             QVariant(QStringLiteral("Cancel this timer")));
}

void WorkPanelTest::clockTicksOnlyWhileShownAndRunning() {
    Rig rig;
    QVERIFY(rig.load(body({session("ws_1", "A", "running", "2026-11-23T09:59:58Z")}, {}, {})));
    QVERIFY(!rig.work.isTicking()); // popover closed
    rig.work.setShown(true);
    QVERIFY(rig.work.isTicking());
    rig.clock.set(rig.clock.now().addSecs(1));
    QSignalSpy ticks(&rig.work, &WorkPanelModel::timersChanged);
    QVERIFY(ticks.wait(1500));
    QCOMPARE(rig.timer(0).value(QStringLiteral("elapsed")).toString(), QStringLiteral("00:00:03"));
    rig.work.setShown(false);
    QVERIFY(!rig.work.isTicking());

    // Shown, but nothing runs: nothing ticks either.
    QVERIFY(rig.load(body({session("ws_1", "A", "paused", "2026-11-23T09:59:58Z")}, {}, {})));
    rig.work.setShown(true);
    QVERIFY(!rig.work.isTicking());
}

void WorkPanelTest::buttonsWaitForTheirCommand() {
    Rig rig;
    QVERIFY(rig.load(body({session("ws_1", "A", "running", "2026-11-23T09:00:00Z"),
                           session("ws_2", "B", "running", "2026-11-23T09:00:00Z")},
                          {}, {})));
    rig.daemon.setReply(QStringLiteral("/worklogs/command"),
                        FakeReply::json(QByteArray("{}")).delayed(400));
    rig.work.timerAction(QStringLiteral("pause"), QStringLiteral("ws_1"));
    QCOMPARE(rig.timer(0).value(QStringLiteral("busy")).toBool(), true);
    for (const char *button : {"primary", "complete", "cancel"})
        QCOMPARE(rig.timer(0)
                     .value(QString::fromLatin1(button))
                     .toMap()
                     .value(QStringLiteral("enabled")),
                 QVariant(false));
    QCOMPARE(rig.timer(1).value(QStringLiteral("primary")).toMap().value(QStringLiteral("enabled")),
             QVariant(true));
    rig.work.startTimer(QStringLiteral("C"));
    QVERIFY(rig.work.startBusy());
    QTRY_VERIFY(!rig.work.startBusy());
    QTRY_COMPARE(rig.timer(0).value(QStringLiteral("busy")).toBool(), false);
    QVERIFY(!rig.work.feedback().isEmpty());
    QVERIFY(!rig.work.feedback().value(QStringLiteral("isError")).toBool());
}

void WorkPanelTest::projectsAndSharing() {
    Rig rig;
    QVERIFY(rig.work.projects().isEmpty());
    QVERIFY(!rig.work.showSharing());
    const QJsonObject consent{
        {QStringLiteral("master"), QJsonObject{{QStringLiteral("shared"), true},
                                               {QStringLiteral("grain"), QStringLiteral("daily")}}},
        {QStringLiteral("projects"),
         QJsonObject{{QStringLiteral("a"), QJsonObject{{QStringLiteral("shared"), true}}},
                     {QStringLiteral("b"), QJsonObject{{QStringLiteral("shared"), false}}}}}};
    QVERIFY(rig.load(
        body({}, {project("acme/web", 640000, 13.8, false), project(nullptr, 1200, 250.0, true)},
             consent)));
    const QVariantMap first = rig.work.projects().at(0).toMap();
    QCOMPARE(first.value(QStringLiteral("label")).toString(), QStringLiteral("acme/web"));
    QCOMPARE(first.value(QStringLiteral("figures")).toString(),
             QStringLiteral("640.0K work tokens · $13.80"));
    QCOMPARE(first.value(QStringLiteral("costHelp")).toString(),
             QStringLiteral(
                 "API list-price equivalent on the quon basis; not your subscription charge"));
    const QVariantMap second = rig.work.projects().at(1).toMap();
    QCOMPARE(second.value(QStringLiteral("label")).toString(), QStringLiteral("Unlabeled"));
    QCOMPARE(second.value(QStringLiteral("figures")).toString(),
             QStringLiteral("1.2K work tokens · $125"));
    QCOMPARE(second.value(QStringLiteral("costHelp")).toString(),
             QStringLiteral("Priced subtotal only; the complete API equivalent is unavailable"));

    QVERIFY(rig.work.showSharing());
    QCOMPARE(rig.work.sharing().value(QStringLiteral("state")).toString(),
             QStringLiteral("Sharing enabled"));
    QCOMPARE(rig.work.sharing().value(QStringLiteral("summary")).toString(),
             QStringLiteral("1 project label shared. Details stay in console."));
    QCOMPARE(rig.work.update().value(QStringLiteral("label")).toString(),
             QStringLiteral("Update now"));
    QCOMPARE(rig.work.workspace().value(QStringLiteral("label")).toString(),
             QStringLiteral("Open workspace"));
}

QTEST_MAIN(WorkPanelTest)
#include "test_work_panel.moc"
