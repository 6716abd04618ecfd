#include "integrations/agent_guide.h"
#include "integrations/autostart.h"
#include "integrations/config_edit.h"
#include "integrations/mcp_clients.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>

using namespace quonbrix;
using namespace quonbrix::integrations;

Q_DECLARE_METATYPE(quonbrix::integrations::McpClient)
Q_DECLARE_METATYPE(quonbrix::integrations::InstallResult::Kind)
Q_DECLARE_METATYPE(quonbrix::integrations::InstallState)

namespace {

const QString token = QStringLiteral("tok-1");

// A file's content; a null array when there is no such file.
QByteArray readFile(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray bytes = file.readAll();
    if (bytes.isNull())
        bytes = QByteArray("");
    return bytes;
}

void writeFile(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

mode_t modeOf(const QString &path) {
    struct stat st = {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 07777;
}

// The entry install(ClaudeCode) writes, as it reads in a file with two-space indentation at the
// level of the servers' members.
QByteArray claudeCodeEntry(const char *tokenText, int port = 8510) {
    return QByteArray("    \"quon-brix\": {\n"
                      "      \"headers\": {\n"
                      "        \"Authorization\": \"Bearer ") +
           tokenText +
           "\"\n"
           "      },\n"
           "      \"type\": \"http\",\n"
           "      \"url\": \"http://127.0.0.1:" +
           QByteArray::number(port) +
           "/mcp\"\n"
           "    }";
}

const QByteArray codexBlockText = "[mcp_servers.quon-brix]\n"
                                  "url = \"http://127.0.0.1:8510/mcp\"\n"
                                  "\n"
                                  "[mcp_servers.quon-brix.http_headers]\n"
                                  "Authorization = \"Bearer tok-1\"\n";

} // namespace

class IntegrationsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void snippets_data();
    void snippets();
    void port_data();
    void port();
    void paths_data();
    void paths();

    void jsonInstall_data();
    void jsonInstall();
    void jsonRefused_data();
    void jsonRefused();
    void jsonSecondInstallLeavesTheFileAlone();
    void jsonSymlink_data();
    void jsonSymlink();
    void jsonAnotherWriterBetweenReadAndWrite_data();
    void jsonAnotherWriterBetweenReadAndWrite();
    void installWithoutToken();
    void fileModes_data();
    void fileModes();

    void codexInstall_data();
    void codexInstall();

    void inspectState_data();
    void inspectState();

    void projectRules_data();
    void projectRules();
    void shippedGuide();

    void autostart_data();
    void autostart();

private:
    QString path(const QString &relative) const { return m_home->path() + u'/' + relative; }
    Environment env() const { return Environment({{QStringLiteral("HOME"), m_home->path()}}); }

    std::unique_ptr<QTemporaryDir> m_home;
};

void IntegrationsTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
}

void IntegrationsTest::snippets_data() {
    QTest::addColumn<McpClient>("client");
    QTest::addColumn<QString>("tokenText");
    QTest::addColumn<QString>("expected");
    QTest::newRow("Claude Code") << McpClient::ClaudeCode << token
                                 << QStringLiteral(
                                        "{\n"
                                        "  \"mcpServers\": {\n"
                                        "    \"quon-brix\": {\n"
                                        "      \"type\": \"http\",\n"
                                        "      \"url\": \"http://127.0.0.1:8510/mcp\",\n"
                                        "      \"headers\": { \"Authorization\": \"Bearer "
                                        "tok-1\" }\n"
                                        "    }\n"
                                        "  }\n"
                                        "}");
    QTest::newRow("Claude Desktop") << McpClient::ClaudeDesktop << token
                                    << QStringLiteral("{\n"
                                                      "  \"mcpServers\": {\n"
                                                      "    \"quon-brix\": {\n"
                                                      "      \"command\": \"npx\",\n"
                                                      "      \"args\": [\n"
                                                      "        \"-y\",\n"
                                                      "        \"mcp-remote\",\n"
                                                      "        \"http://127.0.0.1:8510/mcp\",\n"
                                                      "        \"--header\",\n"
                                                      "        \"Authorization: Bearer tok-1\"\n"
                                                      "      ]\n"
                                                      "    }\n"
                                                      "  }\n"
                                                      "}");
    QTest::newRow("Codex") << McpClient::Codex << token
                           << QString::fromUtf8(codexBlockText).chopped(1);
    QTest::newRow("no token yet") << McpClient::Codex << QString()
                                  << QString::fromUtf8(codexBlockText)
                                         .chopped(1)
                                         .replace(token, QStringLiteral("<admin-token>"));
}

