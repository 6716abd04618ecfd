// The `quonbrix status` commands as a user runs them: the real binary against the stand-in
// daemon over a real socket, and against a port where nothing listens.

#include "daemon_link/records.h"
#include "ui/popover_panels.h"
#include "json/json_codec.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace quonbrix;

namespace {

const QString quonbrixBin = QStringLiteral(QUONBRIX_BIN_DIR "/quonbrix");
const QString simBin = QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim");

quint16 freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

struct Result {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

} // namespace

class CliTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void deadDaemon_data();
    void deadDaemon();
    void unreadableStatus_data();
    void unreadableStatus();
    void liveStatus();
    void waybarGrades_data();
    void waybarGrades();
    void sameFiguresAsThePopover_data();
    void sameFiguresAsThePopover();
    void watchFollowsTheDaemon();
    void usage_data();
    void usage();
    void mcpInstallAndStatus();

private:
    bool startSim(const QString &scenario, const QString &fault = {});
    Result run(const QStringList &args, const QString &port = {}, const QString &home = {});

    QTemporaryDir m_home;
    quint16 m_port = 0;
    std::unique_ptr<QProcess> m_sim;
};

void CliTest::init() {
    m_port = freePort();
    m_sim.reset();
}

void CliTest::cleanup() {
    if (m_sim && m_sim->state() != QProcess::NotRunning) {
        m_sim->terminate();
        m_sim->waitForFinished(3000);
    }
    m_sim.reset();
}

bool CliTest::startSim(const QString &scenario, const QString &fault) {
    m_sim = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), m_home.path());
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(m_port));
    env.remove(QStringLiteral("BRIXD_SIM_FAULT"));
    env.remove(QStringLiteral("BRIXD_SIM_SCENARIO"));
    m_sim->setProcessEnvironment(env);
    QStringList args{QStringLiteral("run"), QStringLiteral("--scenario"), scenario};
    if (!fault.isEmpty())
        args << QStringLiteral("--fault") << fault;
    m_sim->setReadChannel(QProcess::StandardError);
    m_sim->start(simBin, args);
    if (!m_sim->waitForStarted(5000))
        return false;
    // Ready once it says where it serves.
    QByteArray seen;
    while (!seen.contains("serving")) {
        if (!m_sim->waitForReadyRead(5000))
            return false;
        seen += m_sim->readAllStandardError();
    }
    return true;
}

Result CliTest::run(const QStringList &args, const QString &port, const QString &home) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"),
               port.isNull() ? QString::number(m_port) : port);
    env.insert(QStringLiteral("HOME"), home.isEmpty() ? m_home.path() : home);
    for (const char *name : {"CODEX_HOME", "XDG_CONFIG_HOME", "QUON_BRIX_MCP_PORT"})
        env.remove(QString::fromLatin1(name));
    p.setProcessEnvironment(env);
    p.start(quonbrixBin, args);
    if (!p.waitForFinished(15000)) {
        p.kill();
        p.waitForFinished();
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

void CliTest::deadDaemon_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("summary") << QStringList{QStringLiteral("status")} << 1;
    QTest::newRow("json") << QStringList{QStringLiteral("status"), QStringLiteral("--json")} << 1;
    // Waybar hides a module whose command fails: the down object comes with exit status 0.
    QTest::newRow("waybar") << QStringList{QStringLiteral("status"), QStringLiteral("--waybar")}
                            << 0;
}

void CliTest::deadDaemon() {
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    const Result r = run(args);
    QCOMPARE(r.exitCode, exitCode);
    const QString why = QStringLiteral("daemon not reachable at http://127.0.0.1:%1").arg(m_port);
    if (args.contains(QStringLiteral("--waybar"))) {
        // Waybar still gets something to show, saying why in its tooltip.
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        QCOMPARE(o.value(QStringLiteral("class")).toString(), QStringLiteral("down"));
        QCOMPARE(o.value(QStringLiteral("alt")).toString(), QStringLiteral("down"));
        QCOMPARE(o.value(QStringLiteral("tooltip")).toString(), why);
        QVERIFY2(r.err.isEmpty(), r.err.constData());
    } else {
        QCOMPARE(r.err.trimmed(), why.toUtf8());
        QVERIFY2(r.out.isEmpty(), r.out.constData());
    }
}

void CliTest::unreadableStatus_data() {
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("option");
    QTest::newRow("garbage body") << QStringLiteral("garbage") << QStringLiteral("--json");
    QTest::newRow("server error") << QStringLiteral("500") << QStringLiteral("--json");
    QTest::newRow("garbage body, waybar")
        << QStringLiteral("garbage") << QStringLiteral("--waybar");
}

