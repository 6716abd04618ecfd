// The JSON clients' files (~/.claude.json, claude_desktop_config.json) as any bytes: the install
// either refuses and leaves the file as it was, or writes a file that holds our entry and every
// other value of the file, and then finds nothing left to do.

#include "config_fixture.h"
#include "fuzz_input.h"
#include "integrations/config_edit.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace quonbrix;
using integrations::InstallResult;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const fuzz::ConfigFixture file(QStringLiteral("claude.json"));
    static const QJsonObject entry{
        {QStringLiteral("type"), QStringLiteral("http")},
        {QStringLiteral("url"), QStringLiteral("http://127.0.0.1:8510/mcp")},
        {QStringLiteral("headers"),
         QJsonObject{{QStringLiteral("Authorization"), QStringLiteral("Bearer fuzz-token")}}}};

    const QByteArray before = fuzz::bytesOf(data, size);
    file.write(before);
    const InstallResult result = integrations::installJSON(file.path(), entry);
    const QByteArray after = file.read();
    if (result.kind == InstallResult::Kind::Failed ||
        result.kind == InstallResult::Kind::Unchanged) {
        fuzz::require(after == before, "a refused or needless install changed the file");
        return 0;
    }

    // Qt's reader takes less than JSON allows (1e-400, say): where it reads the file, it reads
    // the result as the file with our entry; the app's own reader finds the entry either way.
    QJsonParseError error{};
    const QJsonDocument original = QJsonDocument::fromJson(before, &error);
    if (error.error == QJsonParseError::NoError && original.isObject()) {
        QJsonObject expected = original.object();
        QJsonObject servers = expected.value(QStringLiteral("mcpServers")).toObject();
        servers.insert(QStringLiteral("quon-brix"), entry);
        expected.insert(QStringLiteral("mcpServers"), servers);
        const QJsonDocument written = QJsonDocument::fromJson(after, &error);
        fuzz::require(error.error == QJsonParseError::NoError && written.object() == expected,
                      "the install lost or changed another value");
    }
    const integrations::InstalledEntry found =
        integrations::readJsonEntry(integrations::McpClient::ClaudeCode, file.path());
    fuzz::require(found.status == integrations::InstalledEntry::Status::Present &&
                      found.url == entry.value(QStringLiteral("url")).toString() &&
                      found.authorization == QStringLiteral("Bearer fuzz-token"),
                  "the written file does not hold our entry");
    fuzz::require(integrations::installJSON(file.path(), entry).kind ==
                      InstallResult::Kind::Unchanged,
                  "a second install found more to do");
    return 0;
}
