#include "popover_link/popover_records.h"

#include <array>
#include <utility>

namespace quonbrix::view {

namespace {

template <class E, size_t N>
std::optional<E> lookup(const std::array<std::pair<E, const char *>, N> &table,
                        const QString &wire) {
    for (const auto &[value, name] : table)
        if (wire == QLatin1String(name))
            return value;
    return std::nullopt;
}

template <class E, size_t N>
QString name(const std::array<std::pair<E, const char *>, N> &table, E value) {
    for (const auto &[v, n] : table)
        if (v == value)
            return QString::fromLatin1(n);
    return {};
}

constexpr std::array<std::pair<WindowMode, const char *>, 2> windowModes{{
    {WindowMode::Popup, "popup"},
    {WindowMode::Window, "window"},
}};

constexpr std::array<std::pair<Command, const char *>, 17> commands{{
    {Command::Sync, "sync"},
    {Command::StartTimer, "startTimer"},
    {Command::TimerAction, "timerAction"},
    {Command::OpenWorkspace, "openWorkspace"},
    {Command::OpenMeter, "openMeter"},
    {Command::Quit, "quit"},
    {Command::SignIn, "signIn"},
    {Command::OpenApprovalPage, "openApprovalPage"},
    {Command::CopySignInCommand, "copySignInCommand"},
    {Command::SignOut, "signOut"},
    {Command::ShowMcpSetup, "showMcpSetup"},
    {Command::SelectMcpClient, "selectMcpClient"},
    {Command::CopyMcpSnippet, "copyMcpSnippet"},
    {Command::InstallMcpClient, "installMcpClient"},
    {Command::CopyAgentGuide, "copyAgentGuide"},
    {Command::Update, "update"},
    {Command::ToggleAutostart, "toggleAutostart"},
}};

constexpr std::array<std::pair<SetupAction, const char *>, 8> setupActions{{
    {SetupAction::SignIn, "signIn"},
    {SetupAction::SignOut, "signOut"},
    {SetupAction::OpenMeter, "openMeter"},
    {SetupAction::McpSetup, "mcpSetup"},
    {SetupAction::CopyAgentGuide, "copyAgentGuide"},
    {SetupAction::SetupGuide, "setupGuide"},
    {SetupAction::Update, "update"},
    {SetupAction::Autostart, "autostart"},
}};

} // namespace

QString symbolUrl(const QString &symbol) {
    return symbol.isEmpty() ? QString() : QStringLiteral("image://symbol/") + symbol;
}

QString toWire(WindowMode mode) {
    return name(windowModes, mode);
}

std::optional<WindowMode> windowModeFromWire(const QString &wire) {
    return lookup(windowModes, wire);
}

QString toWire(Command command) {
    return name(commands, command);
}

std::optional<Command> commandFromWire(const QString &wire) {
    return lookup(commands, wire);
}

QString toWire(SetupAction action) {
    return name(setupActions, action);
}

std::optional<SetupAction> setupActionFromWire(const QString &wire) {
    return lookup(setupActions, wire);
}

} // namespace quonbrix::view