void IntegrationsTest::snippets() {
    QFETCH(McpClient, client);
    QFETCH(QString, tokenText);
    QFETCH(QString, expected);
    QCOMPARE(snippet(client, tokenText, env()), expected);
}

void IntegrationsTest::port_data() {
    QTest::addColumn<QString>("value"); // null: unset
    QTest::addColumn<QString>("url");
    QTest::newRow("unset") << QString() << QStringLiteral("http://127.0.0.1:8510/mcp");
    QTest::newRow("not a number") << QStringLiteral("abc")
                                  << QStringLiteral("http://127.0.0.1:8510/mcp");
    QTest::newRow("a port") << QStringLiteral("8600")
                            << QStringLiteral("http://127.0.0.1:8600/mcp");
    QTest::newRow("beyond the ports")
        << QStringLiteral("70000") << QStringLiteral("http://127.0.0.1:8510/mcp");
}

void IntegrationsTest::port() {
    QFETCH(QString, value);
    QFETCH(QString, url);
    Environment e = env();
    if (!value.isNull())
        e.set(QStringLiteral("QUON_BRIX_MCP_PORT"), value);
    QCOMPARE(mcpUrl(e), url);
}

void IntegrationsTest::paths_data() {
    QTest::addColumn<McpClient>("client");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("shown"); // displayPath
    QTest::newRow("Claude Code") << McpClient::ClaudeCode << QString() << QString()
                                 << QStringLiteral("~/.claude.json");
    QTest::newRow("Claude Desktop")
        << McpClient::ClaudeDesktop << QString() << QString()
        << QStringLiteral("~/.config/Claude/claude_desktop_config.json");
    QTest::newRow("XDG_CONFIG_HOME")
        << McpClient::ClaudeDesktop << QStringLiteral("XDG_CONFIG_HOME") << QStringLiteral("/abs")
        << QStringLiteral("/abs/Claude/claude_desktop_config.json");
    QTest::newRow("relative XDG_CONFIG_HOME")
        << McpClient::ClaudeDesktop << QStringLiteral("XDG_CONFIG_HOME") << QStringLiteral("cfg")
        << QStringLiteral("~/.config/Claude/claude_desktop_config.json");
    QTest::newRow("Codex") << McpClient::Codex << QString() << QString()
                           << QStringLiteral("~/.codex/config.toml");
    QTest::newRow("CODEX_HOME") << McpClient::Codex << QStringLiteral("CODEX_HOME")
                                << QStringLiteral("/srv/codex")
                                << QStringLiteral("/srv/codex/config.toml");
    QTest::newRow("empty CODEX_HOME")
        << McpClient::Codex << QStringLiteral("CODEX_HOME") << QStringLiteral("")
        << QStringLiteral("~/.codex/config.toml");
}

void IntegrationsTest::paths() {
    QFETCH(McpClient, client);
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QFETCH(QString, shown);
    Environment e = env();
    if (!variable.isEmpty())
        e.set(variable, value);
    QCOMPARE(displayPath(client, e), shown);
    QCOMPARE(targetPath(client, e),
             QString(shown).replace(QStringLiteral("~/"), m_home->path() + u'/'));
}

