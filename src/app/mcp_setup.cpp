#include "app/mcp_setup.h"

#include <QLoggingCategory>
#include <QPointer>
#include <QThread>
#include <memory>

Q_LOGGING_CATEGORY(lcMcpSetup, "quonbrix.integrations")

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
    const quint64 generation = ++m_generation;
    const Environment env = m_env;
    runOffThread<QString>(
        this, [env] { return integrations::mcpAdminToken(env); },
        [this, generation](QString token) {
            if (generation != m_generation)
                return;
            if (token != m_token) {
                m_token = token;
                Q_EMIT changed();
            }
            inspectAll(m_token);
        });
}

void McpSetup::inspectAll(const QString &token) {
    const quint64 generation = m_generation;
    const Environment env = m_env;
    using States = QHash<int, InstallState>;
    runOffThread<States>(
        this,
        [env, token] {
            States states;
            for (McpClient client : integrations::allMcpClients)
                states.insert(int(client), integrations::inspect(client, token, env));
            return states;
        },
        [this, generation](States states) {
            if (generation != m_generation || states == m_states)
                return;
            m_states = std::move(states);
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
                qCWarning(lcMcpSetup, "[QuonBrix] mcp: %s: %s",
                          qUtf8Printable(integrations::displayName(client)),
                          qUtf8Printable(result.message));
            else
                qCInfo(lcMcpSetup, "[QuonBrix] mcp: %s: %s",
                       qUtf8Printable(integrations::displayName(client)),
                       qUtf8Printable(integrations::installResultText(result)));
            m_results.insert(int(client), std::move(result));
            Q_EMIT changed();
            inspectAll(m_token);
        });
}

void McpSetup::setCopied() {
    if (m_copied)
        return;
    m_copied = true;
    Q_EMIT changed();
}

} // namespace quonbrix
