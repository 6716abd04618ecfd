#include "cli/mcp_commands.h"
#include "platform/console_streams.h"

#include "integrations/agent_guide.h"
#include "integrations/mcp_clients.h"

#include <QTextStream>
#include <cstdio>

namespace quonbrix::cli {

using namespace integrations;

namespace {

const char *const mcpUsage =
    "quonbrix: usage: quonbrix mcp status | install [--client claude-code|claude-desktop|codex|"
    "all] | snippet --client claude-code|claude-desktop|codex";

using console::err;
using console::out;

// The clients named by "--client NAME" (all of them when `allowAll` and NAME is "all" or the
// option is absent); absent when the arguments are wrong.
std::optional<std::vector<McpClient>> chosenClients(const QStringList &args, bool allowAll) {
    if (args.isEmpty() && allowAll)
        return std::vector<McpClient>(allMcpClients.begin(), allMcpClients.end());
    if (args.size() != 2 || args[0] != QLatin1String("--client"))
        return std::nullopt;
    if (allowAll && args[1] == QLatin1String("all"))
        return std::vector<McpClient>(allMcpClients.begin(), allMcpClients.end());
    if (const auto client = mcpClientFromWire(args[1]))
        return std::vector<McpClient>{*client};
    return std::nullopt;
}

int statusTable(const Environment &env) {
    const QString token = mcpAdminToken(env);
    out() << QStringLiteral("%1  %2  %3")
                 .arg(QStringLiteral("Client"), -14)
                 .arg(QStringLiteral("State"), -29)
                 .arg(QStringLiteral("Configuration"))
          << Qt::endl;
    for (McpClient client : allMcpClients)
        out() << QStringLiteral("%1  %2  %3")
                     .arg(displayName(client), -14)
                     .arg(installStateText(inspect(client, token, env)), -29)
                     .arg(displayPath(client, env))
              << Qt::endl;
    out() << QStringLiteral("Server        ") << mcpUrl(env) << Qt::endl;
    if (token.isEmpty())
        out() << "Waiting for the daemon to mint a local token — make sure quon-brix is running."
              << Qt::endl;
    return 0;
}

int installClients(const std::vector<McpClient> &clients, const Environment &env) {
    const QString token = mcpAdminToken(env);
    bool failed = false;
    for (McpClient client : clients) {
        const InstallResult result = install(client, token, env);
        failed = failed || result.kind == InstallResult::Kind::Failed;
        (result.kind == InstallResult::Kind::Failed ? err() : out())
            << displayName(client) << ": " << installResultText(result) << Qt::endl;
    }
    return failed ? 1 : 0;
}

} // namespace

int mcpCommand(const QStringList &args, const Environment &env) {
    const QString sub = args.value(0);
    const QStringList rest = args.mid(1);
    if (sub == QLatin1String("status") && rest.isEmpty())
        return statusTable(env);
    if (sub == QLatin1String("install")) {
        if (const auto clients = chosenClients(rest, true))
            return installClients(*clients, env);
    }
    if (sub == QLatin1String("snippet")) {
        if (const auto clients = chosenClients(rest, false)) {
            out() << snippet(clients->front(), mcpAdminToken(env), env) << Qt::endl;
            return 0;
        }
    }
    err() << mcpUsage << Qt::endl;
    return 2;
}

int guideCommand(const QStringList &args) {
    if (!args.isEmpty()) {
        err() << "quonbrix: guide takes no arguments" << Qt::endl;
        return 2;
    }
    const auto guide = agentGuideText();
    if (!guide) {
        err() << "quonbrix: the agent guide built into this program is missing" << Qt::endl;
        return 1;
    }
    QString rules = projectRules(*guide);
    if (!rules.endsWith(QLatin1Char('\n')))
        rules += QLatin1Char('\n');
    out() << rules;
    out().flush();
    return 0;
}

} // namespace quonbrix::cli
