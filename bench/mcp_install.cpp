// What installing the MCP server into a big ~/.claude.json costs. Claude Code keeps every
// project's prompt history in that file, so it grows to tens of megabytes. Builds a ~20 MB one
// in Claude Code's own layout (two-space indentation, keys in insertion order) and times
// install(Claude Code) against QJsonDocument::fromJson + toJson(Indented) of the same bytes,
// the least any JSON round trip through Qt costs. The peak memory of one install is measured in
// a fresh process of this program, so earlier rounds' freed memory cannot hide any of it.

#include "integrations/mcp_clients.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace quonbrix;
using namespace quonbrix::integrations;

namespace {

const QString benchToken = QStringLiteral("bench-token-0123456789abcdef");

const char *const prompts[] = {
    "fix the failing test in src/parser.rs",
    "why does the build fail on CI but not locally? here is the log:\\n\\nerror[E0308]: "
    "mismatched types\\n  --> src/main.rs:42:17",
    "refactor the \\\"UserService\\\" to use dependency injection and add tests for it",
    "ログイン画面のバリデーションを直して、エラーメッセージを日本語にしてください",
    "add a dark mode toggle 🌙 to the settings page, keep the existing colours for light mode",
    "explain what this regex does: ^(?:[a-z0-9!#$%&'*+/=?^_`{|}~-]+)@example\\\\.com$",
    "[Pasted text #1 +48 lines]",
    "/compact",
    "bump the dependencies, run the whole suite and summarise what changed in CHANGELOG.md",
    "Überarbeite die README: Installation, Konfiguration, häufige Fehler — kurz halten",
};

// One project entry as Claude Code writes it.
void appendProject(QByteArray &out, int i, bool last) {
    const QByteArray n = QByteArray::number(i);
    out += "    \"/srv/code/client-" + n + "/service-" + QByteArray::number(i % 7) + "\": {\n";
    out += "      \"allowedTools\": [\n        \"Bash(git status)\",\n"
           "        \"Bash(npm run test:*)\",\n        \"Edit\"\n      ],\n";
    out += "      \"history\": [\n";
    const int entries = 40 + i % 30;
    for (int h = 0; h < entries; ++h) {
        const char *prompt = prompts[(i + h) % std::size(prompts)];
        out += "        {\n          \"display\": \"";
        out += prompt;
        if (h % 3 == 0)
            out += " (again, with the details from before: the service restarts twice a day "
                   "and the logs show a timeout on the database pool)";
        out += "\",\n          \"pastedContents\": ";
        if (h % 11 == 0)
            out += "{\n            \"1\": {\n              \"id\": 1,\n"
                   "              \"type\": \"text\",\n"
                   "              \"content\": \"stack trace line 1\\nstack trace line 2\"\n"
                   "            }\n          }\n";
        else
            out += "{}\n";
        out += h + 1 < entries ? "        },\n" : "        }\n";
    }
    out += "      ],\n";
    out += "      \"mcpContextUris\": [],\n      \"mcpServers\": {},\n"
           "      \"enabledMcpjsonServers\": [],\n      \"disabledMcpjsonServers\": [],\n"
           "      \"hasTrustDialogAccepted\": true,\n"
           "      \"projectOnboardingSeenCount\": " +
           QByteArray::number(i % 5) +
           ",\n"
           "      \"hasClaudeMdExternalIncludesApproved\": false,\n"
           "      \"lastCost\": 0." +
           QByteArray::number(1234567 + i) +
           ",\n"
           "      \"lastAPIDuration\": " +
           QByteArray::number(100000 + i * 37) +
           ",\n"
           "      \"lastTotalInputTokens\": " +
           QByteArray::number(2000000 + i) +
           ",\n"
           "      \"lastTotalCacheReadInputTokens\": 1234567890123456789" +
           QByteArray::number(i % 10) +
           ",\n"
           "      \"lastSessionId\": \"3f2b8c1e-9a4d-4e7b-8c2a-" +
           QByteArray::number(100000000000LL + i) + "\"\n";
    out += last ? "    }\n" : "    },\n";
}

QByteArray makeClaudeJson(qsizetype targetBytes) {
    QByteArray out;
    out.reserve(targetBytes + (1 << 20));
    out += "{\n  \"numStartups\": 812,\n  \"installMethod\": \"global\",\n"
           "  \"autoUpdates\": true,\n  \"userID\": \"9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b8"
           "22cd15d6c15b0f00a08\",\n  \"firstStartTime\": \"2025-03-02T09:14:27.123Z\",\n"
           "  \"tipsHistory\": {\n    \"new-user-warmup\": 1,\n    \"memory-command\": 412\n  },\n"
           "  \"projects\": {\n";
    const QByteArray tail = "  },\n  \"hasCompletedOnboarding\": true,\n"
                            "  \"lastOnboardingVersion\": \"1.0.0\",\n"
                            "  \"subscriptionNoticeCount\": 0\n}\n";
    for (int i = 0;; ++i) {
        const bool last = out.size() + 8000 >= targetBytes;
        appendProject(out, i, last);
        if (last)
            break;
    }
    out += tail;
    return out;
}

template <class F> double elapsedMs(F &&f) {
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

qint64 statusKb(const char *field) {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(qsizetype(qstrlen(field))).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

bool writeBytes(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size();
}

Environment homeEnv(const QString &home) {
    return Environment({{QStringLiteral("HOME"), home}});
}

// In the fresh process: one install into the file already in `home`; prints the peak growth of
// the resident set in kB.
int measureOneInstall(const QString &home) {
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (!clear.open(QIODevice::WriteOnly) || clear.write("5") != 1)
        return 2;
    clear.close();
    const qint64 before = statusKb("VmRSS:");
    const InstallResult result = install(McpClient::ClaudeCode, benchToken, homeEnv(home));
    const qint64 peak = statusKb("VmHWM:");
    if (result.kind != InstallResult::Kind::Added || before < 0 || peak < 0)
        return 3;
    std::printf("%lld\n", static_cast<long long>(peak - before));
    return 0;
}

} // namespace

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == QLatin1String("--one-install"))
        return measureOneInstall(args.at(2));

    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    const QString target = home.path() + QStringLiteral("/.claude.json");
    const Environment env = homeEnv(home.path());
    QByteArray bytes = makeClaudeJson(20 << 20);
    if (QJsonDocument::fromJson(bytes).isNull()) {
        std::fprintf(stderr, "bench_mcp_install: the generated file is not JSON\n");
        return 1;
    }

