#include "options.h"

#include <QCommandLineParser>
#include <cmath>

namespace quonbrix::sim {

namespace {

const QString scenarioVar = QStringLiteral("BRIXD_SIM_SCENARIO");
const QString faultVar = QStringLiteral("BRIXD_SIM_FAULT");
const QString syncSkipVar = QStringLiteral("BRIXD_SIM_SYNC_SKIP");
const QString portVar = QStringLiteral("QUON_BRIX_ADMIN_PORT");
const QString accountPortVar = QStringLiteral("BRIXD_SIM_ACCOUNT_PORT");
const QString accountScriptVar = QStringLiteral("BRIXD_SIM_ACCOUNT_SCRIPT");

// The command line's value if given, else the variable's if set and not empty.
std::optional<QString> pick(const QCommandLineParser &parser, const QCommandLineOption &option,
                            const Environment &env, const QString &var) {
    if (parser.isSet(option))
        return parser.value(option);
    const std::optional<QString> fromEnv = env.value(var);
    if (fromEnv && !fromEnv->isEmpty())
        return fromEnv;
    return std::nullopt;
}

std::optional<quint16> parsePort(const QString &text) {
    bool ok = false;
    const uint port = text.toUInt(&ok);
    if (!ok || port > 65535)
        return std::nullopt;
    return quint16(port);
}

} // namespace

Fault Fault::at(double epochSeconds) const {
    if (cycleSeconds <= 0)
        return *this;
    static const Fault turns[] = {{Kind::None},    {Kind::ServerError}, {Kind::Hang},
                                  {Kind::Garbage}, {Kind::Slow, 2},     {Kind::Killed}};
    const auto turn = qint64(std::floor(epochSeconds / cycleSeconds)) % std::size(turns);
    return turns[turn];
}

QString Fault::text() const {
    if (cycleSeconds > 0)
        return QStringLiteral("cycle=") + QString::number(cycleSeconds);
    switch (kind) {
    case Kind::None:
        return {};
    case Kind::ServerError:
        return QStringLiteral("500");
    case Kind::Hang:
        return QStringLiteral("hang");
    case Kind::Garbage:
        return QStringLiteral("garbage");
    case Kind::Slow:
        return QStringLiteral("slow=") + QString::number(delaySeconds);
    case Kind::Killed:
        return QStringLiteral("killed");
    case Kind::Huge:
        return QStringLiteral("huge");
    case Kind::Deep:
        return QStringLiteral("deep");
    case Kind::Projects:
        return QStringLiteral("projects=") + QString::number(count);
    }
    return {};
}

std::optional<Fault> parseFault(const QString &text) {
    if (text.isEmpty())
        return Fault{};
    if (text == u"500")
        return Fault{Fault::Kind::ServerError, 0};
    if (text == u"hang")
        return Fault{Fault::Kind::Hang, 0};
    if (text == u"garbage")
        return Fault{Fault::Kind::Garbage, 0};
    if (text == u"killed")
        return Fault{Fault::Kind::Killed};
    if (text == u"huge")
        return Fault{Fault::Kind::Huge};
    if (text == u"deep")
        return Fault{Fault::Kind::Deep};
    if (text.startsWith(u"projects=")) {
        bool ok = false;
        const int count = text.mid(9).toInt(&ok);
        if (ok && count >= 0 && count <= 10'000'000)
            return Fault{Fault::Kind::Projects, 0, count};
    }
    if (text.startsWith(u"cycle=")) {
        bool ok = false;
        const double seconds = text.mid(6).toDouble(&ok);
        if (ok && std::isfinite(seconds) && seconds >= 1 && seconds <= 3600)
            return Fault{Fault::Kind::None, 0, 0, seconds};
    }
    if (text.startsWith(u"slow=")) {
        bool ok = false;
        const double seconds = text.mid(5).toDouble(&ok);
        // An hour is already longer than any client waits.
        if (ok && std::isfinite(seconds) && seconds > 0 && seconds <= 3600)
            return Fault{Fault::Kind::Slow, seconds};
    }
    return std::nullopt;
}

Invocation parseInvocation(const QStringList &arguments, const Environment &env) {
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QString());
    const QCommandLineOption scenario(QStringLiteral("scenario"), QString(),
                                      QStringLiteral("name"));
    const QCommandLineOption fault(QStringLiteral("fault"), QString(), QStringLiteral("mode"));
    const QCommandLineOption port(QStringLiteral("port"), QString(), QStringLiteral("n"));
    const QCommandLineOption accountPort(QStringLiteral("account-port"), QString(),
                                         QStringLiteral("n"));
    const QCommandLineOption accountScript(QStringLiteral("account-script"), QString(),
                                           QStringLiteral("items"));
    parser.addOptions({help, scenario, fault, port, accountPort, accountScript});

