// The quonbrix command line as a user runs it: the real binary against the stand-in daemon
// over a real socket (or a port where nothing listens), on a private session bus where the
// test plays the desktop portal that hands URLs to the browser. What timers, sync and the
// console mean is the status model's (test_work_and_sync); here it is arguments, exit codes
// and what is printed.

#include "daemon_link/records.h"
#include "support/sim_process.h"
#include "ui/popover_panels.h"
#include "json/json_codec.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

using namespace quonbrix;
using quonbrix::test::freePort;
using quonbrix::test::SimProcess;

namespace {

const QString quonbrixBin = QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix");

// Answers OpenURI by `mode`: "refuse"; "open" (Response 0); "fail-first" (Response 2 before the
// answer); "fail-own-path" (an older portal's own path, Response 2 later); "silent" (none).
class FakePortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.OpenURI")

public:
    QStringList opened;
    QString mode;

    // Takes the portal's name on the test's bus, so no real portal gets activated instead.
    bool start() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        return bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), this,
                                  QDBusConnection::ExportAllSlots) &&
               bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }
    ~FakePortal() override {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
        bus.unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"));
    }

public Q_SLOTS:
    QDBusObjectPath OpenURI(const QString &, const QString &uri, const QVariantMap &options,
                            const QDBusMessage &call) {
        opened << uri;
        call.setDelayedReply(true);
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (mode == QLatin1String("refuse")) {
            bus.send(call.createErrorReply(QDBusError::AccessDenied, QStringLiteral("no")));
            return {};
        }
        const QString caller = call.service().mid(1).replace(u'.', u'_');
        const QString path = mode == QLatin1String("fail-own-path")
                                 ? QStringLiteral("/org/freedesktop/portal/desktop/request/old/1")
                                 : QStringLiteral("/org/freedesktop/portal/desktop/request/") +
                                       caller + u'/' +
                                       options.value(QStringLiteral("handle_token")).toString();
        QDBusMessage response = QDBusMessage::createSignal(
            path, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        response << uint(mode == QLatin1String("open") ? 0 : 2) << QVariantMap();
        if (mode == QLatin1String("fail-first"))
            bus.send(response);
        bus.send(call.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        if (mode == QLatin1String("open"))
            bus.send(response);
        if (mode == QLatin1String("fail-own-path"))
            QTimer::singleShot(300, this,
                               [response] { QDBusConnection::sessionBus().send(response); });
        return {};
    }
};

QStringList statusArgs(const QString &option) {
    return option.isEmpty() ? QStringList{QStringLiteral("status")}
                            : QStringList{QStringLiteral("status"), option};
}

struct Result {
    int code = -1;
    QByteArray out;
    QByteArray err;
    QString text() const { return QString::fromUtf8(out); }
};

// The waybar object, tooltip markup read back as the text waybar shows.
struct Waybar {
    QJsonObject o;
    explicit Waybar(const QByteArray &out)
        : o(QJsonDocument::fromJson(out).object()) {}
    QString get(const char *key) const { return o.value(QLatin1String(key)).toString(); }
    QString tooltip() const {
        return get("tooltip")
            .replace(QStringLiteral("&lt;"), QStringLiteral("<"))
            .replace(QStringLiteral("&gt;"), QStringLiteral(">"))
            .replace(QStringLiteral("&amp;"), QStringLiteral("&"));
    }
};

} // namespace

class CliTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void usage_data();
    void usage();
    void status_data();
    void status();
    void sameFiguresAsThePopover_data();
    void sameFiguresAsThePopover();
    void watchFollowsTheDaemon();
    void timers();
    void sync_data();
    void sync();
    void console_data();
    void console();
    void mcpInstallAndStatus();

private:
    // Runs quonbrix against `port` (the sim's when empty), with this process's event loop (and
    // the fake portal) running meanwhile.
    Result run(const QStringList &args, const QString &port = {}, const QString &home = {});

    QTemporaryDir m_home;
    std::unique_ptr<SimProcess> m_sim;
};

void CliTest::initTestCase() {
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("no session bus: run under dbus-run-session");
}