void IntegrationsTest::jsonInstall_data() {
    QTest::addColumn<QByteArray>("before"); // null: no file
    QTest::addColumn<InstallResult::Kind>("kind");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("no file") << QByteArray() << InstallResult::Kind::Added
                             << "{\n  \"mcpServers\": {\n" + claudeCodeEntry("tok-1") +
                                    "\n  }\n}\n";
    QTest::newRow("other settings and servers kept")
        << QByteArray(R"({"theme":"dark","mcpServers":{"other":{"command":"x","args":["a"]}},)"
                      R"("projects":{"/srv/code/repo":{"allowedTools":["Bash"],"history":[]}}})")
        << InstallResult::Kind::Added
        << "{\n"
           "  \"mcpServers\": {\n"
           "    \"other\": {\n"
           "      \"args\": [\n"
           "        \"a\"\n"
           "      ],\n"
           "      \"command\": \"x\"\n"
           "    },\n" +
               claudeCodeEntry("tok-1") +
               "\n"
               "  },\n"
               "  \"projects\": {\n"
               "    \"/srv/code/repo\": {\n"
               "      \"allowedTools\": [\n"
               "        \"Bash\"\n"
               "      ],\n"
               "      \"history\": []\n"
               "    }\n"
               "  },\n"
               "  \"theme\": \"dark\"\n"
               "}\n";
    // Values QJsonDocument would change: integers past 2^53, precise floats, escapes.
    QTest::newRow("exact values kept, old entry updated")
        << QByteArray("{\"big\": 12345678901234567890, \"neg\": -9007199254740993,\n"
                      "\"pi\": 3.14159265358979323846264338327950288, \"exp\": 1E+400,\n"
                      "\"esc\": \"\\u2028 \\ud83d\\ude00 \\/ \\\"q\\\" \\n\", \"utf8\": "
                      "\"\xe6\x97\xa5\xe6\x9c\xac\",\n"
                      "\"\\u0061key\": 1, \"empty\": {\"o\": {}, \"a\": []}, "
                      "\"mcpServers\": {\"quon-brix\": {\"url\": \"old\"}}}")
        << InstallResult::Kind::Updated
        << "{\n"
           "  \"\\u0061key\": 1,\n"
           "  \"big\": 12345678901234567890,\n"
           "  \"empty\": {\n"
           "    \"a\": [],\n"
           "    \"o\": {}\n"
           "  },\n"
           "  \"esc\": \"\\u2028 \\ud83d\\ude00 \\/ \\\"q\\\" \\n\",\n"
           "  \"exp\": 1E+400,\n"
           "  \"mcpServers\": {\n" +
               claudeCodeEntry("tok-1") +
               "\n"
               "  },\n"
               "  \"neg\": -9007199254740993,\n"
               "  \"pi\": 3.14159265358979323846264338327950288,\n"
               "  \"utf8\": \"\xe6\x97\xa5\xe6\x9c\xac\"\n"
               "}\n";
    QTest::newRow("mcpServers that is no object replaced")
        << QByteArray(R"({"mcpServers": "none", "a": true})") << InstallResult::Kind::Added
        << "{\n  \"a\": true,\n  \"mcpServers\": {\n" + claudeCodeEntry("tok-1") + "\n  }\n}\n";
}

void IntegrationsTest::jsonInstall() {
    QFETCH(QByteArray, before);
    QFETCH(InstallResult::Kind, kind);
    QFETCH(QByteArray, after);
    const QString file = path(QStringLiteral(".claude.json"));
    if (!before.isNull())
        writeFile(file, before);
    QCOMPARE(install(McpClient::ClaudeCode, token, env()), (InstallResult{kind, {}}));
    QCOMPARE(readFile(file), after);
}

