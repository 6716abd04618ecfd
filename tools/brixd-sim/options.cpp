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

QString Fault::text() const {
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
        inv.usageError = QStringLiteral("unknown fault \"%1\" (500, hang, garbage or "
                                        "slow=SECONDS up to 3600)")
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
        "  --fault MODE          every admin endpoint misbehaves: 500, hang, garbage or\n"
        "                        slow=SECONDS                       [BRIXD_SIM_FAULT]\n"
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
