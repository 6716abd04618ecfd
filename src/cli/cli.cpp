#include "cli/cli.h"
#include "platform/console_streams.h"

#include "cli/app_commands.h"
#include "cli/mcp_commands.h"

#include "app/status_model.h"
#include "app/web_links.h"
#include "daemon_link/meter_client.h"
#include "daemon_link/records.h"
#include "features/formatting.h"
#include "features/provider_limits.h"
#include "features/today_figures.h"
#include "features/work_timers.h"
#include "platform/helper_programs.h"
#include "platform/unix_signals.h"
#include "platform/url_opener.h"
#include "json/json_codec.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QTextStream>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace quonbrix::cli {

namespace {

const char *const helpText = R"(Usage: quonbrix [command]

QuonBrix keeps the local AI-usage meter brixd running and shows its figures.
Without a command it starts the tray app (or shows the one already running).

Commands:
  status            print a short summary: the popover's Today figures, limit and timers
  status --json     print the daemon's status record as JSON
  status --waybar   print one JSON object for a waybar custom module
  status --watch    print a line whenever the status or the daemon's health changes
  timer list        list the open work timers: id, state, elapsed time, project
  timer start LABEL start a work timer for a project label
  timer pause|resume|complete|cancel ID
                    act on an open work timer
  sync              ask the daemon to collect and push usage now
  console           open this machine's private local console in the browser
  signin            sign this computer in to quon: prints a code to approve in the browser
  signin --no-browser
                    the same without opening the browser
  signout           sign this computer out of quon (asks first)
  signout --yes     sign out without asking
  mcp status        show whether Claude Code, Claude Desktop and Codex are connected to the
                    meter's MCP server, and with the current token
  mcp install [--client claude-code|claude-desktop|codex|all]
                    connect the AI clients (all by default) in their own configuration files
  mcp snippet --client NAME
                    print the configuration snippet for one client
  guide             print the agent guide's project rules (quonbrix guide >> AGENTS.md)
  update --check    print this version and the newest one the update feed offers
  autostart on|off|status
                    start QuonBrix at login, or not (an entry in ~/.config/autostart)

Options:
  -h, --help        show this help and exit
  -v, --version     show the version and exit

Environment:
  QUON_BRIX_ADMIN_PORT   the daemon's admin port on 127.0.0.1 (default 8511)
  QUON_BRIX_DAEMON       the brixd executable the tray app starts and keeps running
  QUON_BRIX_MCP_PORT     the daemon's MCP port on 127.0.0.1 (default 8510)
  CODEX_HOME             where Codex keeps config.toml (default ~/.codex)
  QUON_BRIX_UPDATE_FEED  the update feed (an appcast URL; file:// works too)
)";

using console::err;
using console::out;

QString failureLine(ReplyFailure failure, const QString &base) {
    if (failure == ReplyFailure::Unreadable)
        return QStringLiteral("daemon answered with an unreadable status");
    return QStringLiteral("daemon not reachable at ") + base;
}

// "Client A (running), Internal tooling (paused)".
QString openTimersList(const std::vector<const WorkSession *> &open) {
    QStringList parts;
    for (const WorkSession *session : open)
        parts << session->projectLabel + QStringLiteral(" (") + session->status + u')';
    return parts.join(QStringLiteral(", "));
}

// The summary's lines, also the waybar tooltip's: plain lines, never columns aligned with
// blanks, as waybar's font is proportional. The figures and captions are the popover's.
QStringList summaryLines(const DaemonStatus &s, const ForecastContext &forecast) {
    QStringList lines;
    lines << (s.period.isEmpty() ? QStringLiteral("Today") : QStringLiteral("Today · ") + s.period);
    for (const TodayFigure &figure : todayFigures(s))
        lines << todayFigureText(figure);
    lines << QStringLiteral("Output by source: ") + sourceSharesText(todaySourceShares(s));
    if (s.providerLimits && !s.providerLimits->empty()) {
        const LimitHeadline h = limitHeadline(*s.providerLimits, forecast);
        lines << (h.remaining.isEmpty() ? h.text : h.text + QStringLiteral(" · ") + h.remaining);
        if (!h.detail.isEmpty())
            lines << h.detail;
    } else {
        lines << providerHeadroomUnavailableText();
    }
    const auto open = openWorkTimers(s);
    QString timers = openTimersText(qsizetype(open.size()));
    if (!open.empty())
        timers += QStringLiteral(": ") + openTimersList(open);
    lines << timers;
    lines << QStringLiteral("Signed in: ") +
                 (s.enrolled ? QStringLiteral("yes") : QStringLiteral("no"));
    return lines;
}

// Waybar reads the tooltip (and the text) as Pango markup: a project label with "&" or "<"
// would otherwise leave the tooltip empty.
QString markupEscaped(const QString &text) {
    QString escaped = text;
    escaped.replace(u'&', QStringLiteral("&amp;"));
    escaped.replace(u'<', QStringLiteral("&lt;"));
    escaped.replace(u'>', QStringLiteral("&gt;"));
    return escaped;
}

// A single read has no earlier readings: forecasts go by the window's average pace.
ForecastContext oneOffForecast() {
    return {SystemClock::instance().now(), nullptr, QLocale(), QTimeZone::systemTimeZone()};
}

// One read of /status, blocking in a local event loop.
Reply<DaemonStatus> readStatusOnce(const MeterClient &client) {
    QEventLoop loop;
    Reply<DaemonStatus> result;
    client.status(&loop, [&](Reply<DaemonStatus> reply) {
        result = std::move(reply);
        loop.quit();
    });
    loop.exec();
    return result;
}

int watch(MeterClient &client, const Environment &env) {
    StatusModel model(&client, env);
    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, qApp, &QCoreApplication::quit);
    QString lastLine;
    bool first = true;
    // Printed only when the published status or health changed since the last line.
    const auto print = [&] {
        const QString line = watchLine(model.status(), client.base(), model.forecastContext());
        if (!first && line == lastLine)
            return;
        first = false;
        lastLine = line;
        out() << QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss")) << ' ' << line
              << Qt::endl;
    };
    bool changed = true;
    QObject::connect(&model, &StatusModel::statusChanged, [&] { changed = true; });
    QObject::connect(&model, &StatusModel::daemonHealthyChanged, [&] { changed = true; });
    QObject::connect(&model, &StatusModel::passFinished, [&] {
        if (changed)
            print();
        changed = false;
    });
    model.start();
    QCoreApplication::exec();
    return 0;
}