void CliTest::unreadableStatus() {
    QFETCH(QString, fault);
    QFETCH(QString, option);
    QVERIFY(startSim(QStringLiteral("typical-day"), fault));
    const Result r = run({QStringLiteral("status"), option});
    const QString why = QStringLiteral("daemon answered with an unreadable status");
    if (option == QLatin1String("--waybar")) {
        // Down, but not said to be unreachable when it answered.
        QCOMPARE(r.exitCode, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        QCOMPARE(o.value(QStringLiteral("class")).toString(), QStringLiteral("down"));
        QCOMPARE(o.value(QStringLiteral("tooltip")).toString(), why);
        return;
    }
    QCOMPARE(r.exitCode, 1);
    QCOMPARE(r.err.trimmed(), why.toUtf8());
    QVERIFY(r.out.isEmpty());
}

void CliTest::liveStatus() {
    QVERIFY(startSim(QStringLiteral("timers-running")));

    const Result json = run({QStringLiteral("status"), QStringLiteral("--json")});
    QCOMPARE(json.exitCode, 0);
    QVERIFY(json.err.isEmpty());
    QString error;
    const auto status = json::decode<DaemonStatus>(json.out, &error);
    QVERIFY2(status, qPrintable(error));
    QVERIFY(status->workTimers && status->workTimers->size() == 2);

    const Result summary = run({QStringLiteral("status")});
    QCOMPARE(summary.exitCode, 0);
    const QString text = QString::fromUtf8(summary.out);
    QVERIFY2(text.contains(QStringLiteral(" output tokens\n")), qPrintable(text));
    QVERIFY(text.contains(QStringLiteral("\n2 open timers: ")));
    for (const auto &session : *status->workTimers)
        QVERIFY(text.contains(session.projectLabel + QStringLiteral(" (") + session.status));
}

void CliTest::waybarGrades_data() {
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<QString>("cssClass");
    QTest::addColumn<QString>("text");
    QTest::newRow("typical day") << QStringLiteral("typical-day") << QStringLiteral("ok")
                                 << QStringLiteral("41%");
    QTest::newRow("near limits") << QStringLiteral("near-limits") << QStringLiteral("critical")
                                 << QStringLiteral("99%");
    // No reading: today's output tokens stand in for a percentage.
    QTest::newRow("fresh install")
        << QStringLiteral("fresh-install") << QStringLiteral("ok") << QStringLiteral("0");
    // 80.5 % warns, and the figure is the one its row shows.
    QTest::newRow("priced subtotal")
        << QStringLiteral("priced-subtotal") << QStringLiteral("warning") << QStringLiteral("81%");
}

void CliTest::waybarGrades() {
    QFETCH(QString, scenario);
    QFETCH(QString, cssClass);
    QFETCH(QString, text);
    QVERIFY(startSim(scenario));
    const Result r = run({QStringLiteral("status"), QStringLiteral("--waybar")});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out.count('\n'), 1); // one object, one line
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o.value(QStringLiteral("class")).toString(), cssClass);
    QCOMPARE(o.value(QStringLiteral("alt")).toString(), cssClass); // for format-icons by alt
    QCOMPARE(o.value(QStringLiteral("text")).toString(), text);
    const QString tooltip = o.value(QStringLiteral("tooltip")).toString();
    QVERIFY2(tooltip.contains(QStringLiteral(" output tokens\n")), qPrintable(tooltip));
    // Waybar's font is proportional: no columns lined up with runs of blanks.
    QVERIFY2(!tooltip.contains(QStringLiteral("  ")), qPrintable(tooltip));
    const int pct = o.value(QStringLiteral("percentage")).toInt(-1);
    QVERIFY(pct >= 0 && pct <= 100);
    if (cssClass == QLatin1String("critical"))
        QVERIFY(pct >= 95);
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
    QVERIFY(startSim(QStringLiteral("priced-subtotal")));
    const Result json = run({QStringLiteral("status"), QStringLiteral("--json")});
    QString error;
    const auto status = json::decode<DaemonStatus>(json.out, &error);
    QVERIFY2(status, qPrintable(error));
    // The day is one where the wrong figures would show: total tokens and the complete cost.
    QVERIFY(status->tokens != status->output);
    QVERIFY(status->pricedSubtotal && *status->pricedSubtotal != status->estCost);

    QStringList args{QStringLiteral("status")};
    if (!option.isEmpty())
        args << option;
    const Result r = run(args);
    QCOMPARE(r.exitCode, 0);
    QString text = QString::fromUtf8(r.out);
    if (!option.isEmpty()) {
        // The tooltip is markup; read back as the text waybar shows.
        text = QJsonDocument::fromJson(r.out).object().value(QStringLiteral("tooltip")).toString();
        QVERIFY2(text.contains(QStringLiteral("R&amp;D &lt;prototype&gt;")), qPrintable(text));
        text.replace(QStringLiteral("&lt;"), QStringLiteral("<"))
            .replace(QStringLiteral("&gt;"), QStringLiteral(">"))
            .replace(QStringLiteral("&amp;"), QStringLiteral("&"));
    }
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
    QVERIFY(startSim(QStringLiteral("typical-day")));
    QProcess watch;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(m_port));
    watch.setProcessEnvironment(env);
    watch.start(quonbrixBin, {QStringLiteral("status"), QStringLiteral("--watch")});
    QVERIFY(watch.waitForStarted());
    QVERIFY(watch.waitForReadyRead(5000));
    const QString first = QString::fromUtf8(watch.readLine());
    QVERIFY2(first.contains(QStringLiteral(" output tokens · $")), qPrintable(first));

    // The daemon dies: within one refresh the watcher says so.
    m_sim->terminate();
    QVERIFY(m_sim->waitForFinished(3000));
    QString line;
    QElapsedTimer t;
    t.start();
    while (!line.contains(QStringLiteral("daemon not running")) && t.elapsed() < 8000) {
        if (watch.canReadLine() || watch.waitForReadyRead(500))
            line = QString::fromUtf8(watch.readLine());
    }
    QVERIFY2(line.contains(QStringLiteral("daemon not running")), qPrintable(line));

    watch.terminate(); // SIGTERM ends the watcher cleanly
    QVERIFY(watch.waitForFinished(3000));
    QCOMPARE(watch.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watch.exitCode(), 0);
}