void IntegrationsTest::jsonRefused_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("why");
    const QString notJson = QStringLiteral(" is not valid JSON — refusing to overwrite.");
    QTest::newRow("array at the top") << QByteArray("[{\"mcpServers\": {}}]\n")
                                      << QStringLiteral(" is not a JSON object — refusing to "
                                                        "overwrite.");
    QTest::newRow("trailing comma") << QByteArray(R"({"a": [1, 2,]})") << notJson;
    QTest::newRow("comment") << QByteArray("{\"a\": 1 // one\n}") << notJson;
    QTest::newRow("leading zero") << QByteArray(R"({"a": 01})") << notJson;
    QTest::newRow("unknown escape") << QByteArray(R"({"a": "\x41"})") << notJson;
    QTest::newRow("control character in a string") << QByteArray("{\"a\": \"1\t2\"}") << notJson;
    QTest::newRow("invalid UTF-8") << QByteArray("{\"a\": \"\xc3\x28\"}") << notJson;
    QTest::newRow("a second value") << QByteArray("{} {}") << notJson;
    QTest::newRow("nested past any real file")
        << QByteArray("{\"a\": ") + QByteArray(100000, '[') << notJson;
}

void IntegrationsTest::jsonRefused() {
    QFETCH(QByteArray, before);
    QFETCH(QString, why);
    const QString file = path(QStringLiteral(".claude.json"));
    writeFile(file, before);
    QCOMPARE(install(McpClient::ClaudeCode, token, env()),
             (InstallResult{InstallResult::Kind::Failed, file + why}));
    QCOMPARE(readFile(file), before);
    QCOMPARE(QDir(m_home->path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral(".claude.json")});
}

void IntegrationsTest::jsonSecondInstallLeavesTheFileAlone() {
    const QString file = path(QStringLiteral(".claude.json"));
    // Written in another layout than ours: an install with nothing to change must not
    // reformat it.
    writeFile(file, R"({"mcpServers": {"quon-brix": {"type": "http", )"
                    R"("url": "http://127.0.0.1:8510/mcp", )"
                    R"("headers": {"Authorization": "Bearer tok-1"}}}, "x": 1})");
    const QByteArray before = readFile(file);
    const QDateTime modified = QFileInfo(file).lastModified();
    QTest::qWait(20);
    QCOMPARE(install(McpClient::ClaudeCode, token, env()).kind, InstallResult::Kind::Unchanged);
    QCOMPARE(readFile(file), before);
    QCOMPARE(QFileInfo(file).lastModified(), modified);
}

void IntegrationsTest::jsonSymlink_data() {
    QTest::addColumn<bool>("targetExists");
    QTest::newRow("link to a file") << true;
    QTest::newRow("dangling link") << false;
}

void IntegrationsTest::jsonSymlink() {
    QFETCH(bool, targetExists);
    const QString link = path(QStringLiteral(".claude.json"));
    const QString target = path(QStringLiteral("dotfiles/claude/claude.json"));
    QDir().mkpath(QFileInfo(target).absolutePath());
    if (targetExists)
        writeFile(target, R"({"kept": 1})");
    QVERIFY(QFile::link(QStringLiteral("dotfiles/claude/claude.json"), link)); // relative link

    QCOMPARE(install(McpClient::ClaudeCode, token, env()).kind, InstallResult::Kind::Added);
    QVERIFY(QFileInfo(link).isSymLink());
    const QByteArray expected =
        (targetExists ? QByteArray("{\n  \"kept\": 1,\n") : QByteArray("{\n")) +
        "  \"mcpServers\": {\n" + claudeCodeEntry("tok-1") + "\n  }\n}\n";
    QCOMPARE(readFile(target), expected);
}

void IntegrationsTest::jsonAnotherWriterBetweenReadAndWrite_data() {
    QTest::addColumn<int>("saves"); // after how many of our reads the other program saves
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("failure");
    QTest::newRow("once") << 1
                          << QByteArray("{\n"
                                        "  \"mcpServers\": {\n"
                                        "    \"quon-brix\": {\n"
                                        "      \"url\": \"u\"\n"
                                        "    }\n"
                                        "  },\n"
                                        "  \"numStartups\": 2\n"
                                        "}\n")
                          << QString();
    QTest::newRow("at every read") << 3 << QByteArray(R"({"numStartups": 4})")
                                   << QStringLiteral(" kept changing while it was being updated — "
                                                     "try again.");
}