int status(const QStringList &args, const QString &base, const Environment &env) {
    enum class Mode { Summary, Json, Waybar, Watch } mode = Mode::Summary;
    for (const QString &arg : args) {
        if (arg == QLatin1String("--json"))
            mode = Mode::Json;
        else if (arg == QLatin1String("--waybar"))
            mode = Mode::Waybar;
        else if (arg == QLatin1String("--watch"))
            mode = Mode::Watch;
        else {
            err() << "quonbrix: unknown option '" << arg << "' for status. Try 'quonbrix --help'."
                  << Qt::endl;
            return 2;
        }
    }

    MeterClient client(base);
    if (mode == Mode::Watch)
        return watch(client, env);

    const Reply<DaemonStatus> reply = readStatusOnce(client);
    if (mode == Mode::Waybar) {
        // Waybar hides a module whose command fails, so a dead daemon still gets an object and
        // exit status 0; why it is down is in the tooltip, not on waybar's log every interval.
        out() << QJsonDocument(
                     waybarObject(reply.value, client.base(), oneOffForecast(), reply.failure))
                     .toJson(QJsonDocument::Compact)
              << Qt::endl;
        return 0;
    }
    if (!reply.value) {
        err() << failureLine(reply.failure, client.base()) << Qt::endl;
        return 1;
    }
    if (mode == Mode::Json)
        out() << QJsonDocument(json::encode(*reply.value)).toJson(QJsonDocument::Indented);
    else if (mode == Mode::Summary)
        out() << summary(*reply.value, oneOffForecast());
    out().flush();
    return 0;
}

} // namespace

