// The app shell without a desktop: the popover's header and frame as the user reads them,
// the QML actually loaded (offscreen), where the popover goes on screen, the tray icon's
// badge following the status, and the daemon's lifetime following the app's.

#include "app/app_core.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "support/quick_items.h"
#include "ui/popover_model.h"
#include "ui/popover_placement.h"
#include "ui/popover_window.h"
#include "ui/tray_shell.h"

#include <QApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlEngineExtensionPlugin>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

Q_IMPORT_QML_PLUGIN(QuonBrixPlugin)

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;
using quonbrix::test::visibleTexts;
using quonbrix::test::visualItems;

namespace {

QByteArray statusWithLimit(double usedPercent, bool stale) {
    QJsonObject status = test::fixtureObject(QStringLiteral("status-full.json"));
    const QJsonObject reading{{QStringLiteral("source"), QStringLiteral("claude-code")},
                              {QStringLiteral("window"), QStringLiteral("week")},
                              {QStringLiteral("usedPercent"), usedPercent},
                              {QStringLiteral("stale"), stale}};
    status.insert(QStringLiteral("providerLimits"), QJsonArray{reading});
    return QJsonDocument(status).toJson();
}

bool processGone(qint64 pid) {
    return !QDir(QStringLiteral("/proc/%1").arg(pid)).exists() ||
           QFile(QStringLiteral("/proc/%1/status").arg(pid)).open(QIODevice::ReadOnly) == false;
}

} // namespace

class ShellTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void headerFollowsStatus();
    void popoverFrameLoadsAndShowsFirstStatus();
    void noTrayWindowCarriesHint();
    void placement_data();
    void placement();
    void trayBadgeFollowsLimits_data();
    void trayBadgeFollowsLimits();
    void daemonLivesAsLongAsTheApp_data();
    void daemonLivesAsLongAsTheApp();

private:
    QTemporaryDir m_home;
};

void ShellTest::initTestCase() {
    QVERIFY(m_home.isValid());
}

void ShellTest::headerFollowsStatus() {
    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"), FakeReply::json(test::minimalStatusBody()));
    AppCore core(daemon.environment(m_home.path()), nullptr, {});
    PopoverModel model(&core.model(), {});

    QCOMPARE(model.title(), QStringLiteral("quon-brix"));
    QCOMPARE(model.statusPill(), QStringLiteral("Starting"));
    QCOMPARE(model.subtitle(), QStringLiteral("Local meter daemon"));
    QVERIFY(model.loading());
    QCOMPARE(model.loadingText(), QStringLiteral("Starting meter…"));

    QSignalSpy changed(&model, &PopoverModel::headerChanged);
    core.launch();
    QTRY_VERIFY(!model.loading());
    QVERIFY(changed.count() >= 1);
    QCOMPARE(model.statusPill(), QStringLiteral("Local meter"));
    QCOMPARE(model.subtitle(), QStringLiteral("Local only · no account needed"));
}

void ShellTest::popoverFrameLoadsAndShowsFirstStatus() {
    FakeDaemon daemon;
    daemon.refuse();
    AppCore core(daemon.environment(m_home.path()), nullptr, {});
    PopoverModel model(&core.model(), {});
    PopoverWindow popover(&model, PopoverWindow::Mode::Popup);
    QVERIFY(!popover.isLoaded()); // nothing of QML exists before the first open

    QSignalSpy opened(&popover, &PopoverWindow::opened);
    QVERIFY(popover.open(QRect(1200, 0, 24, 24)));
    QCOMPARE(opened.count(), 1);
    QVERIFY(popover.window());
    QVERIFY(popover.window()->flags().testFlag(Qt::FramelessWindowHint));

    // Before the daemon answers: header, "Starting meter…" and the footer only.
    QStringList texts = visibleTexts(popover.window());
    for (const char *expected :
         {"quon-brix", "Starting", "Local meter daemon", "Starting meter…", "Quit"})
        QVERIFY2(texts.contains(QString::fromUtf8(expected)), qPrintable(texts.join(u'|')));

    core.launch();
    daemon.setReply(QStringLiteral("/status"), FakeReply::json(test::minimalStatusBody()));
    daemon.resume();
    core.model().refresh();
    QTRY_VERIFY(!visibleTexts(popover.window()).contains(QStringLiteral("Starting meter…")));
    texts = visibleTexts(popover.window());
    QVERIFY2(texts.contains(QStringLiteral("Local meter")), qPrintable(texts.join(u'|')));
    QVERIFY(texts.contains(QStringLiteral("Local only · no account needed")));

    // The footer's Quit goes through the model, which the shell turns into quitting.
    QSignalSpy quit(&model, &PopoverModel::quitRequested);
    QQuickItem *quitButton = nullptr;
    for (QQuickItem *item : visualItems(popover.window()->contentItem()))
        if (item->property("text").toString() == QLatin1String("Quit") &&
            item->metaObject()->indexOfSignal("clicked()") >= 0)
            quitButton = item;
    QVERIFY(quitButton);
    QMetaObject::invokeMethod(quitButton, "clicked");
    QCOMPARE(quit.count(), 1);
}

void ShellTest::noTrayWindowCarriesHint() {
    AppCore core(Environment({{QStringLiteral("HOME"), m_home.path()}}), nullptr, {});
    TrayShell::Options options;
    options.trayAvailable = false;
    options.currentDesktop = QStringLiteral("ubuntu:GNOME");
    TrayShell shell(core, options);
    shell.show();
    QVERIFY(!shell.hasTray());
    QCOMPARE(shell.popover().mode(), PopoverWindow::Mode::Window);
    QVERIFY(shell.popover().isVisible()); // without a tray the window opens at start
    const QStringList texts = visibleTexts(shell.popover().window());
    const auto hint = std::find_if(texts.cbegin(), texts.cend(), [](const QString &t) {
        return t.contains(QLatin1String("AppIndicator"));
    });
    QVERIFY2(hint != texts.cend(), qPrintable(texts.join(u'|')));
    QVERIFY(!hint->contains(u'\n'));
}