void IntegrationsTest::jsonAnotherWriterBetweenReadAndWrite() {
    QFETCH(int, saves);
    QFETCH(QByteArray, after);
    QFETCH(QString, failure);
    const QString file = path(QStringLiteral(".claude.json"));
    writeFile(file, R"({"numStartups": 1})");
    int reads = 0;
    // Claude Code saving its state in place right after our read: same size, and likely within
    // the same tick of the file system's clock.
    const InstallResult result =
        installJSON(file, QJsonObject{{QStringLiteral("url"), QStringLiteral("u")}}, [&] {
            if (++reads <= saves)
                writeFile(file, "{\"numStartups\": " + QByteArray::number(reads + 1) + "}");
        });
    QCOMPARE(result.message, failure.isNull() ? QString() : file + failure);
    QCOMPARE(reads, std::min(saves + 1, 3));
    QCOMPARE(readFile(file), after);
}

void IntegrationsTest::installWithoutToken() {
    QCOMPARE(install(McpClient::ClaudeCode, QString(), env()),
             (InstallResult{InstallResult::Kind::Failed,
                            QStringLiteral("Daemon hasn't issued a token yet — start the daemon "
                                           "first.")}));
    QVERIFY(!QFileInfo::exists(targetPath(McpClient::ClaudeCode, env())));
}

void IntegrationsTest::fileModes_data() {
    QTest::addColumn<McpClient>("client");
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("modeBefore"); // 0: no file, nor its folder
    QTest::addColumn<int>("modeAfter");
    QTest::newRow("new JSON file")
        << McpClient::ClaudeDesktop << QStringLiteral(".config/Claude/claude_desktop_config.json")
        << 0 << 0600;
    QTest::newRow("JSON file keeps its owner's mode, loses others' reading (it holds the token)")
        << McpClient::ClaudeCode << QStringLiteral(".claude.json") << 0744 << 0700;
    QTest::newRow("new TOML file")
        << McpClient::Codex << QStringLiteral(".codex/config.toml") << 0 << 0600;
}

void IntegrationsTest::fileModes() {
    QFETCH(McpClient, client);
    QFETCH(QString, file);
    QFETCH(int, modeBefore);
    QFETCH(int, modeAfter);
    const QString target = path(file);
    if (modeBefore) {
        writeFile(target, "{}");
        QVERIFY(::chmod(QFile::encodeName(target).constData(), mode_t(modeBefore)) == 0);
    }
    QCOMPARE(install(client, token, env()).kind, InstallResult::Kind::Added);
    QCOMPARE(int(modeOf(target)), modeAfter);
    if (!modeBefore) // folders made for it are private too
        QCOMPARE(int(modeOf(QFileInfo(target).absolutePath())), 0700);
}