QString summary(const DaemonStatus &s, const ForecastContext &forecast) {
    return summaryLines(s, forecast).join(u'\n') + u'\n';
}

QJsonObject waybarObject(const std::optional<DaemonStatus> &status, const QString &base,
                         const ForecastContext &forecast, ReplyFailure failure) {
    const QString down = QStringLiteral("down");
    if (!status) {
        return QJsonObject{{QStringLiteral("text"), QStringLiteral("brixd down")},
                           {QStringLiteral("alt"), down},
                           {QStringLiteral("tooltip"), markupEscaped(failureLine(failure, base))},
                           {QStringLiteral("class"), down},
                           {QStringLiteral("percentage"), 0}};
    }
    // The grade and the figure are the tray icon's: the highest fresh reading.
    const auto *top =
        status->providerLimits ? highestFreshReading(*status->providerLimits) : nullptr;
    QString cls = QStringLiteral("ok");
    if (top) {
        switch (limitSeverity(top->usedPercent)) {
        case LimitSeverity::Critical:
            cls = QStringLiteral("critical");
            break;
        case LimitSeverity::Warning:
            cls = QStringLiteral("warning");
            break;
        case LimitSeverity::Fine:
            break;
        }
    }
    const QString text =
        top ? usedPercentText(top->usedPercent) : todayFigures(*status).front().value;
    const qint64 pct = top ? roundToInt64(top->usedPercent).value_or(0) : 0;
    return QJsonObject{
        {QStringLiteral("text"), markupEscaped(text)},
        {QStringLiteral("alt"), cls},
        {QStringLiteral("tooltip"), markupEscaped(summaryLines(*status, forecast).join(u'\n'))},
        {QStringLiteral("class"), cls},
        {QStringLiteral("percentage"), std::clamp<qint64>(pct, 0, 100)}};
}

QString watchLine(const std::optional<DaemonStatus> &status, const QString &base,
                  const ForecastContext &forecast) {
    if (!status)
        return QStringLiteral("daemon not running — no status from ") + base;
    QStringList parts;
    for (const TodayFigure &figure : todayFigures(*status))
        parts << todayFigureText(figure);
    if (status->providerLimits && !status->providerLimits->empty()) {
        const LimitHeadline h = limitHeadline(*status->providerLimits, forecast);
        parts << (h.remaining.isEmpty() ? h.text
                                        : h.remaining + QStringLiteral(" (") + h.detail + u')');
    }
    const auto open = openWorkTimers(*status);
    if (!open.empty())
        parts << openTimersText(qsizetype(open.size()));
    return parts.join(QStringLiteral(" · "));
}

// Runs `start` against a fresh model and waits for `finished`; returns its exit code.
template <class Signal, class Handler>
int runModelCommand(StatusModel &model, Signal finished, Handler handler,
                    const std::function<void()> &start) {
    QEventLoop loop;
    int code = 1;
    QObject::connect(&model, finished, &loop, [&](auto... args) {
        code = handler(args...);
        loop.quit();
    });
    start();
    loop.exec();
    return code;
}