Result CliTest::run(const QStringList &args, const QString &port, const QString &home) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"),
               port.isEmpty() && m_sim ? QString::number(m_sim->port) : port);
    env.insert(QStringLiteral("HOME"), home.isEmpty() ? m_home.path() : home);
    env.insert(QStringLiteral("QUON_CONSOLE_URL"), QStringLiteral("https://console.example.test/"));
    for (const char *name : {"CODEX_HOME", "XDG_CONFIG_HOME", "QUON_BRIX_MCP_PORT"})
        env.remove(QString::fromLatin1(name));
    p.setProcessEnvironment(env);
    p.start(quonbrixBin, args);
    if (!p.waitForStarted(5000))
        return {};
    QElapsedTimer t;
    t.start();
    while (p.state() != QProcess::NotRunning && t.elapsed() < 20000)
        QTest::qWait(20);
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

void CliTest::usage_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("port"); // QUON_BRIX_ADMIN_PORT; empty: one where nothing listens
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("expected"); // on stdout when it succeeds, else on stderr
    const auto row = [](const char *name, const char *args, int code, const char *expected,
                        const char *port = "") {
        QTest::newRow(name) << QString::fromUtf8(args).split(u'|') << QString::fromUtf8(port)
                            << code << QString::fromUtf8(expected);
    };
    row("help", "--help", 0, "Usage: quonbrix");
    row("version", "--version", 0, "quonbrix " QUONBRIX_VERSION);
    row("unknown command", "frobnicate", 2, "unknown command 'frobnicate'");
    row("unknown option", "status|--xml", 2, "unknown option '--xml'");
    row("port that makes no URL", "status", 2,
        "QUON_BRIX_ADMIN_PORT does not make a valid daemon URL", "80 80");
    row("mcp without what to do", "mcp", 2, "usage: quonbrix mcp status");
    row("snippet of a client we do not know", "mcp|snippet|--client|vim", 2,
        "usage: quonbrix mcp status");
    row("guide prints the project rules, not the whole guide", "guide", 0, "brix_work_timer");
    row("timer start with a blank label", "timer|start| ", 2, "the project label is empty");
    row("timer pause without an id", "timer|pause", 2, "usage: quonbrix timer");
    row("sync takes no arguments", "sync|now", 2, "sync takes no arguments");
}

void CliTest::usage() {
    QFETCH(QStringList, args);
    QFETCH(QString, port);
    QFETCH(int, exitCode);
    QFETCH(QString, expected);
    const Result r = run(args, port.isEmpty() ? QString::number(freePort()) : port);
    QCOMPARE(r.code, exitCode);
    const QString text = QString::fromUtf8(exitCode == 0 ? r.out : r.err);
    QVERIFY2(text.contains(expected), qPrintable(text));
}

// `quonbrix status` in its three forms. A summary row lists lines the output holds; a waybar
// row gives "class|text" and a line of the tooltip; a failure gives the line on stderr. In all
// of them %1 stands for the port. (The --json output is read back in sameFiguresAsThePopover.)
void CliTest::status_data() {
    QTest::addColumn<QString>("scenario"); // empty: nothing listens
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("option");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("shows");
    const QString json = QStringLiteral("--json"), waybar = QStringLiteral("--waybar");
    const QString unreachable = QStringLiteral("daemon not reachable at http://127.0.0.1:%1");
    const QString unreadable = QStringLiteral("daemon answered with an unreadable status");
    QTest::newRow("no daemon") << QString() << QString() << QString() << 1
                               << QStringList{unreachable};
    QTest::newRow("no daemon, json")
        << QString() << QString() << json << 1 << QStringList{unreachable};
    // Waybar hides a module whose command fails: the down object comes with exit status 0.
    QTest::newRow("no daemon, waybar")
        << QString() << QString() << waybar << 0
        << QStringList{QStringLiteral("down|brixd down"), unreachable};
    QTest::newRow("garbage body") << QStringLiteral("typical-day") << QStringLiteral("garbage")
                                  << json << 1 << QStringList{unreadable};
    QTest::newRow("server error") << QStringLiteral("typical-day") << QStringLiteral("500")
                                  << QString() << 1 << QStringList{unreadable};
    // Down, but not said to be unreachable when it answered.
    QTest::newRow("garbage body, waybar")
        << QStringLiteral("typical-day") << QStringLiteral("garbage") << waybar << 0
        << QStringList{QStringLiteral("down|brixd down"), unreadable};
    QTest::newRow("timers running")
        << QStringLiteral("timers-running") << QString() << QString() << 0
        << QStringList{QStringLiteral(" output tokens"), QStringLiteral("2 open timers: ")};
    QTest::newRow("typical day, waybar") << QStringLiteral("typical-day") << QString() << waybar
                                         << 0 << QStringList{QStringLiteral("ok|41%")};
    QTest::newRow("near limits, waybar") << QStringLiteral("near-limits") << QString() << waybar
                                         << 0 << QStringList{QStringLiteral("critical|99%")};
    // No reading: today's output tokens stand in for a percentage.
    QTest::newRow("fresh install, waybar") << QStringLiteral("fresh-install") << QString() << waybar
                                           << 0 << QStringList{QStringLiteral("ok|0")};
    // 80.5 % warns, and the figure is the one its row shows.
    QTest::newRow("priced subtotal, waybar")
        << QStringLiteral("priced-subtotal") << QString() << waybar << 0
        << QStringList{QStringLiteral("warning|81%")};
}

