// The app shell without a desktop: the tray icon (which badge, how it is drawn) following the
// status, what the popover is told and when, the popover program run as the tray runs it
// (offscreen), the daemon's lifetime following the app's, and where log lines go under systemd.

#include "app/app_core.h"
#include "helpers/log_capture.h"
#include "log/log_sink.h"
#include "support/fake_daemon.h"
#include "support/fixtures.h"
#include "support/sim_process.h"
#include "ui/popover_host.h"
#include "ui/popover_presenter.h"
#include "ui/tray_icon.h"
#include "ui/tray_shell.h"
#include "json/json_codec.h"

#include <QApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace quonbrix;
using quonbrix::test::FakeDaemon;
using quonbrix::test::FakeReply;

Q_DECLARE_METATYPE(quonbrix::IconBadge)

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

ProviderLimitSnapshot reading(const char *source, const char *window, double used,
                              std::optional<bool> stale = {}) {
    ProviderLimitSnapshot s;
    s.source = QString::fromLatin1(source);
    s.window = QString::fromLatin1(window);
    s.usedPercent = used;
    s.stale = stale;
    return s;
}

} // namespace

class ShellTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void badgeChoice_data();
    void badgeChoice();
    void rendering_data();
    void rendering();
    void popoverIsToldOnlyWhileShown();
    void shellRunsThePopoverProgram_data();
    void shellRunsThePopoverProgram();
    void trayBadgeFollowsLimits_data();
    void trayBadgeFollowsLimits();
    void daemonLivesAsLongAsTheApp();
    void notMeteringSaysWhy_data();
    void notMeteringSaysWhy();
    void logLinesUnderSystemd_data();
    void logLinesUnderSystemd();

private:
    // A supervisor of `daemon` (QUON_BRIX_DAEMON; empty: unset) that looks nowhere else and
    // builds no trust store; the stand-ins leave their records in `records`.
    DaemonSupervisorOptions supervising(const QString &records, const QString &daemon) const {
        DaemonSupervisorOptions o;
        o.environment.insert(QStringLiteral("HOME"), m_home.path());
        o.environment.insert(QStringLiteral("QB_STUB_DIR"), records);
        if (!daemon.isEmpty())
            o.environment.insert(QStringLiteral("QUON_BRIX_DAEMON"), daemon);
        o.applicationDir = o.workingDir = records;
        o.trustStore = [] { return std::optional<QString>(); };
        return o;
    }

    QTemporaryDir m_home;
};

void ShellTest::initTestCase() {
    QVERIFY(m_home.isValid());
}

void ShellTest::badgeChoice_data() {
    QTest::addColumn<std::vector<ProviderLimitSnapshot>>("limits");
    QTest::addColumn<bool>("hasStatus");
    QTest::addColumn<IconBadge>("badge");
    using V = std::vector<ProviderLimitSnapshot>;
    QTest::newRow("no status") << V{} << false << IconBadge::None;
    QTest::newRow("no readings") << V{} << true << IconBadge::None;
    QTest::newRow("only reading stale at 97")
        << V{reading("claude-code", "week", 97, true)} << true << IconBadge::None;
    QTest::newRow("79.9 is fine") << V{reading("claude-code", "week", 79.9)} << true
                                  << IconBadge::None;
    QTest::newRow("exactly 80 warns")
        << V{reading("claude-code", "week", 80)} << true << IconBadge::Warning;
    QTest::newRow("exactly 95 is critical")
        << V{reading("claude-code", "session", 95, false)} << true << IconBadge::Critical;
    QTest::newRow("codex session counts for the icon")
        << V{reading("claude-code", "week", 10), reading("codex", "session", 96)} << true
        << IconBadge::Critical;
    QTest::newRow("stale high, fresh warning")
        << V{reading("codex", "week", 99, true), reading("claude-code", "week", 85)} << true
        << IconBadge::Warning;
}

void ShellTest::badgeChoice() {
    QFETCH(std::vector<ProviderLimitSnapshot>, limits);
    QFETCH(bool, hasStatus);
    QFETCH(IconBadge, badge);
    std::optional<DaemonStatus> status;
    if (hasStatus) {
        status = json::decode<DaemonStatus>(quonbrix::test::minimalStatusBody());
        QVERIFY(status);
        if (!limits.empty())
            status->providerLimits = limits;
    }
    QCOMPARE(iconBadgeFor(status), badge);
}