int timerCommand(const QStringList &args, MeterClient &client, const Environment &env) {
    static const QStringList sessionActions{QStringLiteral("pause"), QStringLiteral("resume"),
                                            QStringLiteral("complete"), QStringLiteral("cancel")};
    const QString action = args.value(0);
    StatusModel model(&client, env);
    if (action == QLatin1String("list") && args.size() == 1) {
        const Reply<DaemonStatus> reply = readStatusOnce(client);
        if (!reply.value) {
            err() << "quonbrix: " << failureLine(reply.failure, client.base()) << Qt::endl;
            return 1;
        }
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (const WorkSession &s : reply.value->workTimers.value_or(std::vector<WorkSession>{}))
            out() << s.id << '\t' << s.status << '\t'
                  << formatElapsedClock(workTimerElapsedSeconds(s, now)) << '\t' << s.projectLabel
                  << Qt::endl;
        return 0;
    }
    const auto report = [&model]() {
        const WorkTimerFeedback &last = model.workTimerFeedback().back();
        (last.isError ? err() : out()) << last.message << Qt::endl;
        return last.isError ? 1 : 0;
    };
    if (action == QLatin1String("start") && args.size() >= 2) {
        const QString label = args.mid(1).join(u' ');
        if (!trimmedProjectLabel(label)) {
            err() << "quonbrix: the project label is empty" << Qt::endl;
            return 2;
        }
        return runModelCommand(model, &StatusModel::workTimerFeedbackChanged, report,
                               [&] { model.startWorkTimer(label); });
    }
    if (sessionActions.contains(action) && args.size() == 2 && !args.at(1).isEmpty()) {
        const QString id = args.at(1);
        return runModelCommand(model, &StatusModel::workTimerFeedbackChanged, report, [&] {
            if (action == QLatin1String("pause"))
                model.pauseWorkTimer(id);
            else if (action == QLatin1String("resume"))
                model.resumeWorkTimer(id);
            else if (action == QLatin1String("complete"))
                model.completeWorkTimer(id);
            else
                model.cancelWorkTimer(id);
        });
    }
    err() << "quonbrix: usage: quonbrix timer list | start LABEL | pause|resume|complete|cancel "
             "ID"
          << Qt::endl;
    return 2;
}

int syncCommand(MeterClient &client, const Environment &env) {
    StatusModel model(&client, env);
    return runModelCommand(
        model, &StatusModel::syncFinished,
        [&model](bool ok) {
            (ok ? out() : err()) << model.syncMessage() << Qt::endl;
            return ok ? 0 : 1;
        },
        [&] { model.syncNow(); });
}

// The portal takes the link at once, but the user may still cancel its app chooser or the
// browser fail to start; the portal says so within moments, and the command waits that long.
constexpr int consoleReportGraceMs = 2000;

int consoleCommand(MeterClient &client, const Environment &env) {
    StatusModel model(&client, env);
    // No command line fallback: the link carries a one-time token.
    const UrlOpener opener(QDBusConnection::sessionBus(), nullptr);
    QEventLoop grace;
    bool reported = false;
    model.setUrlOpener([&](const QUrl &url, QObject *context, UrlOpenDone done) {
        opener.open(url, context, [&, done](UrlOpenOutcome outcome) {
            done(outcome);
            if (outcome == UrlOpenOutcome::Opened || outcome == UrlOpenOutcome::RefusedLater) {
                reported = true;
                grace.quit();
            }
        });
    });
    const QUrl page = WebLinks::from(env).localConsole;
    runModelCommand(
        model, &StatusModel::localConsoleFinished, [] { return 0; },
        [&] { model.openLocalConsole(page); });
    if (model.localConsoleMessage().isEmpty() && !reported) {
        QTimer::singleShot(consoleReportGraceMs, &grace, &QEventLoop::quit);
        grace.exec();
    }
    if (model.localConsoleMessage().isEmpty()) {
        out() << "Opened the local console in the browser" << Qt::endl;
        return 0;
    }
    err() << model.localConsoleMessage() << Qt::endl;
    return 1;
}