void CliTest::status() {
    QFETCH(QString, scenario);
    QFETCH(QString, fault);
    QFETCH(QString, option);
    QFETCH(int, exitCode);
    QFETCH(QStringList, shows);
    SimProcess sim;
    quint16 port = freePort();
    if (!scenario.isEmpty()) {
        QStringList args{QStringLiteral("--scenario"), scenario};
        if (!fault.isEmpty())
            args << QStringLiteral("--fault") << fault;
        QVERIFY(sim.start(args));
        port = sim.port;
    }
    for (QString &line : shows)
        line = line.arg(port);
    const Result r = run(statusArgs(option), QString::number(port));
    QCOMPARE(r.code, exitCode);
    if (option == QLatin1String("--waybar")) {
        QCOMPARE(r.out.count('\n'), 1); // one object, one line
        const Waybar w(r.out);
        QCOMPARE(w.get("class") + u'|' + w.get("text"), shows.first());
        QCOMPARE(w.get("alt"), w.get("class")); // for format-icons by alt
        const QString tooltip = w.tooltip();
        for (const QString &line : shows.mid(1))
            QVERIFY2(tooltip.split(u'\n').contains(line), qPrintable(tooltip));
        const int pct = w.o.value(QStringLiteral("percentage")).toInt(-1);
        QVERIFY(pct >= 0 && pct <= 100);
        QVERIFY(w.get("class") != QLatin1String("critical") || pct >= 95);
        if (w.get("class") != QLatin1String("down")) {
            QVERIFY2(tooltip.contains(QStringLiteral(" output tokens\n")), qPrintable(tooltip));
            // Waybar's font is proportional: no columns lined up with runs of blanks.
            QVERIFY2(!tooltip.contains(QStringLiteral("  ")), qPrintable(tooltip));
        }
        QVERIFY2(r.err.isEmpty(), r.err.constData());
        return;
    }
    if (exitCode != 0) {
        QCOMPARE(QString::fromUtf8(r.err.trimmed()), shows.join(u'\n'));
        QVERIFY2(r.out.isEmpty(), r.out.constData());
        return;
    }
    QVERIFY2(r.err.isEmpty(), r.err.constData());
    for (const QString &line : shows)
        QVERIFY2(r.text().contains(line), qPrintable(r.text()));
}

// The summary and the waybar tooltip say what the popover's Today and limits panels say, for a
// day whose figures differ: only a priced subtotal, output far below total tokens.
void CliTest::sameFiguresAsThePopover_data() {
    QTest::addColumn<QString>("option");
    QTest::newRow("summary") << QString();
    QTest::newRow("waybar tooltip") << QStringLiteral("--waybar");
}

