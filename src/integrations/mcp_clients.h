#pragma once

// Connecting the person's own AI clients to the daemon's MCP endpoint: the snippet to copy,
// the one-button install into each client's own configuration file, and a check of what is
// installed there now. QtCore only; every call here may block on the file system, so the app
// runs installs and checks off the GUI thread.

#include "platform/environment.h"

#include <QString>
#include <array>
#include <optional>

namespace quonbrix::integrations {

enum class McpClient { ClaudeCode, ClaudeDesktop, Codex };
inline constexpr std::array allMcpClients{McpClient::ClaudeCode, McpClient::ClaudeDesktop,
                                          McpClient::Codex};

// "Claude Code", "Claude Desktop", "Codex".
QString displayName(McpClient client);
// "claude-code", "claude-desktop", "codex": the names the command line takes.
QString toWire(McpClient client);
std::optional<McpClient> mcpClientFromWire(QStringView wire);

// The server's name in every client configuration.
inline const QString mcpServerName = QStringLiteral("quon-brix");

// QUON_BRIX_MCP_PORT as a decimal integer; 8510 when absent or not a number.
quint16 mcpPort(const Environment &env);
// "http://127.0.0.1:<port>/mcp".
QString mcpUrl(const Environment &env);
// The daemon's admin token (~/.quon-brix/admin-token, trimmed); empty when there is none yet.
QString mcpAdminToken(const Environment &env);

// The text to copy for a client; "<admin-token>" stands in for an empty token.
QString snippet(McpClient client, const QString &token, const Environment &env);
// The line shown with the snippet ("Paste into a project's .mcp.json to meter just that repo.").
QString snippetHint(McpClient client, const Environment &env);
// The line under "Install globally" ("Installs for every Claude Code session (~/.claude.json,
// user scope).").
QString installHint(McpClient client, const Environment &env);

// The client's configuration file, absolute: ~/.claude.json;
// $XDG_CONFIG_HOME/Claude/claude_desktop_config.json (~/.config when unset);
// $CODEX_HOME/config.toml when CODEX_HOME is set, else ~/.codex/config.toml.
QString targetPath(McpClient client, const Environment &env);
// The same with the home directory written as "~", for screens and hints.
QString displayPath(McpClient client, const Environment &env);

struct InstallResult {
    enum class Kind { Added, Updated, Unchanged, Failed };
    Kind kind = Kind::Failed;
    QString message; // only for Failed
    friend bool operator==(const InstallResult &, const InstallResult &) = default;
};
// "Installed", "Updated", "Already up to date", or the failure's message.
QString installResultText(const InstallResult &result);

// Writes the quon-brix server entry into the client's configuration file, keeping everything
// else in it. Blocking.
InstallResult install(McpClient client, const QString &token, const Environment &env);

// What the client's configuration holds now, compared with the running daemon's port and token.
enum class InstallState { NotInstalled, Installed, TokenOutOfDate, ConfigUnreadable };
InstallState inspect(McpClient client, const QString &token, const Environment &env);
// "Not installed", "Installed", "Installed · token out of date", "Config unreadable".
QString installStateText(InstallState state);

} // namespace quonbrix::integrations
