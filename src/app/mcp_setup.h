#pragma once

#include "integrations/mcp_clients.h"
#include "platform/environment.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <optional>

namespace quonbrix {

// The AI-client set-up screen's state: the chosen client, the daemon's token, what each
// client's configuration holds and the last install per client. Reading and writing the
// configuration files (~/.claude.json can be tens of MB) happens on worker threads; results
// land here on the GUI thread.
class McpSetup : public QObject {
    Q_OBJECT

public:
    explicit McpSetup(Environment env, QObject *parent = nullptr);

    const Environment &environment() const { return m_env; }

    // Reads the token again and checks every client's file: the screen is being shown. The
    // last screen's install outcomes and "Copied" are forgotten.
    void refresh();

    integrations::McpClient selected() const { return m_selected; }
    void select(integrations::McpClient client);

    QString token() const { return m_token; }
    std::optional<integrations::InstallState> state(integrations::McpClient client) const;
    std::optional<integrations::InstallResult> lastResult(integrations::McpClient client) const;
    bool installing(integrations::McpClient client) const;

    // Installs into the client's file with the current token; a second press while one runs
    // is ignored.
    void install(integrations::McpClient client);

    // The snippet of the chosen client was copied; cleared when another client is chosen.
    bool copied() const { return m_copied; }
    void setCopied();

Q_SIGNALS:
    void changed();

private:
    // Reads the token and checks every client's file off the GUI thread.
    void inspectAll();

    Environment m_env;
    integrations::McpClient m_selected = integrations::McpClient::ClaudeCode;
    QString m_token;
    QHash<int, integrations::InstallState> m_states;
    QHash<int, integrations::InstallResult> m_results;
    QSet<int> m_installing;
    bool m_copied = false;
    // Answers of an older refresh are dropped.
    quint64 m_generation = 0;
};

} // namespace quonbrix