void CliTest::sameFiguresAsThePopover() {
    QFETCH(QString, option);
    m_sim = std::make_unique<SimProcess>();
    QVERIFY(m_sim->start({QStringLiteral("--scenario"), QStringLiteral("priced-subtotal")}));
    const auto status =
        json::decode<DaemonStatus>(run({QStringLiteral("status"), QStringLiteral("--json")}).out);
    QVERIFY(status);
    // The day is one where the wrong figures would show: total tokens and the complete cost.
    QVERIFY(status->tokens != status->output);
    QVERIFY(status->pricedSubtotal && *status->pricedSubtotal != status->estCost);

    const Result r = run(statusArgs(option));
    m_sim.reset();
    QCOMPARE(r.code, 0);
    const QString text = option.isEmpty() ? r.text() : Waybar(r.out).tooltip();
    if (!option.isEmpty())
        QVERIFY2(Waybar(r.out).get("tooltip").contains(QStringLiteral("R&amp;D &lt;prototype&gt;")),
                 r.out.constData());
    const QStringList lines = text.split(u'\n');

    const view::Today today = todayPanel(status);
    QCOMPARE(today.columns.size(), size_t(3));
    QCOMPARE(today.columns[1].caption, QStringLiteral("priced API subtotal"));
    for (const view::TodayColumn &c : today.columns)
        QVERIFY2(lines.contains(c.value + u' ' + c.caption), qPrintable(text));
    QStringList shares;
    for (const view::SourceShare &share : today.shares)
        shares << share.name + u' ' + share.percent;
    QVERIFY2(
        lines.contains(QStringLiteral("Output by source: ") + shares.join(QStringLiteral(" · "))),
        qPrintable(text));

    const PanelContext context{QDateTime::currentDateTimeUtc(), QLocale::c(), QTimeZone::utc()};
    const view::Headline h = limitsPanel(status, context).headline;
    QCOMPARE(h.remaining, QStringLiteral("19% left")); // beside the row's "81%"
    QVERIFY2(lines.contains(h.text + QStringLiteral(" · ") + h.remaining), qPrintable(text));
    QVERIFY2(lines.contains(h.detail), qPrintable(text));
    QVERIFY2(lines.contains(QStringLiteral("1 open timer: R&D <prototype> (running)")),
             qPrintable(text));
    // Nothing of the figures the popover does not show.
    QVERIFY2(!text.contains(QStringLiteral("list-price")), qPrintable(text));
}

void CliTest::watchFollowsTheDaemon() {
    SimProcess sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("typical-day")}));
    QProcess watch;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(sim.port));
    watch.setProcessEnvironment(env);
    watch.start(quonbrixBin, {QStringLiteral("status"), QStringLiteral("--watch")});
    QVERIFY(watch.waitForReadyRead(10000));
    const QString first = QString::fromUtf8(watch.readLine());
    QVERIFY2(first.contains(QStringLiteral(" output tokens · $")), qPrintable(first));

    // The daemon dies: within a refresh or two the watcher says so.
    QCOMPARE(sim.stop(), 0);
    QString line;
    QElapsedTimer t;
    t.start();
    while (!line.contains(QStringLiteral("daemon not running")) && t.elapsed() < 15000) {
        if (watch.canReadLine() || watch.waitForReadyRead(500))
            line = QString::fromUtf8(watch.readLine());
    }
    QVERIFY2(line.contains(QStringLiteral("daemon not running")), qPrintable(line));

    watch.terminate(); // SIGTERM ends the watcher cleanly
    QVERIFY(watch.waitForFinished(5000));
    QCOMPARE(watch.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watch.exitCode(), 0);
}

// One of each: the reply worded on stdout; the daemon's refusal on stderr with exit code 1.
void CliTest::timers() {
    m_sim = std::make_unique<SimProcess>();
    QVERIFY(m_sim->start({QStringLiteral("--scenario"), QStringLiteral("timers-running")}));
    Result r =
        run({QStringLiteral("timer"), QStringLiteral("start"), QStringLiteral("  Client Z ")});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.text(), QStringLiteral("Timer started\n"));

    r = run({QStringLiteral("timer"), QStringLiteral("list")});
    QCOMPARE(r.code, 0);
    static const QRegularExpression mine(
        QStringLiteral("^(\\S+)\\trunning\\t\\d\\d:\\d\\d:\\d\\d\\tClient Z$"),
        QRegularExpression::MultilineOption);
    const QRegularExpressionMatch m = mine.match(r.text());
    QVERIFY2(m.hasMatch(), r.out.constData());

    r = run({QStringLiteral("timer"), QStringLiteral("pause"), m.captured(1)});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.text(), QStringLiteral("Timer paused\n"));
    r = run({QStringLiteral("timer"), QStringLiteral("cancel"), QStringLiteral("ws_none")});
    QCOMPARE(r.code, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY(!r.err.trimmed().isEmpty());
    m_sim.reset();
}