void ShellTest::rendering_data() {
    QTest::addColumn<IconBadge>("badge");
    QTest::addColumn<qreal>("dpr");
    for (const qreal dpr : {1.0, 1.5, 2.0}) {
        const QByteArray scale = QByteArray::number(dpr);
        QTest::newRow("normal @" + scale) << IconBadge::None << dpr;
        QTest::newRow("warning @" + scale) << IconBadge::Warning << dpr;
        QTest::newRow("critical @" + scale) << IconBadge::Critical << dpr;
    }
}

void ShellTest::rendering() {
    QFETCH(IconBadge, badge);
    QFETCH(qreal, dpr);
    const QImage image = TrayIconRenderer::render(badge, dpr);
    const int px = qRound(22 * dpr);
    QCOMPARE(image.size(), QSize(px, px));
    QCOMPARE(image.deviceIndependentSize(), QSizeF(22, 22));
    // The tray's icon holds every scale, so no screen gets a blurred one.
    QCOMPARE(TrayIconRenderer().icon(badge).availableSizes().size(), 3);

    // Rounded corners leave the very corners see-through.
    const int last = px - 1;
    for (const QPoint corner : {QPoint(0, 0), QPoint(last, 0), QPoint(0, last), QPoint(last, last)})
        QCOMPARE(qAlpha(image.pixel(corner)), 0);

    // The badge's centre: (14 + 3.5, 1 + 3.5) logical points.
    const QColor centre = image.pixelColor(QPointF(17.5 * dpr, 4.5 * dpr).toPoint());
    if (badge == IconBadge::None) {
        QVERIFY2(centre.red() < 120, qPrintable(centre.name())); // the dark tile, no dot
    } else {
        const QColor expected = badgeColor(badge);
        QVERIFY2(qAbs(centre.red() - expected.red()) <= 8 &&
                     qAbs(centre.green() - expected.green()) <= 8 &&
                     qAbs(centre.blue() - expected.blue()) <= 8,
                 qPrintable(centre.name()));
    }

    // The wave is drawn: its left half holds bright, blue-dominant gradient pixels.
    int bright = 0;
    for (int y = 0; y < px; ++y)
        for (int x = 0; x < px / 2; ++x)
            bright += image.pixelColor(x, y).blue() > 200 ? 1 : 0;
    QVERIFY2(bright > 4 * dpr * dpr, qPrintable(QString::number(bright)));
}

void ShellTest::popoverIsToldOnlyWhileShown() {
    FakeDaemon daemon;
    daemon.refuse();
    AppCore core(daemon.environment(m_home.path()), nullptr, {});
    PopoverPresenter presenter(&core.model(), {}, WebLinks::from({}), core.environment());
    QList<view::PopoverState> told;
    connect(&presenter, &PopoverPresenter::changed, this,
            [&told](const view::PopoverState &s) { told << s; });
    const auto header = [&presenter] { return *presenter.state().header; };
    QCOMPARE(header().statusPill, QStringLiteral("Starting"));
    QCOMPARE(header().subtitle, QStringLiteral("Local meter daemon"));
    QVERIFY(header().loading);

    // Hidden: the status changes, nothing is worded.
    core.launch();
    daemon.setReply(QStringLiteral("/status"), FakeReply::json(test::minimalStatusBody()));
    daemon.resume();
    core.model().refresh();
    QTRY_VERIFY(core.model().hasStatus());
    QCoreApplication::processEvents();
    QVERIFY(told.isEmpty());

    // Shown: a change sends the sections that differ, once, and only those.
    presenter.startShowing();
    daemon.refuse();
    core.model().refresh();
    QTRY_COMPARE(told.size(), 1);
    QVERIFY(told[0].header && told[0].header->loading);
    QCOMPARE(told[0].header->statusPill, QStringLiteral("Starting"));
    QVERIFY(told[0].today && !told[0].footer && !told[0].work);

    presenter.stopShowing();
    daemon.resume();
    core.model().refresh();
    QTRY_VERIFY(core.model().hasStatus());
    QCoreApplication::processEvents();
    QCOMPARE(told.size(), 1);
    QCOMPARE(header().statusPill, QStringLiteral("Local meter"));
    QCOMPARE(header().subtitle, QStringLiteral("Local only · no account needed"));
}

void ShellTest::shellRunsThePopoverProgram_data() {
    QTest::addColumn<QString>("program");
    QTest::addColumn<bool>("shows");
    QTest::newRow("the popover program")
        << QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix-popover") << true;
    QTest::newRow("no popover program: logged, nothing else")
        << QStringLiteral("/nonexistent") << false;
}