    Invocation inv;
    if (!parser.parse(arguments)) {
        inv.usageError = parser.errorText();
        return inv;
    }
    if (parser.isSet(help))
        return inv;
    const QStringList words = parser.positionalArguments();
    if (words.size() != 1 || (words[0] != u"run" && words[0] != u"list")) {
        inv.usageError =
            words.isEmpty()
                ? QStringLiteral("missing command (run or list)")
                : QStringLiteral("unknown command \"%1\" (run or list)").arg(words.join(u' '));
        return inv;
    }
    inv.command = words[0] == u"run" ? Command::Run : Command::List;
    if (inv.command == Command::List)
        return inv;

    RunOptions &run = inv.run;
    run.scenario = pick(parser, scenario, env, scenarioVar).value_or(defaultScenarioName);
    const QString faultText = pick(parser, fault, env, faultVar).value_or(QString());
    const std::optional<Fault> parsedFault = parseFault(faultText);
    if (!parsedFault) {
        inv.usageError = QStringLiteral("unknown fault \"%1\" (500, hang, garbage, "
                                        "slow=SECONDS up to 3600, killed, huge, deep, "
                                        "projects=N or cycle=SECONDS)")
                             .arg(faultText);
        return inv;
    }
    run.fault = *parsedFault;
    const auto portFrom = [&](const QCommandLineOption &option,
                              const QString &var) -> std::optional<quint16> {
        const std::optional<QString> text = pick(parser, option, env, var);
        if (!text)
            return std::nullopt;
        const std::optional<quint16> parsed = parsePort(*text);
        if (!parsed)
            inv.usageError =
                QStringLiteral("port must be a number from 0 to 65535, not \"%1\"").arg(*text);
        return parsed;
    };
    if (const std::optional<quint16> p = portFrom(port, portVar))
        run.port = *p;
    run.accountPort = portFrom(accountPort, accountPortVar);
    if (!inv.usageError.isEmpty())
        return inv;
    run.accountScriptText = pick(parser, accountScript, env, accountScriptVar).value_or(QString());
    const std::optional<AccountScript> script =
        parseAccountScript(run.accountScriptText, &inv.usageError);
    if (!script)
        return inv;
    run.accountScript = *script;
    const std::optional<QString> skip = env.value(syncSkipVar);
    if (skip && !skip->isEmpty())
        run.forcedSyncSkip = skip;
    return inv;
}

QString helpText() {
    return QStringLiteral(
        "Usage: brixd-sim run [--scenario NAME|PATH] [--fault MODE] [--port N]\n"
        "                     [--account-port N [--account-script ITEMS]]\n"
        "       brixd-sim list\n"
        "       brixd-sim --help\n"
        "\n"
        "A stand-in for the meter daemon brixd: serves its admin API on 127.0.0.1 from a\n"
        "scenario, so the app can be developed and shown without the real daemon.\n"
        "\n"
        "  --scenario NAME|PATH  a built-in scenario (see `list`) or a scenario file;\n"
        "                        default typical-day                [BRIXD_SIM_SCENARIO]\n"
        "  --fault MODE          every admin endpoint misbehaves: 500, hang, garbage,\n"
        "                        slow=SECONDS or killed (dies with the request in hand);\n"
        "                        /status only: huge (50 MB), deep (nested 10,000 deep)\n"
        "                        or projects=N; cycle=SECONDS: none, 500, hang, garbage,\n"
        "                        slow=2, killed in turn             [BRIXD_SIM_FAULT]\n"
        "  --port N              port to listen on, 0 for any free one; default 8511\n"
        "                                                           [QUON_BRIX_ADMIN_PORT]\n"
        "  --account-port N      also serve the stand-in account API (device sign-in and\n"
        "                        its approval page /activate) on this port, 0 for any\n"
        "                        free one; default: not served  [BRIXD_SIM_ACCOUNT_PORT]\n"
        "  --account-script ITEMS  how the account API answers, comma-separated:\n"
        "                        pending=N slow_down=N deny expired tls poll=hang\n"
        "                        start=STATUS|garbage userinfo=STATUS interval=SECONDS\n"
        "                                                        [BRIXD_SIM_ACCOUNT_SCRIPT]\n"
        "\n"
        "BRIXD_SIM_SYNC_SKIP=CODE makes every sync report that skip code (busy, error, ...).\n"
        "It writes a fresh ~/.quon-brix/admin-token at start, reads ~/.quon-brix/enrollment.json\n"
        "(signed in when it is there) and stops on SIGTERM or SIGINT.\n"
        "Exit status: 0 when stopped by a signal, 1 when it cannot serve, 2 for a usage error.\n");
}

} // namespace quonbrix::sim
