// The popover's work side as a user reads it: timer rows and their buttons, the clock that
// ticks only while someone looks (and then moves only the work panel), project rows and the
// sharing line.

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
    PopoverPresenter presenter{&status, {}, WebLinks::from({}), daemon.environment(home.path())};

    Rig() { presenter.setContext(&clock, QLocale::c(), QTimeZone::utc()); }
    bool load(const QByteArray &b) {
        daemon.setReply(QStringLiteral("/status"), FakeReply::json(b));
        QSignalSpy pass(&status, &StatusModel::passFinished);
        status.refresh();
        return pass.wait(3000) && status.hasStatus();
    }
    view::Work work() const { return workPanel(status, clock.now()); }
    view::Timer timer(int i) const { return work().timers.at(size_t(i)); }
    void act(const char *action, const char *id) {
        presenter.perform({view::toWire(view::Command::TimerAction), std::nullopt,
                           QString::fromLatin1(action), QString::fromLatin1(id)});
    }
};

} // namespace

class WorkPanelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void timerRows();
    void clockTicksOnlyWhileShownAndRunning();
    void buttonsWaitForTheirCommand();
    void projectsAndSharing();
    void clientSetupFromThePopover();
};

void WorkPanelTest::timerRows() {
    Rig rig;
    QCOMPARE(rig.work().timersHeader, QStringLiteral("No open timers"));
    QVERIFY(rig.load(body({session("ws_1", "Client A", "running", "2026-11-23T08:45:30Z"),
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
    QVERIFY(rig.load(body({session("ws_1", "Client A", "running", "2026-11-23T08:45:30Z"),
                           session("ws_3", "Old", "completed", "2026-11-23T07:00:00Z")},
                          {}, {})));
    QCOMPARE(rig.work().timersHeader,
             QStringLiteral("1 open timer · concurrent timer time is additive"));
}

void WorkPanelTest::clockTicksOnlyWhileShownAndRunning() {
    Rig rig;
    QVERIFY(rig.load(body({session("ws_1", "A", "running", "2026-11-23T09:59:58Z")}, {}, {})));
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
    QVERIFY(rig.load(body({session("ws_1", "A", "paused", "2026-11-23T09:59:58Z")}, {}, {})));
    rig.presenter.startShowing();
    QVERIFY(!rig.presenter.isTicking());
}

void WorkPanelTest::buttonsWaitForTheirCommand() {
    Rig rig;
    QVERIFY(rig.load(body({session("ws_1", "A", "running", "2026-11-23T09:00:00Z"),
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

void WorkPanelTest::projectsAndSharing() {
    Rig rig;
    QVERIFY(projectsPanel(rig.status.status()).rows.empty());
    QVERIFY(!sharingPanel(rig.status.status()).shown);
    const QJsonObject consent{
        {QStringLiteral("master"), QJsonObject{{QStringLiteral("shared"), true},
                                               {QStringLiteral("grain"), QStringLiteral("daily")}}},
        {QStringLiteral("projects"),
         QJsonObject{{QStringLiteral("a"), QJsonObject{{QStringLiteral("shared"), true}}},
                     {QStringLiteral("b"), QJsonObject{{QStringLiteral("shared"), false}}}}}};
    QVERIFY(rig.load(
        body({}, {project("acme/web", 640000, 13.8, false), project(nullptr, 1200, 250.0, true)},
             consent)));
    const auto rows = projectsPanel(rig.status.status()).rows;
    QCOMPARE(rows.at(0).label, QStringLiteral("acme/web"));
    QCOMPARE(rows.at(0).figures, QStringLiteral("640.0K work tokens · $13.80"));
    QCOMPARE(rows.at(0).costHelp,
             QStringLiteral(
                 "API list-price equivalent on the quon basis; not your subscription charge"));
    QCOMPARE(rows.at(1).label, QStringLiteral("Unlabeled"));
    QCOMPARE(rows.at(1).figures, QStringLiteral("1.2K work tokens · $125"));
    QCOMPARE(rows.at(1).costHelp,
             QStringLiteral("Priced subtotal only; the complete API equivalent is unavailable"));

    const view::Sharing sharing = sharingPanel(rig.status.status());
    QVERIFY(sharing.shown);
    QCOMPARE(sharing.state, QStringLiteral("Sharing enabled"));
    QCOMPARE(sharing.summary, QStringLiteral("1 project label shared. Details stay in console."));
    QCOMPARE(updateButton(rig.status).label, QStringLiteral("Update now"));
    QCOMPARE(footer(rig.status).workspace.label, QStringLiteral("Open workspace"));
}

// The set-up screen as the person uses it: no token yet, then the daemon's token, an install
// into a real file in the home folder, the copied snippet and another client chosen.
void WorkPanelTest::clientSetupFromThePopover() {
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

QTEST_MAIN(WorkPanelTest)
#include "test_work_panel.moc"