void ShellTest::shellRunsThePopoverProgram() {
    QFETCH(QString, program);
    QFETCH(bool, shows);
    test::LogCapture log;
    AppCore core(Environment({{QStringLiteral("HOME"), m_home.path()}}), nullptr, {});
    TrayShell::Options options;
    options.trayAvailable = false;
    options.currentDesktop = QStringLiteral("ubuntu:GNOME");
    options.popoverProgram = program;
    auto shell = std::make_unique<TrayShell>(core, options);
    QVERIFY(!shell->hasTray());
    QCOMPARE(shell->popoverMode(), view::WindowMode::Window);
    const QString hint = shell->presenter().state().header->trayHint;
    QVERIFY(hint.contains(QLatin1String("AppIndicator")) && !hint.contains(u'\n'));

    QSignalSpy reported(&shell->popover(), &PopoverHost::visibilityReported);
    shell->show(); // without a tray the window opens at start
    QVERIFY(reported.wait(10000));
    QCOMPARE(reported.last().at(0).toBool(), shows);
    QCOMPARE(shell->presenter().isShowing(), shows);
    if (!shows) {
        QVERIFY(log.lines("quonbrix.popover")
                    .join(u'\n')
                    .contains(QLatin1String("could not be started: /nonexistent")));
        return;
    }
    const qint64 pid = shell->popover().processId();
    QVERIFY(pid > 0);
    shell->popover().hide();
    QVERIFY(reported.wait(5000));
    QCOMPARE(reported.last().at(0).toBool(), false);
    QVERIFY(!shell->presenter().isShowing());
    // The tray going ends the popover process with it.
    shell.reset();
    QVERIFY(!test::processAlive(pid));
}

void ShellTest::trayBadgeFollowsLimits_data() {
    QTest::addColumn<double>("usedPercent");
    QTest::addColumn<bool>("stale");
    QTest::addColumn<int>("badge");
    // Which reading gives which badge is badgeChoice's table; here the shell follows it.
    QTest::newRow("79.9") << 79.9 << false << int(IconBadge::None);
    QTest::newRow("80") << 80.0 << false << int(IconBadge::Warning);
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
    // The tooltip carries the headline with its headroom.
    QVERIFY2(shell.trayIcon()->toolTip().contains(QStringLiteral("% left")),
             qPrintable(shell.trayIcon()->toolTip()));
    // The tray shows a different picture exactly when the badge changed.
    QCOMPARE(shell.trayIcon()->icon().cacheKey() != before.cacheKey(),
             badge != int(IconBadge::None));
}

// A quit while the daemon is still starting leaves none behind (the quit once it runs is
// test_tray_app's endingLeavesNoDaemon).
void ShellTest::daemonLivesAsLongAsTheApp() {
    QTemporaryDir records;
    auto supervisor = std::make_shared<DaemonSupervisor>(
        supervising(records.path(), QStringLiteral(QUONBRIX_STUB_DIR "/stub_brixd_stay")));
    QList<qint64> started;
    connect(supervisor.get(), &DaemonSupervisor::daemonStarted, this,
            [&started](qint64 pid) { started << pid; });

    FakeDaemon daemon;
    daemon.refuse();
    AppCore core(daemon.environment(m_home.path()), supervisor, {});
    core.launch();
    core.shutdown();
    QCoreApplication::processEvents();
    // Whatever was launched is gone once shutdown returns; nothing is launched after it.
    for (const QString &name : QDir(records.path()).entryList({QStringLiteral("launch-*.rec")})) {
        const qint64 pid = name.section(u'-', 1).section(u'.', 0, 0).toLongLong();
        QVERIFY2(!test::processAlive(pid), qPrintable(name));
    }
    QTest::qWait(1300); // longer than the relaunch delay
    QVERIFY(started.size() <= 1);
    // A child stopped before it finished starting may not have left its record.
    QVERIFY(QDir(records.path()).entryList({QStringLiteral("launch-*.rec")}).size() <=
            qsizetype(started.size()));
}

// A daemon that cannot run never leaves the popover on "Starting meter…" with a healthy icon:
// it says why, and the icon is dimmed.
void ShellTest::notMeteringSaysWhy_data() {
    QTest::addColumn<QString>("daemon"); // QUON_BRIX_DAEMON; empty: unset
    QTest::addColumn<QString>("says");
    QTest::newRow("nowhere to be found")
        << QString() << QStringLiteral("brixd was not found — install it, or set QUON_BRIX_DAEMON");
    QTest::newRow("a path that cannot be run")
        << QStringLiteral("/nonexistent/brixd") << QStringLiteral("brixd could not be started: ");
    QTest::newRow("exits as soon as it starts")
        << QStringLiteral(QUONBRIX_STUB_DIR "/stub_brixd_exit")
        << QStringLiteral("brixd keeps stopping — restarted ");
}