    // Each round times the baseline and the install back to back and keeps their ratio, so a
    // machine whose speed drifts slows both alike.
    const int rounds = 7;
    volatile qsizetype sink = 0;
    std::vector<double> baselines, installs, ratios;
    for (int r = 0; r < rounds; ++r) {
        const double b = elapsedMs([&] {
            sink = sink + QJsonDocument::fromJson(bytes).toJson(QJsonDocument::Indented).size();
        });
        if (!writeBytes(target, bytes))
            return 1;
        InstallResult result;
        const double i =
            elapsedMs([&] { result = install(McpClient::ClaudeCode, benchToken, env); });
        if (result.kind != InstallResult::Kind::Added) {
            std::fprintf(stderr, "bench_mcp_install: install failed: %s\n",
                         qPrintable(installResultText(result)));
            return 1;
        }
        baselines.push_back(b);
        installs.push_back(i);
        ratios.push_back(i / b);
    }
    if (inspect(McpClient::ClaudeCode, benchToken, env) != InstallState::Installed) {
        std::fprintf(stderr, "bench_mcp_install: the installed entry does not read back\n");
        return 1;
    }
    const double ratio = median(ratios);
    const double mb = double(bytes.size()) / (1024.0 * 1024.0);
    std::printf("mcp_install: ~/.claude.json %.2f MB; QJsonDocument fromJson + toJson(Indented) "
                "%.1f ms; install(Claude Code) %.1f ms; median ratio %.2fx (target <= 1.50x)\n",
                mb, median(baselines), median(installs), ratio);

    if (!writeBytes(target, bytes))
        return 1;
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--one-install"), home.path()});
    if (!child.waitForFinished(120000) || child.exitCode() != 0) {
        std::fprintf(stderr, "bench_mcp_install: the measuring process failed (%d)\n",
                     child.exitCode());
        return 1;
    }
    const double growthMb = child.readAllStandardOutput().trimmed().toDouble() / 1024.0;
    const double memRatio = growthMb / mb;
    std::printf("mcp_install: peak resident growth during one install %.1f MB, %.2fx the file "
                "(target < 3.00x)\n",
                growthMb, memRatio);

    std::printf("row: MCP install into a 20 MB ~/.claude.json vs QJsonDocument round "
                "trip|%.2fx|<= 1.50x|%s\n",
                ratio, ratio <= 1.5 ? "met" : "MISSED");
    std::printf("row: MCP install peak memory vs the file's size|%.2fx|< 3.00x|%s\n", memRatio,
                memRatio < 3.0 ? "met" : "MISSED");
    return ratio <= 1.5 && memRatio < 3.0 ? 0 : 1;
}
