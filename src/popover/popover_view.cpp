#include "popover/popover_view.h"

namespace quonbrix {

namespace {

// Replaces `map` and tells QML, only when something in it changed.
template <class T, class Signal>
void take(PopoverView *view, QVariantMap &map, const T &record, Signal changed) {
    QVariantMap next = toVariantMap(record);
    if (next == map)
        return;
    map = std::move(next);
    Q_EMIT(view->*changed)();
}

} // namespace

PopoverView::PopoverView(QObject *parent)
    : QObject(parent) {
    // Until the tray's first state arrives the window shows its loading form.
    view::PopoverState blank;
    blank.header.emplace();
    blank.signIn.emplace();
    blank.limits.emplace();
    blank.today.emplace();
    blank.work.emplace();
    blank.projects.emplace();
    blank.sharing.emplace();
    blank.settings.emplace();
    blank.footer.emplace();
    blank.signOut.emplace();
    blank.mcp.emplace();
    blank.guide.emplace();
    apply(blank);
}

void PopoverView::apply(const view::PopoverState &state) {
    if (state.header)
        take(this, m_header, *state.header, &PopoverView::headerChanged);
    if (state.signIn)
        take(this, m_signIn, *state.signIn, &PopoverView::signInChanged);
    if (state.signOut)
        take(this, m_signOut, *state.signOut, &PopoverView::signOutChanged);
    if (state.limits) {
        m_limitGroups.update(state.limits->groups);
        take(this, m_limits, *state.limits, &PopoverView::limitsChanged);
    }
    if (state.today) {
        m_todayColumns.update(state.today->columns);
        m_sourceShares.update(state.today->shares);
        take(this, m_today, *state.today, &PopoverView::todayChanged);
    }
    if (state.work) {
        m_timers.update(state.work->timers);
        take(this, m_work, *state.work, &PopoverView::workChanged);
    }
    if (state.projects) {
        m_projectRows.update(state.projects->rows);
        take(this, m_projects, *state.projects, &PopoverView::projectsChanged);
    }
    if (state.sharing)
        take(this, m_sharing, *state.sharing, &PopoverView::sharingChanged);
    if (state.settings) {
        m_setupRows.update(state.settings->rows);
        take(this, m_settings, *state.settings, &PopoverView::settingsChanged);
    }
    if (state.mcp) {
        m_mcpClients.update(state.mcp->clients);
        take(this, m_mcp, *state.mcp, &PopoverView::mcpChanged);
    }
    if (state.guide) {
        m_guideSteps.update(state.guide->steps);
        take(this, m_guide, *state.guide, &PopoverView::guideChanged);
    }
    if (state.footer)
        take(this, m_footer, *state.footer, &PopoverView::footerChanged);
}

void PopoverView::request(view::Command command, std::optional<QString> label,
                          std::optional<QString> action, std::optional<QString> id) {
    Q_EMIT commandRequested(
        {view::toWire(command), std::move(label), std::move(action), std::move(id)});
}

void PopoverView::syncNow() {
    request(view::Command::Sync);
}

void PopoverView::startTimer(const QString &label) {
    request(view::Command::StartTimer, label);
}

void PopoverView::timerAction(const QString &action, const QString &id) {
    request(view::Command::TimerAction, std::nullopt, action, id);
}

void PopoverView::openWorkspace() {
    request(view::Command::OpenWorkspace);
}

void PopoverView::openMeter() {
    request(view::Command::OpenMeter);
}

void PopoverView::quit() {
    request(view::Command::Quit);
}

void PopoverView::startSignIn() {
    request(view::Command::SignIn);
}

void PopoverView::openApprovalPage() {
    request(view::Command::OpenApprovalPage);
}

void PopoverView::copySignInCommand() {
    request(view::Command::CopySignInCommand);
}

void PopoverView::setConfirmingSignOut(bool confirming) {
    if (confirming == m_confirmingSignOut)
        return;
    m_confirmingSignOut = confirming;
    Q_EMIT confirmingSignOutChanged();
}

void PopoverView::askSignOut() {
    setConfirmingSignOut(true);
}

void PopoverView::cancelSignOut() {
    setConfirmingSignOut(false);
}

void PopoverView::confirmSignOut() {
    setConfirmingSignOut(false);
    request(view::Command::SignOut);
}

void PopoverView::resetScreens() {
    setConfirmingSignOut(false);
    setScreen(QStringLiteral("main"));
    if (m_settingsExpanded) {
        m_settingsExpanded = false;
        Q_EMIT settingsExpandedChanged();
    }
    Q_EMIT scrolledToTop();
}

void PopoverView::setScreen(const QString &screen) {
    if (screen == m_screen)
        return;
    m_screen = screen;
    Q_EMIT screenChanged();
    Q_EMIT scrolledToTop();
}

void PopoverView::escape() {
    if (m_confirmingSignOut)
        setConfirmingSignOut(false);
    else
        Q_EMIT closeRequested();
}

void PopoverView::toggleSettings() {
    m_settingsExpanded = !m_settingsExpanded;
    Q_EMIT settingsExpandedChanged();
}

void PopoverView::setupAction(const QString &action) {
    const auto which = view::setupActionFromWire(action);
    if (!which)
        return;
    switch (*which) {
    case view::SetupAction::SignIn:
        startSignIn();
        break;
    case view::SetupAction::SignOut:
        askSignOut();
        break;
    case view::SetupAction::OpenMeter:
        openMeter();
        break;
    case view::SetupAction::McpSetup:
        // The tray reads the token and the clients' files again for the screen.
        request(view::Command::ShowMcpSetup);
        setScreen(QStringLiteral("mcp"));
        break;
    case view::SetupAction::CopyAgentGuide:
        request(view::Command::CopyAgentGuide);
        break;
    case view::SetupAction::SetupGuide:
        showGuide();
        break;
    case view::SetupAction::Update:
        request(view::Command::Update);
        break;
    case view::SetupAction::Autostart:
        request(view::Command::ToggleAutostart);
        break;
    }
}

void PopoverView::showGuide() {
    setScreen(QStringLiteral("guide"));
}

void PopoverView::back() {
    setScreen(QStringLiteral("main"));
}

void PopoverView::selectMcpClient(const QString &client) {
    request(view::Command::SelectMcpClient, std::nullopt, std::nullopt, client);
}

void PopoverView::copyMcpSnippet() {
    request(view::Command::CopyMcpSnippet);
}

void PopoverView::installMcpClient(const QString &client) {
    request(view::Command::InstallMcpClient, std::nullopt, std::nullopt, client);
}

} // namespace quonbrix