void ShellTest::notMeteringSaysWhy() {
    QFETCH(QString, daemon);
    QFETCH(QString, says);
    QTemporaryDir records;
    DaemonSupervisorOptions o = supervising(records.path(), daemon);
    o.relaunchDelay = std::chrono::milliseconds(200);
    FakeDaemon answers;
    answers.refuse();
    AppCore core(answers.environment(m_home.path()), std::make_shared<DaemonSupervisor>(o), {});
    TrayShell shell(core, TrayShell::Options{});
    QCOMPARE(int(shell.currentBadge()), int(IconBadge::None));
    core.launch();
    QTRY_VERIFY_WITH_TIMEOUT(core.model().daemonCondition().startsWith(says), 5000);
    QCOMPARE(shell.presenter().state().header->condition, core.model().daemonCondition());
    QCOMPARE(int(shell.currentBadge()), int(IconBadge::NotMetering));
    QVERIFY(trayToolTip(core.model()).contains(core.model().daemonCondition()));
    core.shutdown();
}

// systemd names the stream it gave us as stderr in JOURNAL_STREAM; while stderr still is that
// stream, each line reaches the journal as one record, the app's format kept.
void ShellTest::logLinesUnderSystemd_data() {
    QTest::addColumn<bool>("stderrIsTheJournal");
    QTest::addColumn<QByteArray>("category");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QByteArray>("record"); // the MESSAGE field; empty: nothing sent
    const QString line = QStringLiteral("[QuonBrix] status: daemon answered at http://x");
    QTest::newRow("the app's line") << true << QByteArray("quonbrix.status") << line
                                    << QByteArray("MESSAGE=") + line.toUtf8() + '\n';
    QTest::newRow("Qt's own line, with its category as the subject")
        << true << QByteArray("qt.qpa.xcb") << QStringLiteral("could not connect")
        << QByteArray("MESSAGE=[QuonBrix] qt.qpa.xcb: could not connect\n");
    QTest::newRow("two lines: sized, not split")
        << true << QByteArray("quonbrix.popover") << QStringLiteral("[QuonBrix] popover: a\nb")
        << QByteArray("MESSAGE\n") + QByteArray("\x17\0\0\0\0\0\0\0", 8) +
               QByteArray("[QuonBrix] popover: a\nb\n");
    QTest::newRow("stderr redirected since: stays on stderr")
        << false << QByteArray("quonbrix.status") << line << QByteArray();
}

void ShellTest::logLinesUnderSystemd() {
    QFETCH(bool, stderrIsTheJournal);
    QFETCH(QByteArray, category);
    QFETCH(QString, message);
    QFETCH(QByteArray, record);
    QTemporaryDir dir;
    const QByteArray socketPath = QFile::encodeName(dir.filePath(QStringLiteral("journal")));
    const int journal = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.constData(), size_t(socketPath.size()));
    QCOMPARE(::bind(journal, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const int stream = ::open(QFile::encodeName(dir.filePath(QStringLiteral("stream"))),
                              O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    struct stat st {};
    QCOMPARE(::fstat(stream, &st), 0);
    const QString journalStream =
        QStringLiteral("%1:%2").arg(st.st_dev).arg(st.st_ino + (stderrIsTheJournal ? 0 : 1));

    logging::SinkOptions options;
    options.sink = logging::sinkFor(journalStream, stream);
    options.journalSocket = socketPath;
    const QtMessageHandler previous = logging::install(options);
    const QLoggingCategory lc(category.constData());
    qCWarning(lc).noquote() << message;
    qInstallMessageHandler(previous);

    char buffer[4096];
    const ssize_t got = ::recv(journal, buffer, sizeof buffer, 0);
    ::close(journal);
    ::close(stream);
    if (record.isEmpty()) {
        QCOMPARE(got, ssize_t(-1));
        return;
    }
    const QByteArray datagram(buffer, qsizetype(std::max<ssize_t>(got, 0)));
    QVERIFY2(datagram.startsWith("PRIORITY=4\n") && datagram.endsWith(record),
             datagram.constData());
}

QTEST_MAIN(ShellTest)
#include "test_shell.moc"
