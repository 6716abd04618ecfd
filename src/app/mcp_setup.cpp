#include "app/mcp_setup.h"

#include "log/log_categories.h"

#include <QPointer>
#include <QThread>
#include <memory>

namespace quonbrix {

using integrations::InstallResult;
using integrations::InstallState;
using integrations::McpClient;

namespace {

// Runs `work` on a thread of its own and hands its result to `done` on `context`'s thread,
// unless `context` is gone by then.
template <class Result>
void runOffThread(QObject *context, std::function<Result()> work,
                  std::function<void(Result)> done) {
    auto result = std::make_shared<std::optional<Result>>();
    QThread *thread = QThread::create([work = std::move(work), result] { *result = work(); });
    QObject::connect(thread, &QThread::finished, context,
                     [result, done = std::move(done)] { done(std::move(**result)); });
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
}

} // namespace

McpSetup::McpSetup(Environment env, QObject *parent)
    : QObject(parent)
    , m_env(std::move(env)) {}

void McpSetup::refresh() {
    // A screen shown anew starts without the outcomes of the last one.
    if (!m_results.isEmpty() || m_copied) {
        m_results.clear();
        m_copied = false;
        Q_EMIT changed();
    }
    inspectAll();
}

void McpSetup::inspectAll() {
    // The token is read again with the files: the daemon may have minted a new one.
    struct Found {
        QString token;
        QHash<int, InstallState> states;
    };
    const quint64 generation = ++m_generation;
    const Environment env = m_env;
    runOffThread<Found>(
        this,
        [env] {
            Found found{integrations::mcpAdminToken(env), {}};
            for (McpClient client : integrations::allMcpClients)
                found.states.insert(int(client), integrations::inspect(client, found.token, env));
            return found;
        },
        [this, generation](Found found) {
            if (generation != m_generation || (found.token == m_token && found.states == m_states))
                return;
            m_token = std::move(found.token);
            m_states = std::move(found.states);
            Q_EMIT changed();
        });
}

void McpSetup::select(McpClient client) {
    if (client == m_selected)
        return;
    m_selected = client;
    m_copied = false;
    Q_EMIT changed();
}

std::optional<InstallState> McpSetup::state(McpClient client) const {
    const auto it = m_states.constFind(int(client));
    return it == m_states.cend() ? std::nullopt : std::optional(*it);
}

std::optional<InstallResult> McpSetup::lastResult(McpClient client) const {
    const auto it = m_results.constFind(int(client));
    return it == m_results.cend() ? std::nullopt : std::optional(*it);
}

bool McpSetup::installing(McpClient client) const {
    return m_installing.contains(int(client));
}

void McpSetup::install(McpClient client) {
    if (m_installing.contains(int(client)))
        return;
    m_installing.insert(int(client));
    Q_EMIT changed();
    const Environment env = m_env;
    const QString token = m_token;
    runOffThread<InstallResult>(
        this, [client, token, env] { return integrations::install(client, token, env); },
        [this, client](InstallResult result) {
            m_installing.remove(int(client));
            if (result.kind == InstallResult::Kind::Failed)
                qCWarning(lcIntegrations, "[QuonBrix] mcp: %s: %s",
                          qUtf8Printable(integrations::displayName(client)),
                          qUtf8Printable(result.message));
            else
                qCInfo(lcIntegrations, "[QuonBrix] mcp: %s: %s",
                       qUtf8Printable(integrations::displayName(client)),
                       qUtf8Printable(integrations::installResultText(result)));
            m_results.insert(int(client), std::move(result));
            Q_EMIT changed();
            inspectAll();
        });
}

void McpSetup::setCopied() {
    if (m_copied)
        return;
    m_copied = true;
    Q_EMIT changed();
}

} // namespace quonbrix