void IntegrationsTest::codexInstall_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<InstallResult::Kind>("kind");
    QTest::addColumn<QByteArray>("after"); // for a refusal, the message's end
    QTest::newRow("quoted key and its sub-table replaced")
        << QByteArray("model = \"o3\"\n"
                      "\n"
                      "[mcp_servers.\"quon-brix\"]\n"
                      "url = \"http://127.0.0.1:8400/mcp\"\n"
                      "\n"
                      "[mcp_servers.\"quon-brix\".http_headers]\n"
                      "Authorization = \"Bearer old\"\n"
                      "\n"
                      "[profiles.fast]\n"
                      "model = \"o4-mini\"\n")
        << InstallResult::Kind::Updated
        << "model = \"o3\"\n\n[profiles.fast]\nmodel = \"o4-mini\"\n\n" + codexBlockText;
    QTest::newRow("other tables kept byte for byte") << QByteArray("# servers\n"
                                                                   "[mcp_servers.other]\n"
                                                                   "command = \"x\"   # why\n"
                                                                   "args = [\"a\",  \"b\"]\n"
                                                                   "\n"
                                                                   "[mcp_servers.quon-brix]\n"
                                                                   "url = \"old\"\n"
                                                                   "# the third one\n"
                                                                   "[mcp_servers.third]\n"
                                                                   "url='http://example'\n")
                                                     << InstallResult::Kind::Updated
                                                     << "# servers\n"
                                                        "[mcp_servers.other]\n"
                                                        "command = \"x\"   # why\n"
                                                        "args = [\"a\",  \"b\"]\n"
                                                        "\n"
                                                        "# the third one\n"
                                                        "[mcp_servers.third]\n"
                                                        "url='http://example'\n"
                                                        "\n" +
                                                            codexBlockText;
    QTest::newRow("indented headers")
        << QByteArray(
               "  [ mcp_servers . quon-brix ]\nurl = \"old\"\n\t[profiles.fast]\nmodel = 1\n")
        << InstallResult::Kind::Updated << "\t[profiles.fast]\nmodel = 1\n\n" + codexBlockText;
    QTest::newRow("CRLF") << QByteArray("model = \"o3\"\r\n"
                                        "[mcp_servers.quon-brix]\r\n"
                                        "url = \"old\"\r\n")
                          << InstallResult::Kind::Updated
                          << "model = \"o3\"\r\n\r\n" +
                                 QByteArray(codexBlockText).replace("\n", "\r\n");
    QTest::newRow("blank CRLF line on top of LF lines: the kept lines' LF")
        << QByteArray("\r\n# a\n# b") << InstallResult::Kind::Added
        << "# a\n# b\n\n" + codexBlockText;
    // The first header is a string's line (the string ends in two quotes of its own), and ours
    // does not end at the line of another string.
    const QByteArray strings("notes = \"\"\"\n[mcp_servers.quon-brix]\na\\\"\"\"\"\"\n"
                             "[mcp_servers.quon-brix.x]\nk = '''\n[x]'''\n");
    QTest::newRow("a header's words inside a multi-line string stay there")
        << strings << InstallResult::Kind::Updated
        << QByteArray("notes = \"\"\"\n[mcp_servers.quon-brix]\na\\\"\"\"\"\"\n\n") +
               codexBlockText;
    QTest::newRow("no final line break")
        << QByteArray("model = \"o3\"") << InstallResult::Kind::Added
        << "model = \"o3\"\n\n" + codexBlockText;
    QTest::newRow("empty file") << QByteArray("") << InstallResult::Kind::Added << codexBlockText;
    QTest::newRow("already ending with the block")
        << "model = \"o3\"\n\n" + codexBlockText << InstallResult::Kind::Unchanged
        << "model = \"o3\"\n\n" + codexBlockText;
    QTest::newRow("broken file") << QByteArray("model = \n") << InstallResult::Kind::Failed
                                 << QByteArray(" is not valid TOML — refusing to overwrite.");
    // Our table would redefine the inline one: the file stays as it is.
    QTest::newRow("inline form under [mcp_servers]")
        << QByteArray("[mcp_servers]\nquon-brix = { url = \"http://127.0.0.1:8510/mcp\" }\n")
        << InstallResult::Kind::Failed << QByteArray(" would not be valid TOML — left unchanged.");
    QTest::newRow("servers as an array of tables")
        << QByteArray("[[mcp_servers]]\nname = \"x\"\n") << InstallResult::Kind::Failed
        << QByteArray(
               " keeps its MCP servers in a form this install cannot edit — left unchanged.");
}