void CliTest::sync_data() {
    QTest::addColumn<QString>("skip");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("local rows refreshed") << QString() << 0 << QStringLiteral("Refreshed ");
    QTest::newRow("sync already running")
        << QStringLiteral("busy") << 1 << QStringLiteral("A sync is already running");
}

void CliTest::sync() {
    QFETCH(QString, skip);
    QFETCH(int, code);
    QFETCH(QString, message);
    m_sim = std::make_unique<SimProcess>();
    QVERIFY(m_sim->start({}, skip.isEmpty()
                                 ? QStringList()
                                 : QStringList{QStringLiteral("BRIXD_SIM_SYNC_SKIP=") + skip}));
    const Result r = run({QStringLiteral("sync")});
    m_sim.reset();
    QCOMPARE(r.code, code);
    QVERIFY2(QString::fromUtf8(code == 0 ? r.out : r.err).startsWith(message), r.err.constData());
}

void CliTest::console_data() {
    QTest::addColumn<QString>("portal");
    QTest::addColumn<int>("code");
    QTest::newRow("portal refuses the call") << "refuse" << 1;
    QTest::newRow("browser opens") << "open" << 0;
    QTest::newRow("opening fails as soon as it is asked") << "fail-first" << 1;
    QTest::newRow("older portal fails on a path of its own") << "fail-own-path" << 1;
    QTest::newRow("app chooser left open") << "silent" << 0;
}

void CliTest::console() {
    QFETCH(QString, portal);
    QFETCH(int, code);
    SimProcess sim;
    QVERIFY(sim.start());
    FakePortal fake;
    fake.mode = portal;
    QVERIFY(fake.start());
    // With the debug log on: the handoff token must stay out of that too.
    qputenv("QT_LOGGING_RULES", "quonbrix.*.debug=true");
    const Result r = run({QStringLiteral("console")}, QString::number(sim.port));
    qunsetenv("QT_LOGGING_RULES");
    QCOMPARE(r.code, code);
    if (code == 0)
        QCOMPARE(r.text(), QStringLiteral("Opened the local console in the browser\n"));
    else
        QVERIFY2(r.err.contains("Open browser and retry"), r.err.constData());
    QCOMPARE(fake.opened.size(), 1);
    const QUrl url(fake.opened.first());
    QCOMPARE(url.adjusted(QUrl::RemoveFragment).toString(),
             QStringLiteral("https://console.example.test/local"));
    QVERIFY(url.fragment().startsWith(QLatin1String("handoff=")));
    QVERIFY(!url.hasQuery());
    // Whatever happened, the token is nowhere in what the command printed, debug log included.
    const QByteArray token = url.fragment().mid(8).toUtf8();
    QVERIFY(!r.out.contains(token) && !r.err.contains(token));
}

// Installs into real files of a fresh home: all three, again (nothing to do), then a Claude
// Code file that no longer parses is refused and left as it was while the others still pass.
void CliTest::mcpInstallAndStatus() {
    QTemporaryDir home;
    QVERIFY(test::writeFile(home.filePath(QStringLiteral(".quon-brix/admin-token")), "s3cr3t\n"));
    const QStringList install{QStringLiteral("mcp"), QStringLiteral("install")};
    const auto count = [](const Result &r, const char *line) {
        return r.text().count(QString::fromUtf8(line));
    };

    Result r = run(install, QString::number(freePort()), home.path());
    QCOMPARE(r.code, 0);
    QCOMPARE(count(r, ": Installed\n"), 3);
    QCOMPARE(
        count(run(install, QString::number(freePort()), home.path()), ": Already up to date\n"), 3);
    r = run({QStringLiteral("mcp"), QStringLiteral("status")}, QString::number(freePort()),
            home.path());
    QCOMPARE(r.code, 0);
    QCOMPARE(count(r, "  Installed  "), 3);
    QVERIFY(!r.out.contains("s3cr3t")); // the table never shows the token

    const QString claude = home.filePath(QStringLiteral(".claude.json"));
    QVERIFY(test::writeFile(claude, "{\"projects\": {"));
    r = run(install, QString::number(freePort()), home.path());
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Claude Code: ") && r.err.contains("is not valid JSON"), r.err);
    QCOMPARE(count(r, ": Already up to date\n"), 2);
    QFile file(claude);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("{\"projects\": {"));
}

QTEST_GUILESS_MAIN(CliTest)
#include "test_cli.moc"