void ShellTest::placement_data() {
    QTest::addColumn<QRect>("icon");
    QTest::addColumn<QPoint>("cursor");
    QTest::addColumn<QPoint>("expected");
    const QPoint noCursor(-1, -1);
    // Popover 360×400 on a 1280×800 screen whose panel takes the top 24 pixels.
    QTest::newRow("icon in a top panel: centred below it")
        << QRect(600, 0, 24, 24) << noCursor << QPoint(431, 30);
    QTest::newRow("icon at the right edge: kept on screen")
        << QRect(1256, 0, 24, 24) << noCursor << QPoint(914, 30);
    QTest::newRow("icon in a bottom panel: opens upwards")
        << QRect(600, 776, 24, 24) << noCursor << QPoint(431, 370);
    QTest::newRow("no icon geometry: at the pointer")
        << QRect() << QPoint(700, 300) << QPoint(520, 307);
    QTest::newRow("pointer near the left edge") << QRect() << QPoint(100, 10) << QPoint(6, 30);
    QTest::newRow("nothing known: top right corner") << QRect() << noCursor << QPoint(914, 30);
}

void ShellTest::placement() {
    QFETCH(QRect, icon);
    QFETCH(QPoint, cursor);
    QFETCH(QPoint, expected);
    const QRect available(0, 24, 1280, 776);
    const QPoint at =
        popoverPosition(QSize(360, 400), icon.isNull() ? std::nullopt : std::optional<QRect>(icon),
                        cursor.x() < 0 ? std::nullopt : std::optional<QPoint>(cursor), available);
    QCOMPARE(at, expected);
    QVERIFY(available.contains(QRect(at, QSize(360, 400))));
}

void ShellTest::trayBadgeFollowsLimits_data() {
    QTest::addColumn<double>("usedPercent");
    QTest::addColumn<bool>("stale");
    QTest::addColumn<int>("badge");
    QTest::newRow("79.9") << 79.9 << false << int(IconBadge::None);
    QTest::newRow("80") << 80.0 << false << int(IconBadge::Warning);
    QTest::newRow("95") << 95.0 << false << int(IconBadge::Critical);
    QTest::newRow("97 but stale") << 97.0 << true << int(IconBadge::None);
}

void ShellTest::trayBadgeFollowsLimits() {
    QFETCH(double, usedPercent);
    QFETCH(bool, stale);
    QFETCH(int, badge);
    FakeDaemon daemon;
    daemon.setReply(QStringLiteral("/status"),
                    FakeReply::json(statusWithLimit(usedPercent, stale)));
    AppCore core(daemon.environment(m_home.path()), nullptr, {});
    TrayShell shell(core, TrayShell::Options{});
    QVERIFY(shell.hasTray());
    const QIcon before = shell.trayIcon()->icon();
    core.launch();
    QTRY_VERIFY(core.model().hasStatus());
    QCOMPARE(int(shell.currentBadge()), badge);
    // The tray shows a different picture exactly when the badge changed.
    QCOMPARE(shell.trayIcon()->icon().cacheKey() != before.cacheKey(),
             badge != int(IconBadge::None));
}

void ShellTest::daemonLivesAsLongAsTheApp_data() {
    QTest::addColumn<int>("runMs");
    QTest::newRow("quit after the daemon is up") << 800;
    QTest::newRow("quit while the daemon is starting") << 0;
}

void ShellTest::daemonLivesAsLongAsTheApp() {
    QFETCH(int, runMs);
    QTemporaryDir records;
    DaemonSupervisorOptions o;
    o.environment.insert(QStringLiteral("HOME"), m_home.path());
    o.environment.insert(QStringLiteral("QB_STUB_DIR"), records.path());
    o.environment.insert(QStringLiteral("QUON_BRIX_DAEMON"),
                         QStringLiteral(QUONBRIX_STUB_DIR "/stub_brixd_stay"));
    o.trustStore = [] { return std::optional<QString>(); };
    auto supervisor = std::make_shared<DaemonSupervisor>(o);
    QList<qint64> started;
    connect(supervisor.get(), &DaemonSupervisor::daemonStarted, this,
            [&started](qint64 pid) { started << pid; });

    FakeDaemon daemon;
    daemon.refuse();
    AppCore core(daemon.environment(m_home.path()), supervisor, {});
    core.launch();
    if (runMs > 0) {
        QTRY_COMPARE(started.size(), 1);
        QTest::qWait(runMs);
    }
    core.shutdown();
    QCoreApplication::processEvents();
    // Whatever was launched is gone once shutdown returns; nothing is launched after it.
    for (const QString &name : QDir(records.path()).entryList({QStringLiteral("launch-*.rec")})) {
        const qint64 pid = name.section(u'-', 1).section(u'.', 0, 0).toLongLong();
        QVERIFY2(processGone(pid), qPrintable(name));
    }
    QTest::qWait(1300); // longer than the relaunch delay
    QVERIFY(started.size() <= 1);
    // A child stopped before it finished starting may not have left its record.
    QVERIFY(QDir(records.path()).entryList({QStringLiteral("launch-*.rec")}).size() <=
            qsizetype(started.size()));
}

QTEST_MAIN(ShellTest)
#include "test_shell.moc"
