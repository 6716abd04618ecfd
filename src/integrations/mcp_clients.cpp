#include "integrations/mcp_clients.h"

#include "daemon_link/meter_client.h"
#include "integrations/config_edit.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QUrl>

namespace quonbrix::integrations {

namespace {

constexpr quint16 kDefaultPort = 8510;

const QString tokenPlaceholder = QStringLiteral("<admin-token>");

QString jsonString(const QString &value) {
    // A one-element array is the shortest document QJsonDocument writes a lone string in.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString bearer(const QString &token) {
    return QStringLiteral("Bearer ") + token;
}

QString home(const Environment &env) {
    return QDir::cleanPath(env.homeDir());
}

} // namespace

QString displayName(McpClient client) {
    switch (client) {
    case McpClient::ClaudeCode:
        return QStringLiteral("Claude Code");
    case McpClient::ClaudeDesktop:
        return QStringLiteral("Claude Desktop");
    case McpClient::Codex:
        return QStringLiteral("Codex");
    }
    return {};
}

QString toWire(McpClient client) {
    switch (client) {
    case McpClient::ClaudeCode:
        return QStringLiteral("claude-code");
    case McpClient::ClaudeDesktop:
        return QStringLiteral("claude-desktop");
    case McpClient::Codex:
        return QStringLiteral("codex");
    }
    return {};
}

std::optional<McpClient> mcpClientFromWire(QStringView wire) {
    for (const McpClient client : allMcpClients)
        if (wire == toWire(client))
            return client;
    return std::nullopt;
}

quint16 mcpPort(const Environment &env) {
    const std::optional<QString> value = env.value(QStringLiteral("QUON_BRIX_MCP_PORT"));
    if (!value)
        return kDefaultPort;
    bool ok = false;
    const int port = value->toInt(&ok, 10);
    return ok && port >= 1 && port <= 65535 ? quint16(port) : kDefaultPort;
}

QString urlForPort(quint16 port) {
    return QStringLiteral("http://127.0.0.1:%1/mcp").arg(port);
}

QString mcpUrl(const Environment &env) {
    return urlForPort(mcpPort(env));
}

QString mcpAdminToken(const Environment &env) {
    return readAdminToken(env);
}

QString claudeCodeSnippet(const QString &url, const QString &token) {
    return QStringList{
        QStringLiteral("{"),
        QStringLiteral("  \"mcpServers\": {"),
        QStringLiteral("    \"quon-brix\": {"),
        QStringLiteral("      \"type\": \"http\","),
        QStringLiteral("      \"url\": %1,").arg(jsonString(url)),
        QStringLiteral("      \"headers\": { \"Authorization\": %1 }")
            .arg(jsonString(bearer(token))),
        QStringLiteral("    }"),
        QStringLiteral("  }"),
        QStringLiteral("}"),
    }
        .join(u'\n');
}

QString claudeDesktopSnippet(const QString &url, const QString &token) {
    return QStringList{
        QStringLiteral("{"),
        QStringLiteral("  \"mcpServers\": {"),
        QStringLiteral("    \"quon-brix\": {"),
        QStringLiteral("      \"command\": \"npx\","),
        QStringLiteral("      \"args\": ["),
        QStringLiteral("        \"-y\","),
        QStringLiteral("        \"mcp-remote\","),
        QStringLiteral("        %1,").arg(jsonString(url)),
        QStringLiteral("        \"--header\","),
        QStringLiteral("        %1")
            .arg(jsonString(QStringLiteral("Authorization: ") + bearer(token))),
        QStringLiteral("      ]"),
        QStringLiteral("    }"),
        QStringLiteral("  }"),
        QStringLiteral("}"),
    }
        .join(u'\n');
}

QString codexSnippet(const QString &url, const QString &token) {
    return QStringList{
        QStringLiteral("[mcp_servers.quon-brix]"),
        QStringLiteral("url = %1").arg(tomlString(url)),
        QString(),
        QStringLiteral("[mcp_servers.quon-brix.http_headers]"),
        QStringLiteral("Authorization = %1").arg(tomlString(bearer(token))),
    }
        .join(u'\n');
}

QString snippet(McpClient client, const QString &token, const Environment &env) {
    const QString url = mcpUrl(env);
    const QString shown = token.isEmpty() ? tokenPlaceholder : token;
    switch (client) {
    case McpClient::ClaudeCode:
        return claudeCodeSnippet(url, shown);
    case McpClient::ClaudeDesktop:
        return claudeDesktopSnippet(url, shown);
    case McpClient::Codex:
        return codexSnippet(url, shown);
    }
    return {};
}

QString snippetHint(McpClient client, const Environment &env) {
    switch (client) {
    case McpClient::ClaudeCode:
        return QStringLiteral("Paste into a project's .mcp.json to meter just that repo.");
    case McpClient::ClaudeDesktop:
        return QStringLiteral(
            "Paste into claude_desktop_config.json. Requires Node.js (npx); restart Claude "
            "Desktop.");
    case McpClient::Codex:
        return QStringLiteral("Append to %1, then restart Codex.").arg(displayPath(client, env));
    }
    return {};
}

QString installHint(McpClient client, const Environment &env) {
    switch (client) {
    case McpClient::ClaudeCode:
        return QStringLiteral("Installs for every Claude Code session (%1, user scope).")
            .arg(displayPath(client, env));
    case McpClient::ClaudeDesktop:
        return QStringLiteral(
            "Installs into Claude Desktop's config. Restart Claude Desktop after.");
    case McpClient::Codex:
        return QStringLiteral("Installs into %1. Restart Codex after.")
            .arg(displayPath(client, env));
    }
    return {};
}

QString targetPath(McpClient client, const Environment &env) {
    switch (client) {
    case McpClient::ClaudeCode:
        return home(env) + QStringLiteral("/.claude.json");
    case McpClient::ClaudeDesktop: {
        // The XDG rules: a relative XDG_CONFIG_HOME is invalid and ignored.
        const QString xdg = env.value(QStringLiteral("XDG_CONFIG_HOME"), QString());
        const QString config = QDir::isAbsolutePath(xdg) ? QDir::cleanPath(xdg)
                                                         : home(env) + QStringLiteral("/.config");
        return config + QStringLiteral("/Claude/claude_desktop_config.json");
    }
    case McpClient::Codex: {
        const QString codexHome = env.value(QStringLiteral("CODEX_HOME"), QString());
        const QString dir = codexHome.isEmpty()
                                ? home(env) + QStringLiteral("/.codex")
                                : QDir::cleanPath(QDir(home(env)).absoluteFilePath(codexHome));
        return dir + QStringLiteral("/config.toml");
    }
    }
    return {};
}

QString displayPath(McpClient client, const Environment &env) {
    const QString path = targetPath(client, env);
    const QString prefix = home(env) + u'/';
    if (prefix.size() > 1 && path.startsWith(prefix))
        return QStringLiteral("~/") + path.mid(prefix.size());
    return path;
}

QString installResultText(const InstallResult &result) {
    switch (result.kind) {
    case InstallResult::Kind::Added:
        return QStringLiteral("Installed");
    case InstallResult::Kind::Updated:
        return QStringLiteral("Updated");
    case InstallResult::Kind::Unchanged:
        return QStringLiteral("Already up to date");
    case InstallResult::Kind::Failed:
        return result.message;
    }
    return result.message;
}

InstallResult install(McpClient client, const QString &token, const Environment &env) {
    if (token.isEmpty())
        return {InstallResult::Kind::Failed,
                QStringLiteral("Daemon hasn't issued a token yet — start the daemon first.")};
    const QString path = targetPath(client, env);
    const QString url = mcpUrl(env);
    switch (client) {
    case McpClient::ClaudeCode:
        return installJSON(path,
                           QJsonObject{
                               {QStringLiteral("type"), QStringLiteral("http")},
                               {QStringLiteral("url"), url},
                               {QStringLiteral("headers"),
                                QJsonObject{{QStringLiteral("Authorization"), bearer(token)}}},
                           });
    case McpClient::ClaudeDesktop:
        return installJSON(path,
                           QJsonObject{
                               {QStringLiteral("command"), QStringLiteral("npx")},
                               {QStringLiteral("args"),
                                QJsonArray{QStringLiteral("-y"), QStringLiteral("mcp-remote"), url,
                                           QStringLiteral("--header"),
                                           QStringLiteral("Authorization: ") + bearer(token)}},
                           });
    case McpClient::Codex:
        return installCodex(path, mcpPort(env), token);
    }
    return {InstallResult::Kind::Failed, QStringLiteral("Unknown client.")};
}

InstallState inspect(McpClient client, const QString &token, const Environment &env) {
    const QString path = targetPath(client, env);
    const InstalledEntry entry =
        client == McpClient::Codex ? readCodexEntry(path) : readJsonEntry(client, path);
    switch (entry.status) {
    case InstalledEntry::Status::NoFile:
    case InstalledEntry::Status::NoEntry:
        return InstallState::NotInstalled;
    case InstalledEntry::Status::Unreadable:
        return InstallState::ConfigUnreadable;
    case InstalledEntry::Status::Present:
        break;
    }
    // Without a token from the daemon there is nothing to hold the installed one against.
    const bool tokenMatches = token.isEmpty() || entry.authorization == bearer(token);
    const bool portMatches = QUrl(entry.url).port() == mcpPort(env);
    return tokenMatches && portMatches ? InstallState::Installed : InstallState::TokenOutOfDate;
}

QString installStateText(InstallState state) {
    switch (state) {
    case InstallState::NotInstalled:
        return QStringLiteral("Not installed");
    case InstallState::Installed:
        return QStringLiteral("Installed");
    case InstallState::TokenOutOfDate:
        return QStringLiteral("Installed · token out of date");
    case InstallState::ConfigUnreadable:
        return QStringLiteral("Config unreadable");
    }
    return {};
}

} // namespace quonbrix::integrations
