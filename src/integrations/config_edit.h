#pragma once

// The writers and readers behind install() and inspect(), one level down: they take the file
// and the entry directly, so tests and the benchmark can aim them at any file.

#include "integrations/mcp_clients.h"

#include <QByteArray>
#include <QJsonObject>
#include <functional>

namespace quonbrix::integrations {

// Runs after each read of the target and before anything is merged into it: tests play the
// other program that rewrites the file at that moment.
using AfterRead = std::function<void()>;

// Sets mcpServers."quon-brix" to `entry` in the JSON file at `path`; every other key, value and
// number keeps its exact text. The file comes out with two-space indentation and sorted keys.
InstallResult installJSON(const QString &path, const QJsonObject &entry,
                          const AfterRead &afterRead = {});

// Replaces the [mcp_servers.quon-brix] tables of the TOML file at `path` by the Codex block;
// the rest of the file keeps its bytes.
InstallResult installCodex(const QString &path, quint16 port, const QString &token,
                           const AfterRead &afterRead = {});

// "http://127.0.0.1:<port>/mcp".
QString urlForPort(quint16 port);

// The snippets with a real token, as install() writes them too. The values are quoted for
// their format, so a token with a quote in it cannot break out of its string.
QString claudeCodeSnippet(const QString &url, const QString &token);
QString claudeDesktopSnippet(const QString &url, const QString &token);
QString codexSnippet(const QString &url, const QString &token);
QString tomlString(const QString &value);

// What a client's file holds under quon-brix.
struct InstalledEntry {
    enum class Status { NoFile, Unreadable, NoEntry, Present };
    Status status = Status::NoFile;
    QString url;           // the endpoint it points at
    QString authorization; // the header's value, "Bearer ..."
};
InstalledEntry readJsonEntry(McpClient client, const QString &path);
InstalledEntry readCodexEntry(const QString &path);

} // namespace quonbrix::integrations