// The device flow and the keyring live in the quonbrix-signin helper, so that this program
// (the tray app too) loads neither the keyring's libraries nor TLS.
int signinCommand(const QStringList &args) {
    const QString helper =
        helperProgram(QCoreApplication::applicationDirPath(), QStringLiteral("quonbrix-signin"));
    QByteArrayList argv{QFile::encodeName(helper)};
    for (const QString &arg : args)
        argv << arg.toLocal8Bit();
    std::vector<char *> pointers;
    for (QByteArray &arg : argv)
        pointers.push_back(arg.data());
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    err() << "quonbrix: cannot run " << helper << ": "
          << QString::fromLocal8Bit(std::strerror(errno)) << Qt::endl;
    return 1;
}

int signoutCommand(const QStringList &args, MeterClient &client) {
    if (args.size() > 1 || (args.size() == 1 && args.at(0) != QLatin1String("--yes"))) {
        err() << "quonbrix: usage: quonbrix signout [--yes]" << Qt::endl;
        return 2;
    }
    if (args.isEmpty()) {
        out() << "サインアウトしますか？" << '\n'
              << "このコンピューターの quon "
                 "連携を解除します。ローカル計測は続きますが、クラウド同期・"
                 "チーム共有は止まります。再開するにはもう一度サインインしてください。"
              << '\n'
              << "[y/N] " << Qt::flush;
        QTextStream in(stdin);
        const QString answer = in.readLine().trimmed().toLower();
        if (answer != QLatin1String("y") && answer != QLatin1String("yes")) {
            out() << "Not signed out" << Qt::endl;
            return 1;
        }
    }
    QEventLoop loop;
    bool answered = false;
    client.clearEnrollment(&loop, [&](bool ok) {
        answered = ok;
        loop.quit();
    });
    loop.exec();
    if (!answered) {
        err() << "Sign-out failed — is the daemon running?" << Qt::endl;
        return 1;
    }
    out() << "Signed out" << Qt::endl;
    return 0;
}

int run(const QStringList &args, const Environment &env) {
    const QString command = args.value(0);
    if (command == QLatin1String("-h") || command == QLatin1String("--help") ||
        command == QLatin1String("help")) {
        out() << helpText;
        out().flush();
        return 0;
    }
    if (command == QLatin1String("-v") || command == QLatin1String("--version")) {
        out() << "quonbrix " << QUONBRIX_VERSION << Qt::endl;
        return 0;
    }
    if (command == QLatin1String("signin"))
        return signinCommand(args.mid(1));
    if (command == QLatin1String("mcp"))
        return mcpCommand(args.mid(1), env);
    if (command == QLatin1String("guide"))
        return guideCommand(args.mid(1));
    if (command == QLatin1String("update"))
        return updateCommand(args.mid(1), env);
    if (command == QLatin1String("autostart"))
        return autostartCommand(args.mid(1), env);
    static const QStringList daemonCommands{QStringLiteral("status"), QStringLiteral("timer"),
                                            QStringLiteral("sync"), QStringLiteral("console"),
                                            QStringLiteral("signout")};
    if (daemonCommands.contains(command)) {
        const QString base = MeterClient::baseFromEnvironment(env);
        if (!MeterClient::isUsableBase(base)) {
            err() << "quonbrix: QUON_BRIX_ADMIN_PORT does not make a valid daemon URL (" << base
                  << ")" << Qt::endl;
            return 2;
        }
        if (command == QLatin1String("status"))
            return status(args.mid(1), base, env);
        MeterClient client(base);
        if (command == QLatin1String("timer"))
            return timerCommand(args.mid(1), client, env);
        if (command == QLatin1String("signout"))
            return signoutCommand(args.mid(1), client);
        if (args.size() != 1) {
            err() << "quonbrix: " << command << " takes no arguments" << Qt::endl;
            return 2;
        }
        if (command == QLatin1String("sync"))
            return syncCommand(client, env);
        return consoleCommand(client, env);
    }
    err() << "quonbrix: unknown command '" << command << "'. Try 'quonbrix --help'." << Qt::endl;
    return 2;
}

} // namespace quonbrix::cli
