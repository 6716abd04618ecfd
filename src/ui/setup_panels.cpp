#include "ui/setup_panels.h"

#include "ui/account_panels.h"
#include "ui/popover_panels.h"

namespace quonbrix {

using integrations::InstallResult;
using integrations::InstallState;
using integrations::McpClient;

namespace {

view::Button button(const QString &label, const QString &symbol = {}, const QString &help = {},
                    bool enabled = true) {
    return {label, view::symbolUrl(symbol), help, enabled};
}

view::SetupRow row(view::SetupAction action, const char *symbol, const QString &title,
                   const QString &detail, view::Button button) {
    view::SetupRow r;
    r.action = view::toWire(action);
    r.symbol = view::symbolUrl(QString::fromLatin1(symbol));
    r.title = title;
    r.detail = detail;
    r.statusColor = toneColor(Tone::Secondary);
    r.button = std::move(button);
    r.doneSymbol = view::symbolUrl(QStringLiteral("checkmark.circle.fill"));
    return r;
}

struct Look {
    QString symbol;
    Tone tone;
};

Look stateLook(InstallState state) {
    switch (state) {
    case InstallState::Installed:
        return {QStringLiteral("checkmark.circle.fill"), Tone::Green};
    case InstallState::TokenOutOfDate:
        return {QStringLiteral("exclamationmark.triangle.fill"), Tone::Orange};
    case InstallState::ConfigUnreadable:
        return {QStringLiteral("exclamationmark.triangle.fill"), Tone::Red};
    case InstallState::NotInstalled:
        break;
    }
    return {QString(), Tone::Secondary};
}

Look resultLook(const InstallResult &result) {
    switch (result.kind) {
    case InstallResult::Kind::Added:
    case InstallResult::Kind::Updated:
        return {QStringLiteral("checkmark.circle.fill"), Tone::Green};
    case InstallResult::Kind::Unchanged:
        return {QStringLiteral("checkmark.circle"), Tone::Green};
    case InstallResult::Kind::Failed:
        break;
    }
    return {QStringLiteral("exclamationmark.triangle.fill"), Tone::Red};
}

view::McpClientRow clientRow(const McpSetup &setup, McpClient client) {
    view::McpClientRow r;
    r.client = integrations::toWire(client);
    r.name = integrations::displayName(client);
    r.selected = client == setup.selected();
    if (const auto state = setup.state(client)) {
        const Look look = stateLook(*state);
        r.state = integrations::installStateText(*state);
        r.stateSymbol = view::symbolUrl(look.symbol);
        r.stateColor = toneColor(look.tone);
        r.showUpdate = *state == InstallState::TokenOutOfDate && !setup.token().isEmpty();
    }
    r.update = button(QStringLiteral("Update"), {},
                      QStringLiteral("Write the running daemon's address and token into ") +
                          integrations::displayPath(client, setup.environment()),
                      !setup.installing(client));
    return r;
}

} // namespace

view::SetupRow updateRow(const UpdateController &updater) {
    using Phase = UpdateController::Phase;
    const auto &options = updater.options();
    const QString version =
        options.currentVersion.isEmpty() ? QStringLiteral("?") : options.currentVersion;
    const QString host =
        options.feed.host().isEmpty() ? QStringLiteral("the update feed") : options.feed.host();
    auto r =
        row(view::SetupAction::Update, "arrow.down.circle", QStringLiteral("Check for updates"),
            QStringLiteral("Current v") + version + QStringLiteral(" · auto-updates on. Check ") +
                host + QStringLiteral(" now to install the latest."),
            button(QStringLiteral("Check")));
    const auto &offer = updater.offer();
    const QString available =
        offer ? QStringLiteral("Version %1 is available").arg(offer->displayVersion) : QString();
    switch (updater.phase()) {
    case Phase::Idle:
        break;
    case Phase::Checking:
        r.button = button(QStringLiteral("Checking"), {}, {}, false);
        break;
    case Phase::UpToDate:
        r.status = QStringLiteral("Up to date");
        r.done = true;
        break;
    case Phase::Available:
        r.status = available;
        r.statusColor = toneColor(Tone::Orange);
        if (options.kind == InstallKind::SelfContained) {
            r.button = button(QStringLiteral("Install"));
        } else {
            r.detail = options.kind == InstallKind::Package
                           ? QStringLiteral("Update with your package manager.")
                           : QStringLiteral("Install it the way this copy was installed.");
            if (!offer->notesUrl.isEmpty())
                r.button = button(QStringLiteral("Release notes"), {},
                                  QStringLiteral("Open the release notes in your browser"));
        }
        break;
    case Phase::CheckFailed:
        r.detail = QStringLiteral("Could not check for updates — ") + updater.failure();
        r.statusColor = toneColor(Tone::Red);
        break;
    case Phase::Downloading:
        r.status = QStringLiteral("Downloading %1 %").arg(updater.progress());
        r.button = button(QStringLiteral("Installing"), {}, {}, false);
        break;
    case Phase::InstallFailed:
        r.status = available;
        r.statusColor = toneColor(Tone::Orange);
        r.detail = QStringLiteral("Could not install the update — ") + updater.failure();
        r.button = button(QStringLiteral("Install"));
        break;
    case Phase::Installed:
        r.status =
            offer ? QStringLiteral("Version %1 installed").arg(offer->displayVersion) : QString();
        r.statusColor = toneColor(Tone::Green);
        r.detail = QStringLiteral("Restart QuonBrix to run the new version.");
        r.button = button(QStringLiteral("Restart to update"));
        break;
    }
    return r;
}

view::Settings settingsGroup(const StatusModel &model, bool guideCopied,
                             const UpdateController *updater, std::optional<bool> startsAtLogin) {
    view::Settings s;
    s.title = QStringLiteral("Settings & integrations");
    s.subtitle = QStringLiteral("Account, MCP, guide, updates");
    s.help = QStringLiteral("Open only when you need to change the meter setup.");
    s.symbol = view::symbolUrl(QStringLiteral("chevron.right"));
    s.collapsedValue = QStringLiteral("Collapsed");
    s.expandedValue = QStringLiteral("Expanded");

    const bool signedIn = isSignedIn(model.status());
    auto account = row(signedIn ? view::SetupAction::SignOut : view::SetupAction::SignIn,
                       "person.crop.circle.badge.plus", QStringLiteral("Account"),
                       QStringLiteral("Connect when you need cloud history or team sharing."),
                       signedIn ? button(QStringLiteral("Sign out"))
                                : headerSignInButton(model.enrollProgress()));
    // The header's button says "Signing in" while one runs; the row says it too, without
    // the symbol the header needs.
    account.button.symbol.clear();
    account.done = signedIn;
    s.rows.push_back(std::move(account));

    const bool opening = model.openingLocalConsole();
    auto meter =
        row(view::SetupAction::OpenMeter, "gauge.with.dots.needle.50percent",
            QStringLiteral("Local meter"),
            QStringLiteral("Open this computer's private read-only meter. Your workspace "
                           "remains the primary console."),
            button(opening ? QStringLiteral("Opening") : QStringLiteral("Open"), {}, {}, !opening));
    meter.status = QStringLiteral("This computer");
    s.rows.push_back(std::move(meter));

    s.rows.push_back(row(view::SetupAction::McpSetup, "terminal",
                         QStringLiteral("Connect AI client (MCP)"),
                         QStringLiteral("Install for Claude Code / Claude Desktop / Codex — "
                                        "globally with one button, or copy per project."),
                         button(QStringLiteral("Set up"))));

    auto guide =
        row(view::SetupAction::CopyAgentGuide, "doc.text", QStringLiteral("Copy agent guide"),
            QStringLiteral("Paste into AGENTS.md or CLAUDE.md so agents know how to "
                           "record usage."),
            button(QStringLiteral("Copy")));
    guide.done = guideCopied;
    s.rows.push_back(std::move(guide));

    s.rows.push_back(row(view::SetupAction::SetupGuide, "list.bullet.rectangle",
                         QStringLiteral("Open setup guide"),
                         QStringLiteral("See the onboarding flow for local meter, MCP, sharing, "
                                        "and issue attribution."),
                         button(QStringLiteral("Open"))));
    if (updater)
        s.rows.push_back(updateRow(*updater));
    if (startsAtLogin) {
        auto login =
            row(view::SetupAction::Autostart, "power.circle", QStringLiteral("Start at login"),
                QStringLiteral("Start QuonBrix when you log in, so the meter is always "
                               "running."),
                button(QStringLiteral("Start at login")));
        login.isSwitch = true;
        login.on = *startsAtLogin;
        s.rows.push_back(std::move(login));
    }
    return s;
}

view::McpSetup mcpSetupScreen(const McpSetup &setup) {
    const Environment &env = setup.environment();
    const McpClient client = setup.selected();
    const QString token = setup.token();
    view::McpSetup m;
    m.title = QStringLiteral("Connect your AI client");
    m.description = QStringLiteral(
        "Let your own Claude Code / Claude Desktop / Codex query this computer's local meter "
        "(brix_* tools). Install globally for every session, or copy the snippet to set it up "
        "per project.");
    for (McpClient each : integrations::allMcpClients)
        m.clients.push_back(clientRow(setup, each));
    m.selectedClient = integrations::toWire(client);
    m.pickerName = QStringLiteral("AI client");
    m.snippet = integrations::snippet(client, token, env);
    m.snippetHint = integrations::snippetHint(client, env);
    m.copy = setup.copied() ? button(QStringLiteral("Copied"), QStringLiteral("checkmark"))
                            : button(QStringLiteral("Copy"), QStringLiteral("doc.on.doc"));
    m.install = button(QStringLiteral("Install globally"), QStringLiteral("square.and.arrow.down"),
                       {}, !token.isEmpty() && !setup.installing(client));
    m.installHint = integrations::installHint(client, env);
    if (token.isEmpty())
        m.waitingText = QStringLiteral("Waiting for the daemon to mint a local token — make sure "
                                       "quon-brix is running.");
    if (const auto result = setup.lastResult(client)) {
        const Look look = resultLook(*result);
        m.result = integrations::installResultText(*result);
        m.resultSymbol = view::symbolUrl(look.symbol);
        m.resultColor = toneColor(look.tone);
    }
    return m;
}

view::Guide setupGuide(bool signedIn) {
    view::Guide g;
    g.title = QStringLiteral("セットアップガイド");
    g.lead = QStringLiteral("まずはローカル計測から。共有は必要なときだけ。");
    g.intro = QStringLiteral(
        "quon-brix はこのコンピューターで Claude Code / Codex の使用量を自動で計測します。"
        "会話の中身は外に出ません。必要に応じて、下の手順で MCP・課題ひも付け・チーム共有を"
        "足していけます。");
    const auto step = [](const char *symbol, QString title, QString body) {
        return view::GuideStep{std::move(title), view::symbolUrl(QString::fromLatin1(symbol)),
                               std::move(body)};
    };
    g.steps = {
        step("gauge.medium", QStringLiteral("ローカル計測を動かす"),
             QStringLiteral("このコンピューターで Claude Code と Codex の使用量を自動計測します。"
                            "会話の中身は端末内にとどまり、外部には送られません。まずはこれだけで"
                            "使えます。")),
        step("terminal", QStringLiteral("AI クライアントに MCP を接続する"),
             QStringLiteral("メイン画面の「Connect AI client (MCP)」から、Claude Code / Claude "
                            "Desktop / Codex にワンボタンでグローバル導入するか、スニペットを"
                            "コピーしてプロジェクト単位で設定します。接続後、エージェントは "
                            "brix_guide で正式な操作ルールを読めます。")),
        step("doc.text", QStringLiteral("エージェント用ガイドを貼る"),
             QStringLiteral("「Copy agent guide」はMCPと同じ版管理済みガイドからプロジェクト用"
                            "ルールだけをコピーします。AGENTS.md または CLAUDE.md に貼り、"
                            "project label を案件用に変更します。")),
        step("person.2", QStringLiteral("コンソールで共有を有効化する"),
             QStringLiteral("どのプロジェクトをクラウド／チームに共有するかは Web コンソールで"
                            "選びます。このメニューには「共有中かどうか」だけが表示されます。")),
        step("number", QStringLiteral("課題（チケット）にひも付ける"),
             QStringLiteral("トレイのメニューでは複数のプロジェクトタイマーを開始し、それぞれ"
                            "一時停止・再開・完了・取消できます。Issue へのひも付け、時刻修正、"
                            "完了時のトークン記録は Claude Code / Codex から brix_work_timer を"
                            "使います。")),
    };
    g.localMeter =
        button(QStringLiteral("ローカルメーター"), QStringLiteral("arrow.up.right.square"));
    g.workspace = button(QStringLiteral("ワークスペース"), QStringLiteral("arrow.up.right.square"));
    g.showWorkspace = signedIn;
    return g;
}

} // namespace quonbrix