void IntegrationsTest::codexInstall() {
    QFETCH(QByteArray, before);
    QFETCH(InstallResult::Kind, kind);
    QFETCH(QByteArray, after);
    const QString file = path(QStringLiteral(".codex/config.toml"));
    writeFile(file, before);
    const InstallResult result = install(McpClient::Codex, token, env());
    if (kind == InstallResult::Kind::Failed) {
        QCOMPARE(result, (InstallResult{kind, file + QString::fromUtf8(after)}));
        QCOMPARE(readFile(file), before);
    } else {
        QCOMPARE(result, (InstallResult{kind, {}}));
        QCOMPARE(readFile(file), after);
    }
}

void IntegrationsTest::inspectState_data() {
    QTest::addColumn<McpClient>("client");
    QTest::addColumn<QByteArray>("content"); // null: install with tok-1 on the default port
    QTest::addColumn<QString>("portNow");
    QTest::addColumn<QString>("tokenNow");
    QTest::addColumn<InstallState>("state");
    const QString defaultPort = QStringLiteral("8510");
    QTest::newRow("no file") << McpClient::ClaudeCode << QByteArray("-") << defaultPort << token
                             << InstallState::NotInstalled;
    QTest::newRow("other servers only")
        << McpClient::Codex << QByteArray("[mcp_servers.other]\nurl = \"x\"\n") << defaultPort
        << token << InstallState::NotInstalled;
    QTest::newRow("Claude Code installed")
        << McpClient::ClaudeCode << QByteArray() << defaultPort << token << InstallState::Installed;
    QTest::newRow("Claude Desktop installed") << McpClient::ClaudeDesktop << QByteArray()
                                              << defaultPort << token << InstallState::Installed;
    QTest::newRow("Codex installed")
        << McpClient::Codex << QByteArray() << defaultPort << token << InstallState::Installed;
    QTest::newRow("Claude Desktop, new token")
        << McpClient::ClaudeDesktop << QByteArray() << defaultPort << QStringLiteral("tok-2")
        << InstallState::TokenOutOfDate;
    QTest::newRow("Claude Code, new port")
        << McpClient::ClaudeCode << QByteArray() << QStringLiteral("8600") << token
        << InstallState::TokenOutOfDate;
    QTest::newRow("Codex, new token") << McpClient::Codex << QByteArray() << defaultPort
                                      << QStringLiteral("tok-2") << InstallState::TokenOutOfDate;
    QTest::newRow("broken JSON") << McpClient::ClaudeDesktop << QByteArray("{\"mcpServers\": ")
                                 << defaultPort << token << InstallState::ConfigUnreadable;
    QTest::newRow("broken TOML") << McpClient::Codex << QByteArray("[mcp_servers\n") << defaultPort
                                 << token << InstallState::ConfigUnreadable;
}

void IntegrationsTest::inspectState() {
    QFETCH(McpClient, client);
    QFETCH(QByteArray, content);
    QFETCH(QString, portNow);
    QFETCH(QString, tokenNow);
    QFETCH(InstallState, state);
    if (content.isNull())
        QCOMPARE(install(client, token, env()).kind, InstallResult::Kind::Added);
    else if (content != "-")
        writeFile(targetPath(client, env()), content);
    Environment now = env();
    now.set(QStringLiteral("QUON_BRIX_MCP_PORT"), portNow);
    QCOMPARE(inspect(client, tokenNow, now), state);
}

