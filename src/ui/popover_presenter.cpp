#include "ui/popover_presenter.h"

#include "log/log_categories.h"
#include "ui/account_panels.h"
#include "ui/popover_panels.h"
#include "ui/setup_panels.h"
#include "ui/work_panels.h"

#include "integrations/agent_guide.h"

namespace quonbrix {

namespace {

view::Header header(const StatusModel &model, const QString &trayHint) {
    const bool loading = !model.hasStatus();
    const bool signedIn = isSignedIn(model.status());
    view::Header h;
    h.title = QStringLiteral("quon-brix");
    h.statusPill = loading    ? QStringLiteral("Starting")
                   : signedIn ? QStringLiteral("Signed in")
                              : QStringLiteral("Local meter");
    h.subtitle = loading    ? QStringLiteral("Local meter daemon")
                 : signedIn ? QStringLiteral("Cloud sync on · usage figures only")
                            : QStringLiteral("Local only · no account needed");
    h.loading = loading;
    h.loadingText = QStringLiteral("Starting meter…");
    h.trayHint = trayHint;
    h.update = updateButton(model);
    h.showSignIn = !loading && !signedIn;
    h.signIn = headerSignInButton(model.enrollProgress());
    h.condition = model.daemonCondition();
    h.conditionColor = toneColor(Tone::Orange);
    h.conditionSymbol = view::symbolUrl(QStringLiteral("exclamationmark.triangle.fill"));
    h.back = {QStringLiteral("Back"), view::symbolUrl(QStringLiteral("chevron.left")), QString(),
              true};
    return h;
}

// Moves `next` into `shown` and `out` where it differs from what the popover has.
template <class T>
void carry(std::optional<T> &shown, std::optional<T> &next, std::optional<T> &out) {
    if (next && next != shown) {
        shown = next;
        out = std::move(next);
    }
}

} // namespace

PopoverPresenter::PopoverPresenter(StatusModel *status, QString trayHint, WebLinks links,
                                   Environment env, QObject *parent)
    : QObject(parent)
    , m_status(status)
    , m_trayHint(std::move(trayHint))
    , m_links(std::move(links))
    , m_mcp(std::move(env)) {
    connect(&m_mcp, &McpSetup::changed, this, &PopoverPresenter::scheduleUpdate);
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, [this] { update(true); });
    for (auto signal :
         {&StatusModel::statusChanged, &StatusModel::workTimerBusyIDsChanged,
          &StatusModel::workTimerFeedbackChanged, &StatusModel::syncingChanged,
          &StatusModel::syncMessageChanged, &StatusModel::openingLocalConsoleChanged,
          &StatusModel::localConsoleMessageChanged, &StatusModel::enrollProgressChanged,
          &StatusModel::signOutMessageChanged, &StatusModel::daemonConditionChanged})
        connect(m_status, signal, this, &PopoverPresenter::scheduleUpdate);
    // A forecast moves with the readings seen, even while the status itself stays the same.
    connect(m_status, &StatusModel::passFinished, this, &PopoverPresenter::scheduleUpdate);
}

view::PopoverState PopoverPresenter::state() const {
    const QDateTime now = m_clock->now();
    const PanelContext context{now, m_locale, m_zone, &m_status->paceHistory()};
    const auto &status = m_status->status();
    view::PopoverState state;
    state.header = header(*m_status, m_trayHint);
    state.signIn = signInPanel(m_status->enrollProgress());
    state.limits = limitsPanel(status, context);
    state.today = todayPanel(status);
    state.work = workPanel(*m_status, now);
    state.projects = projectsPanel(status);
    state.sharing = sharingPanel(status);
    state.settings = settingsGroup(*m_status, m_guideCopied, m_updater, m_startsAtLogin);
    state.footer = footer(*m_status);
    state.signOut = signOutConfirmation();
    state.mcp = mcpSetupScreen(m_mcp);
    state.guide = setupGuide(isSignedIn(status));
    return state;
}

view::PopoverState PopoverPresenter::startShowing() {
    m_showing = true;
    m_guideCopied = false;
    if (m_autostart)
        m_startsAtLogin = m_autostart->isOn();
    m_shown = state();
    updateTicking();
    return m_shown;
}

void PopoverPresenter::stopShowing() {
    m_showing = false;
    m_shown = {};
    updateTicking();
}

void PopoverPresenter::scheduleUpdate() {
    // One status pass changes several properties in a row; they make one update.
    if (!m_showing || m_updateQueued)
        return;
    m_updateQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_updateQueued = false;
            update(false);
        },
        Qt::QueuedConnection);
}

void PopoverPresenter::update(bool workOnly) {
    if (!m_showing)
        return;
    view::PopoverState next;
    if (workOnly)
        next.work = workPanel(*m_status, m_clock->now());
    else
        next = state();
    view::PopoverState out;
    carry(m_shown.header, next.header, out.header);
    carry(m_shown.signIn, next.signIn, out.signIn);
    carry(m_shown.limits, next.limits, out.limits);
    carry(m_shown.today, next.today, out.today);
    carry(m_shown.work, next.work, out.work);
    carry(m_shown.projects, next.projects, out.projects);
    carry(m_shown.sharing, next.sharing, out.sharing);
    carry(m_shown.settings, next.settings, out.settings);
    carry(m_shown.footer, next.footer, out.footer);
    carry(m_shown.signOut, next.signOut, out.signOut);
    carry(m_shown.mcp, next.mcp, out.mcp);
    carry(m_shown.guide, next.guide, out.guide);
    updateTicking();
    if (out != view::PopoverState{})
        Q_EMIT changed(out);
}

