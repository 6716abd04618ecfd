// Codex's config.toml as any bytes: the install either refuses and leaves the file as it was,
// or writes TOML that holds our server and every other value of the file, and then finds
// nothing left to do.

#include "config_fixture.h"
#include "fuzz_input.h"
#include "integrations/config_edit.h"

#include <optional>
#include <sstream>
#include <toml++/toml.h>

using namespace quonbrix;
using integrations::InstallResult;

namespace {

std::optional<toml::table> parse(const QByteArray &bytes) {
    try {
        return toml::parse(std::string_view(bytes.constData(), size_t(bytes.size())));
    } catch (const toml::parse_error &) {
        return std::nullopt;
    }
}

// The file's values without our server, as text: NaN compares unequal to itself, its text
// does not.
std::string othersOf(toml::table table) {
    if (toml::table *servers = table["mcp_servers"].as_table()) {
        servers->erase("quon-brix");
        if (servers->empty())
            table.erase("mcp_servers");
    }
    std::ostringstream out;
    out << table;
    return out.str();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const fuzz::ConfigFixture file(QStringLiteral("config.toml"));
    const QByteArray before = fuzz::bytesOf(data, size);
    file.write(before);
    const InstallResult result =
        integrations::installCodex(file.path(), 8510, QStringLiteral("fuzz-token"));
    const QByteArray after = file.read();
    if (result.kind == InstallResult::Kind::Failed ||
        result.kind == InstallResult::Kind::Unchanged) {
        fuzz::require(after == before, "a refused or needless install changed the file");
        return 0;
    }

    const std::optional<toml::table> written = parse(after);
    fuzz::require(written.has_value(), "the install wrote something that is not TOML");
    const auto ours = (*written)["mcp_servers"]["quon-brix"];
    fuzz::require(ours["url"].value_or(std::string()) == "http://127.0.0.1:8510/mcp" &&
                      ours["http_headers"]["Authorization"].value_or(std::string()) ==
                          "Bearer fuzz-token",
                  "the written file does not hold our server");
    const std::optional<toml::table> original = parse(before);
    fuzz::require(original.has_value(), "an install went ahead on a file that is not TOML");
    fuzz::require(othersOf(*written) == othersOf(*original),
                  "the install lost or changed another value");
    fuzz::require(
        integrations::installCodex(file.path(), 8510, QStringLiteral("fuzz-token")).kind ==
            InstallResult::Kind::Unchanged,
        "a second install found more to do");
    return 0;
}