void CliTest::usage_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("port");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("expected");
    QTest::newRow("help") << QStringList{QStringLiteral("--help")} << QString() << 0
                          << QStringLiteral("Usage: quonbrix");
    QTest::newRow("version") << QStringList{QStringLiteral("--version")} << QString() << 0
                             << QStringLiteral("quonbrix " QUONBRIX_VERSION);
    QTest::newRow("unknown command") << QStringList{QStringLiteral("frobnicate")} << QString() << 2
                                     << QStringLiteral("unknown command 'frobnicate'");
    QTest::newRow("unknown option")
        << QStringList{QStringLiteral("status"), QStringLiteral("--xml")} << QString() << 2
        << QStringLiteral("unknown option '--xml'");
    QTest::newRow("port that makes no URL")
        << QStringList{QStringLiteral("status")} << QStringLiteral("80 80") << 2
        << QStringLiteral("QUON_BRIX_ADMIN_PORT does not make a valid daemon URL");
    QTest::newRow("mcp without what to do") << QStringList{QStringLiteral("mcp")} << QString() << 2
                                            << QStringLiteral("usage: quonbrix mcp status");
    QTest::newRow("snippet of a client we do not know")
        << QStringList{QStringLiteral("mcp"), QStringLiteral("snippet"), QStringLiteral("--client"),
                       QStringLiteral("vim")}
        << QString() << 2 << QStringLiteral("usage: quonbrix mcp status");
    QTest::newRow("guide prints the project rules, not the whole guide")
        << QStringList{QStringLiteral("guide")} << QString() << 0
        << QStringLiteral("brix_work_timer");
}

void CliTest::usage() {
    QFETCH(QStringList, args);
    QFETCH(QString, port);
    QFETCH(int, exitCode);
    QFETCH(QString, expected);
    const Result r = run(args, port);
    QCOMPARE(r.exitCode, exitCode);
    const QString text = QString::fromUtf8(exitCode == 0 ? r.out : r.err);
    QVERIFY2(text.contains(expected), qPrintable(text));
}

// Installs into real files of a fresh home: all three, again (nothing to do), then a Claude
// Code file that no longer parses is refused and left as it was while the others still pass.
void CliTest::mcpInstallAndStatus() {
    QTemporaryDir home;
    QVERIFY(QDir(home.path()).mkpath(QStringLiteral(".quon-brix")));
    QFile token(home.filePath(QStringLiteral(".quon-brix/admin-token")));
    QVERIFY(token.open(QIODevice::WriteOnly) && token.write("s3cr3t\n") == 7);
    token.close();
    const QStringList install{QStringLiteral("mcp"), QStringLiteral("install")};

    Result r = run(install, {}, home.path());
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QString::fromUtf8(r.out).count(QStringLiteral(": Installed\n")), 3);
    r = run(install, {}, home.path());
    QCOMPARE(QString::fromUtf8(r.out).count(QStringLiteral(": Already up to date\n")), 3);
    r = run({QStringLiteral("mcp"), QStringLiteral("status")}, {}, home.path());
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QString::fromUtf8(r.out).count(QStringLiteral("  Installed  ")), 3);
    QVERIFY(!r.out.contains("s3cr3t")); // the table never shows the token

    QFile claude(home.filePath(QStringLiteral(".claude.json")));
    QVERIFY(claude.open(QIODevice::WriteOnly) && claude.write("{\"projects\": {") > 0);
    claude.close();
    r = run(install, {}, home.path());
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains("Claude Code: ") && r.err.contains("is not valid JSON"), r.err);
    QCOMPARE(QString::fromUtf8(r.out).count(QStringLiteral(": Already up to date\n")), 2);
    QVERIFY(claude.open(QIODevice::ReadOnly));
    QCOMPARE(claude.readAll(), QByteArray("{\"projects\": {"));
}

QTEST_GUILESS_MAIN(CliTest)
#include "test_cli.moc"