void IntegrationsTest::projectRules_data() {
    QTest::addColumn<QString>("guide");
    QTest::addColumn<QString>("rules");
    const QString start = QStringLiteral("<!-- brix-guide:project-rules:start -->");
    const QString end = QStringLiteral("<!-- brix-guide:project-rules:end -->");
    QTest::newRow("fenced") << QStringLiteral("# Guide\n") + start +
                                   QStringLiteral("\n```markdown\n- one\n- two\n```\n") + end +
                                   QStringLiteral("\ntail\n")
                            << QStringLiteral("- one\n- two");
    QTest::newRow("inner fence kept")
        << start + QStringLiteral("\n```markdown\nRun:\n```sh\nmake\n```\ndone\n```\n") + end
        << QStringLiteral("Run:\n```sh\nmake\n```\ndone");
    QTest::newRow("unfenced, trimmed")
        << QStringLiteral("intro\n") + start + QStringLiteral("\n\n  - rule  \n\n") + end
        << QStringLiteral("- rule");
    const QString outOfOrder = end + QStringLiteral(" b ") + start + QStringLiteral(" c");
    QTest::newRow("end before start") << outOfOrder << outOfOrder;
    QTest::newRow("no markers") << QStringLiteral("just text\n") << QStringLiteral("just text\n");
}

void IntegrationsTest::projectRules() {
    QFETCH(QString, guide);
    QFETCH(QString, rules);
    QCOMPARE(integrations::projectRules(guide), rules);
}

void IntegrationsTest::shippedGuide() {
    const std::optional<QString> guide = agentGuideText();
    QVERIFY(guide);
    const QString rules = integrations::projectRules(*guide);
    QVERIFY(rules.contains(QLatin1String("brix_work_timer")));
    QVERIFY(!rules.contains(QLatin1String("brix-guide:")));
    QVERIFY(!rules.contains(QLatin1String("```")));
}

void IntegrationsTest::autostart_data() {
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("configHome"); // XDG_CONFIG_HOME; "" unset
    QTest::addColumn<QString>("entry");      // where the entry goes, under the home
    QTest::addColumn<QString>("exec");

    QTest::newRow("default folder") << "/opt/quonbrix/bin/quonbrix"
                                    << ""
                                    << ".config/autostart/app.quonbrix.QuonBrix.desktop"
                                    << "Exec=/opt/quonbrix/bin/quonbrix";
    QTest::newRow("XDG_CONFIG_HOME") << "/usr/bin/quonbrix"
                                     << "@/cfg"
                                     << "cfg/autostart/app.quonbrix.QuonBrix.desktop"
                                     << "Exec=/usr/bin/quonbrix";
    QTest::newRow("relative XDG_CONFIG_HOME is ignored")
        << "/usr/bin/quonbrix"
        << "cfg"
        << ".config/autostart/app.quonbrix.QuonBrix.desktop"
        << "Exec=/usr/bin/quonbrix";
    // Quoted for the Exec key, then its backslashes escaped once more as a string value.
    QTest::newRow("path that needs quoting") << R"(/opt/Quon Brix/$v/quonbrix)"
                                             << ""
                                             << ".config/autostart/app.quonbrix.QuonBrix.desktop"
                                             << R"(Exec="/opt/Quon Brix/\\$v/quonbrix")";
}

void IntegrationsTest::autostart() {
    QFETCH(QString, program);
    QFETCH(QString, configHome);
    QFETCH(QString, entry);
    QFETCH(QString, exec);
    Environment e = env();
    if (!configHome.isEmpty())
        e.set(QStringLiteral("XDG_CONFIG_HOME"), configHome.replace(u'@', m_home->path()));
    const Autostart autostart(e, program);
    QCOMPARE(autostart.path(), path(entry));
    QVERIFY(!autostart.isOn()); // off until turned on
    QCOMPARE(autostart.setOn(true), std::nullopt);
    QVERIFY(autostart.isOn());
    const QByteArray written = readFile(path(entry));
    QVERIFY2(written.split('\n').contains(exec.toUtf8()), written.constData());
    // The desktop's own settings can switch the entry off.
    writeFile(path(entry), written + "Hidden=true\n");
    QVERIFY(!autostart.isOn());
    QCOMPARE(autostart.setOn(false), std::nullopt);
    QVERIFY(!QFileInfo::exists(path(entry)));
    QCOMPARE(autostart.setOn(false), std::nullopt); // already off is no failure
}

QTEST_GUILESS_MAIN(IntegrationsTest)
#include "test_integrations.moc"