void PopoverPresenter::updateTicking() {
    const bool tick = m_showing && anyTimerRunning(m_status->status());
    if (tick && !m_tick.isActive())
        m_tick.start();
    else if (!tick)
        m_tick.stop();
}

void PopoverPresenter::perform(const view::UserCommand &command) {
    const auto which = view::commandFromWire(command.name);
    if (!which)
        return;
    switch (*which) {
    case view::Command::Sync:
        m_status->syncNow();
        break;
    case view::Command::StartTimer:
        m_status->startWorkTimer(command.label.value_or(QString()));
        break;
    case view::Command::TimerAction: {
        const QString id = command.id.value_or(QString());
        const QString action = command.action.value_or(QString());
        if (action == QLatin1String("pause"))
            m_status->pauseWorkTimer(id);
        else if (action == QLatin1String("resume"))
            m_status->resumeWorkTimer(id);
        else if (action == QLatin1String("complete"))
            m_status->completeWorkTimer(id);
        else if (action == QLatin1String("cancel"))
            m_status->cancelWorkTimer(id);
        break;
    }
    case view::Command::OpenWorkspace:
        m_status->openUrl(m_links.workspace);
        break;
    case view::Command::OpenMeter:
        m_status->openLocalConsole(m_links.localConsole);
        break;
    case view::Command::Quit:
        Q_EMIT quitRequested();
        break;
    case view::Command::SignIn:
        m_status->startEnroll();
        break;
    case view::Command::OpenApprovalPage:
        m_status->openApprovalPage();
        break;
    case view::Command::CopySignInCommand:
        Q_EMIT copyRequested(m_status->enrollCommand(m_installedDaemon));
        break;
    case view::Command::SignOut:
        m_status->unenroll();
        break;
    case view::Command::ShowMcpSetup:
        m_mcp.refresh();
        break;
    case view::Command::SelectMcpClient:
        if (const auto which = client(command))
            m_mcp.select(*which);
        break;
    case view::Command::CopyMcpSnippet:
        Q_EMIT copyRequested(
            integrations::snippet(m_mcp.selected(), m_mcp.token(), m_mcp.environment()));
        m_mcp.setCopied();
        break;
    case view::Command::InstallMcpClient:
        if (const auto which = client(command))
            m_mcp.install(*which);
        break;
    case view::Command::CopyAgentGuide:
        copyAgentGuide();
        break;
    case view::Command::Update:
        updateAction();
        break;
    case view::Command::ToggleAutostart:
        toggleAutostart();
        break;
    }
}

std::optional<integrations::McpClient>
PopoverPresenter::client(const view::UserCommand &command) const {
    return integrations::mcpClientFromWire(command.id.value_or(QString()));
}

void PopoverPresenter::copyAgentGuide() {
    const auto guide = integrations::agentGuideText();
    if (!guide) {
        qCWarning(lcPopover, "[QuonBrix] agent guide: the guide built into the app is missing");
        Q_EMIT beepRequested();
        return;
    }
    Q_EMIT copyRequested(integrations::projectRules(*guide));
    m_guideCopied = true;
    scheduleUpdate();
}

void PopoverPresenter::setUpdater(UpdateController *updater) {
    if (m_updater)
        disconnect(m_updater, nullptr, this, nullptr);
    m_updater = updater;
    if (updater)
        connect(updater, &UpdateController::changed, this, &PopoverPresenter::scheduleUpdate);
    scheduleUpdate();
}

void PopoverPresenter::setAutostart(std::optional<Autostart> autostart) {
    m_autostart = std::move(autostart);
    m_startsAtLogin = m_autostart ? std::optional(m_autostart->isOn()) : std::nullopt;
    scheduleUpdate();
}

void PopoverPresenter::updateAction() {
    if (!m_updater)
        return;
    using Phase = UpdateController::Phase;
    const bool selfContained = m_updater->options().kind == InstallKind::SelfContained;
    switch (m_updater->phase()) {
    case Phase::Available:
        if (selfContained)
            m_updater->install();
        else if (const auto &offer = m_updater->offer(); offer && !offer->notesUrl.isEmpty())
            m_status->openUrl(QUrl(offer->notesUrl));
        break;
    case Phase::InstallFailed:
        m_updater->install();
        break;
    case Phase::Installed:
        Q_EMIT restartRequested();
        break;
    case Phase::Checking:
    case Phase::Downloading:
        break;
    case Phase::Idle:
    case Phase::UpToDate:
    case Phase::CheckFailed:
        m_updater->checkNow();
        break;
    }
}

void PopoverPresenter::toggleAutostart() {
    if (!m_autostart)
        return;
    if (const auto failure = m_autostart->setOn(!m_autostart->isOn())) {
        qCWarning(lcPopover, "[QuonBrix] autostart: %s", qUtf8Printable(*failure));
        Q_EMIT beepRequested();
    }
    m_startsAtLogin = m_autostart->isOn();
    scheduleUpdate();
}

void PopoverPresenter::setTrayHint(QString hint) {
    if (hint == m_trayHint)
        return;
    m_trayHint = std::move(hint);
    scheduleUpdate();
}

void PopoverPresenter::setContext(const Clock *clock, QLocale locale, QTimeZone zone) {
    m_clock = clock;
    m_locale = std::move(locale);
    m_zone = std::move(zone);
}

QString PopoverPresenter::noTrayHint(const QString &currentDesktop) {
    const QStringList desktops = currentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
        return QStringLiteral("No tray icon: enable the AppIndicator extension "
                              "(gnome-shell-extension-appindicator); the icon moves there "
                              "as soon as it is on.");
    return QStringLiteral("No tray icon: add a system tray to your panel (waybar: the \"tray\" "
                          "module); the icon moves there as soon as it appears.");
}

} // namespace quonbrix
