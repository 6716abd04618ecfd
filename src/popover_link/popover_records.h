#pragma once

// What the popover shows, already worded, and the messages between the tray process and the
// popover process. The tray owns every piece of state and every text; the popover process only
// lays these records out and reports what the user did. Each record lists its keys once, in
// `fields()`, for the JSON lines that cross the pipe between the two.
//
// Row records become list models whose roles are their keys, so no key may be a name QML
// reserves for itself ("id") or items already have ("window", "parent", …).
//
// Symbols travel as image URLs of the popover's symbol provider (`symbolUrl`), colours as
// "#rrggbb". An empty text means "nothing to show" wherever a piece is optional.

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace quonbrix::view {

// "image://symbol/calendar": the popover draws it from the icon theme or its own drawings.
QString symbolUrl(const QString &symbol);

// A button: caption, symbol, help text and whether it can be pressed.
struct Button {
    QString label;
    QString symbol;
    QString help;
    bool enabled = true;

    bool operator==(const Button &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("label", s.label);
        v("symbol", s.symbol);
        v("help", s.help);
        v("enabled", s.enabled);
    }
};

struct Header {
    QString title;
    QString statusPill;
    QString subtitle;
    bool loading = true;
    QString loadingText;
    QString trayHint;
    Button update;
    bool showSignIn = false; // signed out, with a daemon to sign in through
    Button signIn;
    Button back; // instead of the buttons above on the guide and client set-up screens
    // What keeps the meter from running, in place of "Starting meter…"; empty when nothing.
    QString condition;
    QString conditionColor;
    QString conditionSymbol;

    bool operator==(const Header &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("statusPill", s.statusPill);
        v("subtitle", s.subtitle);
        v("loading", s.loading);
        v("loadingText", s.loadingText);
        v("trayHint", s.trayHint);
        v("update", s.update);
        v("showSignIn", s.showSignIn);
        v("signIn", s.signIn);
        v("back", s.back);
        v("condition", s.condition);
        v("conditionColor", s.conditionColor);
        v("conditionSymbol", s.conditionSymbol);
    }
};

// A sign-in that runs or failed, shown under the header; hidden otherwise.
struct SignIn {
    bool shown = false;
    bool waiting = false; // no code yet
    QString promptText;
    QString userCode; // empty until the code is known
    Button openPage;
    Button again;
    QString errorTitle; // empty unless the sign-in failed
    QString errorText;
    QString errorSymbol;
    Button retry;
    QString terminalText; // empty unless a terminal sign-in may get through
    Button copyCommand;
    QString terminalNote;

    bool operator==(const SignIn &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("shown", s.shown);
        v("waiting", s.waiting);
        v("promptText", s.promptText);
        v("userCode", s.userCode);
        v("openPage", s.openPage);
        v("again", s.again);
        v("errorTitle", s.errorTitle);
        v("errorText", s.errorText);
        v("errorSymbol", s.errorSymbol);
        v("retry", s.retry);
        v("terminalText", s.terminalText);
        v("copyCommand", s.copyCommand);
        v("terminalNote", s.terminalNote);
    }
};

// The confirmation before signing out, drawn over the popover when asked for.
struct SignOut {
    QString title;
    QString text;
    QString cancel;
    QString confirm;

    bool operator==(const SignOut &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("text", s.text);
        v("cancel", s.cancel);
        v("confirm", s.confirm);
    }
};

// Codex reset tickets; an empty text when none are reported.
struct Credits {
    QString text;
    QString expiry;
    QString help;
    QString symbol;

    bool operator==(const Credits &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("text", s.text);
        v("expiry", s.expiry);
        v("help", s.help);
        v("symbol", s.symbol);
    }
};

struct Headline {
    QString text;
    QString color;
    QString symbol;
    QString remaining;
    QString detail;

    bool operator==(const Headline &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("text", s.text);
        v("color", s.color);
        v("symbol", s.symbol);
        v("remaining", s.remaining);
        v("detail", s.detail);
    }
};

struct LimitRow {
    QString windowName;
    QString symbol;
    double fraction = 0; // of the bar, 0…1
    QString percent;
    QString resets;
    bool stale = false;
    QString help;
    QString runOut; // "runs out ~15:40 at this pace", under `resets`
    QString runOutColor;

    QString key() const { return windowName; }
    bool operator==(const LimitRow &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("windowName", s.windowName);
        v("symbol", s.symbol);
        v("fraction", s.fraction);
        v("percent", s.percent);
        v("resets", s.resets);
        v("stale", s.stale);
        v("help", s.help);
        v("runOut", s.runOut);
        v("runOutColor", s.runOutColor);
    }
};

struct LimitGroup {
    QString source;
    QString heading;
    QString color;
    Credits credits;
    std::vector<LimitRow> rows;

    QString key() const { return source; }
    bool operator==(const LimitGroup &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("source", s.source);
        v("heading", s.heading);
        v("color", s.color);
        v("credits", s.credits);
        v("rows", s.rows);
    }
};

// "Can I keep working?": the headline and the groups, or the unavailable form.
struct Limits {
    QString title;
    bool hasReadings = false;
    Headline headline;
    std::vector<LimitGroup> groups;
    QString unavailableHeading;
    QString unavailableText;
    QString unavailableSymbol;
    QString creditsLabel;
    Credits unavailableCredits;

    bool operator==(const Limits &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("hasReadings", s.hasReadings);
        v("headline", s.headline);
        v("groups", s.groups);
        v("unavailableHeading", s.unavailableHeading);
        v("unavailableText", s.unavailableText);
        v("unavailableSymbol", s.unavailableSymbol);
        v("creditsLabel", s.creditsLabel);
        v("unavailableCredits", s.unavailableCredits);
    }
};

struct TodayColumn {
    QString value;
    QString caption;
    QString help;
    QString symbol;

    QString key() const { return caption; }
    bool operator==(const TodayColumn &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("value", s.value);
        v("caption", s.caption);
        v("help", s.help);
        v("symbol", s.symbol);
    }
};

struct SourceShare {
    QString name;
    double fraction = 0;
    QString percent;

    QString key() const { return name; }
    bool operator==(const SourceShare &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("name", s.name);
        v("fraction", s.fraction);
        v("percent", s.percent);
    }
};

struct Today {
    QString title;
    std::vector<TodayColumn> columns;
    std::vector<SourceShare> shares;

    bool operator==(const Today &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("columns", s.columns);
        v("shares", s.shares);
    }
};

struct Timer {
    QString sessionId;
    QString label;
    QString caption;
    QString elapsed;
    QString stateWord;
    QString color;
    QString statusSymbol;
    QString primaryAction; // the wire action of `primary`: "pause" or "resume"
    Button primary;
    Button complete;
    Button cancel;

    QString key() const { return sessionId; }
    bool operator==(const Timer &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("sessionId", s.sessionId);
        v("label", s.label);
        v("caption", s.caption);
        v("elapsed", s.elapsed);
        v("stateWord", s.stateWord);
        v("color", s.color);
        v("statusSymbol", s.statusSymbol);
        v("primaryAction", s.primaryAction);
        v("primary", s.primary);
        v("complete", s.complete);
        v("cancel", s.cancel);
    }
};

// The newest work-timer outcome; an empty text when there is none.
struct Feedback {
    QString text;
    QString symbol;
    QString color;

    bool operator==(const Feedback &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("text", s.text);
        v("symbol", s.symbol);
        v("color", s.color);
    }
};

// "Current work".
struct Work {
    QString title;
    QString timersHeader;
    QString labelPlaceholder;
    Button start;
    std::vector<Timer> timers;
    Feedback feedback;

    bool operator==(const Work &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("timersHeader", s.timersHeader);
        v("labelPlaceholder", s.labelPlaceholder);
        v("start", s.start);
        v("timers", s.timers);
        v("feedback", s.feedback);
    }
};

struct Project {
    QString label;
    QString figures;
    QString costHelp;

    QString key() const { return label; }
    bool operator==(const Project &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("label", s.label);
        v("figures", s.figures);
        v("costHelp", s.costHelp);
    }
};

// "Local projects"; `emptyText` is shown only when there are no rows.
struct Projects {
    QString title;
    QString emptyText;
    std::vector<Project> rows;

    bool operator==(const Projects &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("emptyText", s.emptyText);
        v("rows", s.rows);
    }
};

// "Cloud sync (optional)", shown only when the status carries sharing information.
struct Sharing {
    bool shown = false;
    QString title;
    QString state;
    QString symbol;
    QString color;
    QString disclosure;
    QString summary;
    Button manage;

    bool operator==(const Sharing &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("shown", s.shown);
        v("title", s.title);
        v("state", s.state);
        v("symbol", s.symbol);
        v("color", s.color);
        v("disclosure", s.disclosure);
        v("summary", s.summary);
        v("manage", s.manage);
    }
};

struct Footer {
    QStringList messages;
    QString syncDetail;
    Button workspace;
    Button meter;
    Button guide;
    Button quit;

    bool operator==(const Footer &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("messages", s.messages);
        v("syncDetail", s.syncDetail);
        v("workspace", s.workspace);
        v("meter", s.meter);
        v("guide", s.guide);
        v("quit", s.quit);
    }
};

// What a row of the settings group does when its button is pressed.
enum class SetupAction {
    SignIn,
    SignOut,
    OpenMeter,
    McpSetup,
    CopyAgentGuide,
    SetupGuide,
    Update,
    Autostart
};
QString toWire(SetupAction action);
std::optional<SetupAction> setupActionFromWire(const QString &wire);

// One row of "Settings & integrations".
struct SetupRow {
    QString action; // a SetupAction's wire name; also the row's key
    QString symbol;
    QString title;
    QString detail;
    QString status;
    QString statusColor;
    Button button;
    bool done = false;
    QString doneSymbol;
    // A switch instead of the button (its label is the accessible name), and where it is.
    bool isSwitch = false;
    bool on = false;

    QString key() const { return action; }
    bool operator==(const SetupRow &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("action", s.action);
        v("symbol", s.symbol);
        v("title", s.title);
        v("detail", s.detail);
        v("status", s.status);
        v("statusColor", s.statusColor);
        v("button", s.button);
        v("done", s.done);
        v("doneSymbol", s.doneSymbol);
        v("isSwitch", s.isSwitch);
        v("on", s.on);
    }
};

// "Settings & integrations": a header that opens and closes the rows (collapsed whenever the
// popover opens).
struct Settings {
    QString title;
    QString subtitle;
    QString help;
    QString symbol;
    QString collapsedValue;
    QString expandedValue;
    std::vector<SetupRow> rows;

    bool operator==(const Settings &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("subtitle", s.subtitle);
        v("help", s.help);
        v("symbol", s.symbol);
        v("collapsedValue", s.collapsedValue);
        v("expandedValue", s.expandedValue);
        v("rows", s.rows);
    }
};

// One AI client in the set-up screen's picker, with what its configuration holds now.
struct McpClientRow {
    QString client; // the command line's name: "claude-code", …
    QString name;
    bool selected = false;
    QString state;
    QString stateSymbol;
    QString stateColor;
    Button update; // shown when the entry is out of date
    bool showUpdate = false;

    QString key() const { return client; }
    bool operator==(const McpClientRow &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("client", s.client);
        v("name", s.name);
        v("selected", s.selected);
        v("state", s.state);
        v("stateSymbol", s.stateSymbol);
        v("stateColor", s.stateColor);
        v("update", s.update);
        v("showUpdate", s.showUpdate);
    }
};

// "Connect your AI client": the picker, the snippet of the chosen client and its install.
struct McpSetup {
    QString title;
    QString description;
    std::vector<McpClientRow> clients;
    QString selectedClient;
    QString pickerName;
    QString snippet;
    QString snippetHint;
    Button copy;
    Button install;
    QString installHint;
    QString waitingText; // empty while the daemon has a token
    QString result;      // the chosen client's last install, if any
    QString resultSymbol;
    QString resultColor;

    bool operator==(const McpSetup &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("description", s.description);
        v("clients", s.clients);
        v("selectedClient", s.selectedClient);
        v("pickerName", s.pickerName);
        v("snippet", s.snippet);
        v("snippetHint", s.snippetHint);
        v("copy", s.copy);
        v("install", s.install);
        v("installHint", s.installHint);
        v("waitingText", s.waitingText);
        v("result", s.result);
        v("resultSymbol", s.resultSymbol);
        v("resultColor", s.resultColor);
    }
};

struct GuideStep {
    QString title;
    QString symbol;
    QString body;

    QString key() const { return title; }
    bool operator==(const GuideStep &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("symbol", s.symbol);
        v("body", s.body);
    }
};

// The setup guide screen.
struct Guide {
    QString title;
    QString lead;
    QString intro;
    std::vector<GuideStep> steps;
    Button localMeter;
    Button workspace;
    bool showWorkspace = false; // while signed in

    bool operator==(const Guide &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("title", s.title);
        v("lead", s.lead);
        v("intro", s.intro);
        v("steps", s.steps);
        v("localMeter", s.localMeter);
        v("workspace", s.workspace);
        v("showWorkspace", s.showWorkspace);
    }
};

// The whole popover, or (in an update) only the sections that changed.
struct PopoverState {
    std::optional<Header> header;
    std::optional<SignIn> signIn;
    std::optional<Limits> limits;
    std::optional<Today> today;
    std::optional<Work> work;
    std::optional<Projects> projects;
    std::optional<Sharing> sharing;
    std::optional<Settings> settings;
    std::optional<Footer> footer;
    std::optional<SignOut> signOut;
    std::optional<McpSetup> mcp;
    std::optional<Guide> guide;

    bool operator==(const PopoverState &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("header", s.header);
        v("signIn", s.signIn);
        v("limits", s.limits);
        v("today", s.today);
        v("work", s.work);
        v("projects", s.projects);
        v("sharing", s.sharing);
        v("settings", s.settings);
        v("footer", s.footer);
        v("signOut", s.signOut);
        v("mcp", s.mcp);
        v("guide", s.guide);
    }
};

// ---- Messages -------------------------------------------------------------------------

struct Rect {
    qint64 x = 0;
    qint64 y = 0;
    qint64 width = 0;
    qint64 height = 0;

    bool operator==(const Rect &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("x", s.x);
        v("y", s.y);
        v("width", s.width);
        v("height", s.height);
    }
};

enum class WindowMode {
    Popup,  // frameless, placed at the tray icon, closes when it loses focus
    Window, // an ordinary window: no tray, or a desktop that places windows itself
};
QString toWire(WindowMode mode);
std::optional<WindowMode> windowModeFromWire(const QString &wire);

struct ShowRequest {
    QString mode;
    // A tray click: closes the popover when it is open (or was just closed by that click).
    bool toggle = false;
    // Where the tray icon is, when the tray tells.
    std::optional<Rect> trayIcon;

    bool operator==(const ShowRequest &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("mode", s.mode);
        v("toggle", s.toggle);
        v("trayIcon", s.trayIcon);
    }
};

// Tray → popover: exactly one member per message.
struct ToPopover {
    std::optional<PopoverState> state;
    std::optional<ShowRequest> show;
    std::optional<bool> hide;

    bool operator==(const ToPopover &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("state", s.state);
        v("show", s.show);
        v("hide", s.hide);
    }
};

// What the user asked for in the popover.
enum class Command {
    Sync,
    StartTimer,
    TimerAction,
    OpenWorkspace,
    OpenMeter,
    Quit,
    SignIn,
    OpenApprovalPage,
    CopySignInCommand,
    SignOut, // after the user confirmed it
    ShowMcpSetup,
    SelectMcpClient, // id: the client's name
    CopyMcpSnippet,
    InstallMcpClient, // id: the client's name
    CopyAgentGuide,
    Update, // whatever the update row offers now: check, install, restart, notes
    ToggleAutostart,
};
QString toWire(Command command);
std::optional<Command> commandFromWire(const QString &wire);

struct UserCommand {
    QString name;
    std::optional<QString> label;  // StartTimer: the label as typed
    std::optional<QString> action; // TimerAction: "pause", "resume", "complete" or "cancel"
    std::optional<QString> id;     // TimerAction: the session; the MCP commands: the client

    bool operator==(const UserCommand &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("name", s.name);
        v("label", s.label);
        v("action", s.action);
        v("id", s.id);
    }
};

// Popover → tray: exactly one member per message.
struct FromPopover {
    // The window was shown (sent once its first frame is on screen) or hidden.
    std::optional<bool> visible;
    std::optional<UserCommand> command;
    // What the popover held on the clipboard as it exits, for the tray to keep offering.
    std::optional<QString> clipboard;

    bool operator==(const FromPopover &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("visible", s.visible);
        v("command", s.command);
        v("clipboard", s.clipboard);
    }
};

} // namespace quonbrix::view
