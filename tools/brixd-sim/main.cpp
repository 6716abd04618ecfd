// brixd-sim: a stand-in for the meter daemon brixd, so the app can be developed and shown
// without it. See README.md beside this file.

#include "account_api.h"
#include "api.h"
#include "enrollment.h"
#include "options.h"
#include "scenario.h"
#include "sim_server.h"
#include "sim_state.h"
#include "tokens.h"

#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/unix_signals.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTimeZone>
#include <csignal>
#include <cstdio>

using namespace quonbrix;
using namespace quonbrix::sim;

namespace {

constexpr int exitCannotServe = 1;
constexpr int exitUsage = 2;

void print(FILE *to, const QString &text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), to);
}

int list() {
    const QList<ScenarioSummary> scenarios = builtInScenarios();
    qsizetype width = 0;
    for (const ScenarioSummary &s : scenarios)
        width = std::max(width, s.name.size());
    for (const ScenarioSummary &s : scenarios)
        print(stdout, s.name.leftJustified(width + 2) + s.description + u'\n');
    return 0;
}

QString systemTimeZone() {
    const QByteArray id = QTimeZone::systemTimeZoneId();
    return id.isEmpty() ? QStringLiteral("UTC") : QString::fromLatin1(id);
}

int run(QCoreApplication &app, const RunOptions &options, const Environment &env) {
    QString error;
    const std::optional<Scenario> scenario = loadScenario(options.scenario, &error);
    const std::unique_ptr<SimState> state =
        scenario ? SimState::create(*scenario, SystemClock::instance(), systemTimeZone(), &error)
                 : nullptr;
    if (!state) {
        logLine(error);
        return exitCannotServe;
    }

    // Signed in when the app left an enrollment file, read once as the daemon does: the app
    // restarts the daemon after a sign-in.
    const std::optional<Enrollment> enrollment = readEnrollment(env.privateDir(), &error);
    if (enrollment)
        state->markEnrolled(enrollment->orgId.isEmpty() ? std::nullopt
                                                        : std::optional(enrollment->orgId));
    else if (!error.isEmpty())
        logLine(error + QStringLiteral("; going by the scenario"));

    // Our own listeners rather than server.listen(), which would add a second, noisier line.
    const auto listen = [](quint16 port) -> std::unique_ptr<QTcpServer> {
        auto listener = std::make_unique<QTcpServer>();
        if (listener->listen(QHostAddress::LocalHost, port))
            return listener;
        logLine(QStringLiteral("cannot listen on 127.0.0.1:%1: %2")
                    .arg(port)
                    .arg(listener->errorString()));
        return nullptr;
    };
    std::unique_ptr<QTcpServer> adminListener = listen(options.port);
    if (!adminListener)
        return exitCannotServe;
    std::unique_ptr<QTcpServer> accountListener;
    if (options.accountPort) {
        accountListener = listen(*options.accountPort);
        if (!accountListener)
            return exitCannotServe;
    }
    const quint16 port = adminListener->serverPort();

    Api api(*state, options.forcedSyncSkip, env.privateDir());
    SimServer server([&api](const ApiRequest &r) { return api.handle(r); }, options.fault);
    adminListener->setParent(&server);
    server.bind(adminListener.release());
    std::optional<AccountApi> account;
    std::unique_ptr<SimServer> accountServer;
    if (accountListener) {
        const QString base =
            QStringLiteral("http://127.0.0.1:%1").arg(accountListener->serverPort());
        account.emplace(options.accountScript, SystemClock::instance(), base);
        accountServer = std::make_unique<SimServer>(
            [&account](const ApiRequest &r) { return account->handle(r); }, Fault{});
        accountListener->setParent(accountServer.get());
        accountServer->bind(accountListener.release());
        QString line = QStringLiteral("account API on ") + base;
        if (!options.accountScriptText.isEmpty())
            line += QStringLiteral(", answers scripted as \"%1\"").arg(options.accountScriptText);
        logLine(line);
    } else if (!options.accountScriptText.isEmpty()) {
        logLine(QStringLiteral("no account port, so the account script is not used"));
    }
    // Only a sim that is actually serving replaces the token, so a second one that fails to
    // start leaves the first one's token alone.
    if (!writeAdminToken(env.privateDir(), &error)) {
        logLine(QStringLiteral("admin token: ") + error);
        return exitCannotServe;
    }

    UnixSignalWatcher stopSignals({SIGINT, SIGTERM});
    QObject::connect(&stopSignals, &UnixSignalWatcher::received, &app, [&](int signalNumber) {
        server.stopListening();
        if (accountServer)
            accountServer->stopListening();
        logLine(QStringLiteral("stopping on signal %1").arg(signalNumber));
        app.exit(0);
    });

    QString line = QStringLiteral("serving scenario %1 on http://127.0.0.1:%2")
                       .arg(state->scenarioName())
                       .arg(port);
    if (options.fault.kind != Fault::Kind::None)
        line += QStringLiteral(" with fault ") + options.fault.text();
    if (options.forcedSyncSkip)
        line += QStringLiteral(", every sync skipped as \"%1\"").arg(*options.forcedSyncSkip);
    if (enrollment)
        line += QStringLiteral(", signed in (enrollment.json)");
    logLine(line);
    return app.exec();
}

} // namespace

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    const Environment env = Environment::fromProcess();
    const Invocation inv = parseInvocation(app.arguments(), env);
    if (!inv.usageError.isEmpty()) {
        logLine(inv.usageError + QStringLiteral(" (see brixd-sim --help)"));
        return exitUsage;
    }
    switch (inv.command) {
    case Command::Help:
        print(stdout, helpText());
        return 0;
    case Command::List:
        return list();
    case Command::Run:
        break;
    }
    return run(app, inv.run, env);
}
