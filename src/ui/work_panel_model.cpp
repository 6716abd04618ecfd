#include "ui/work_panel_model.h"

#include "features/formatting.h"
#include "features/sharing.h"
#include "ui/popover_panels.h"
#include "ui/symbols.h"

#include <QColor>

namespace quonbrix {

namespace {

bool isOpen(const WorkSession &session) {
    return !session.completedAt && session.status != QLatin1String("completed") &&
           session.status != QLatin1String("cancelled");
}

QVariantMap button(const QString &label, const QString &symbol, const QString &help,
                   bool enabled = true) {
    return {{QStringLiteral("label"), label},
            {QStringLiteral("symbol"), symbolSource(symbol)},
            {QStringLiteral("help"), help},
            {QStringLiteral("enabled"), enabled}};
}

} // namespace

WorkPanelModel::WorkPanelModel(StatusModel *status, Links links, QObject *parent)
    : QObject(parent)
    , m_status(status)
    , m_links(std::move(links)) {
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &WorkPanelModel::rebuildTimers);
    connect(m_status, &StatusModel::statusChanged, this, [this] {
        rebuildTimers();
        rebuildPanels();
        Q_EMIT commandsChanged();
    });
    connect(m_status, &StatusModel::workTimerBusyIDsChanged, this, &WorkPanelModel::rebuildTimers);
    connect(m_status, &StatusModel::workTimerFeedbackChanged, this, &WorkPanelModel::timersChanged);
    for (auto signal :
         {&StatusModel::syncingChanged, &StatusModel::syncMessageChanged,
          &StatusModel::openingLocalConsoleChanged, &StatusModel::localConsoleMessageChanged})
        connect(m_status, signal, this, &WorkPanelModel::commandsChanged);
    rebuildTimers();
    rebuildPanels();
}

QString WorkPanelModel::timersHeader() const {
    if (m_timers.isEmpty())
        return QStringLiteral("No open timers");
    return QString::number(m_timers.size()) +
           QStringLiteral(" open timers · concurrent timer time is additive");
}

QUrl WorkPanelModel::startSymbol() const {
    return symbolSource(QStringLiteral("play.fill"));
}

bool WorkPanelModel::startBusy() const {
    return m_status->workTimerBusyIDs().contains(workTimerStartBusyID);
}

QVariantMap WorkPanelModel::feedback() const {
    const auto &list = m_status->workTimerFeedback();
    if (list.empty())
        return {};
    const WorkTimerFeedback &last = list.back();
    QString text = last.message;
    if (last.projectLabel)
        text = *last.projectLabel + QStringLiteral(": ") + text;
    return {{QStringLiteral("text"), text},
            {QStringLiteral("isError"), last.isError},
            {QStringLiteral("symbol"),
             symbolSource(last.isError ? QStringLiteral("exclamationmark.triangle.fill")
                                       : QStringLiteral("checkmark.circle.fill"))},
            {QStringLiteral("color"), toneColor(last.isError ? Tone::Orange : Tone::Green)}};
}

void WorkPanelModel::timerAction(const QString &action, const QString &id) {
    if (action == QLatin1String("pause"))
        m_status->pauseWorkTimer(id);
    else if (action == QLatin1String("resume"))
        m_status->resumeWorkTimer(id);
    else if (action == QLatin1String("complete"))
        m_status->completeWorkTimer(id);
    else if (action == QLatin1String("cancel"))
        m_status->cancelWorkTimer(id);
}

void WorkPanelModel::openWorkspace() {
    m_status->openUrl(m_links.workspace);
}

void WorkPanelModel::setShown(bool shown) {
    m_shown = shown;
    if (shown)
        rebuildTimers();
    updateTicking();
}

void WorkPanelModel::setClock(const Clock *clock) {
    m_clock = clock;
    rebuildTimers();
}

void WorkPanelModel::updateTicking() {
    const bool tick = m_shown && m_anyRunning;
    if (tick && !m_tick.isActive())
        m_tick.start();
    else if (!tick)
        m_tick.stop();
}

void WorkPanelModel::rebuildTimers() {
    m_timers.clear();
    m_anyRunning = false;
    const auto &status = m_status->status();
    const QDateTime now = m_clock->now();
    if (status && status->workTimers) {
        for (const WorkSession &session : *status->workTimers) {
            if (!isOpen(session))
                continue;
            const bool running = session.status == QLatin1String("running");
            m_anyRunning = m_anyRunning || running;
            const bool busy = m_status->workTimerBusyIDs().contains(session.id);
            const Tone tone = running ? Tone::Green : Tone::Orange;
            m_timers << QVariantMap{
                {QStringLiteral("id"), session.id},
                {QStringLiteral("label"), session.projectLabel},
                {QStringLiteral("caption"), QStringLiteral("Project-only time")},
                {QStringLiteral("elapsed"),
                 formatElapsedClock(workTimerElapsedSeconds(session, now))},
                {QStringLiteral("stateWord"),
                 running ? QStringLiteral("Running") : QStringLiteral("Paused")},
                {QStringLiteral("color"), toneColor(tone)},
                {QStringLiteral("statusSymbol"),
                 symbolSource(running ? QStringLiteral("record.circle.fill")
                                      : QStringLiteral("pause.circle.fill"))},
                {QStringLiteral("busy"), busy},
                {QStringLiteral("primaryAction"),
                 running ? QStringLiteral("pause") : QStringLiteral("resume")},
                {QStringLiteral("primary"),
                 running ? button(QStringLiteral("Pause"), QStringLiteral("pause.fill"),
                                  QStringLiteral("Pause this timer"), !busy)
                         : button(QStringLiteral("Resume"), QStringLiteral("play.fill"),
                                  QStringLiteral("Resume this timer"), !busy)},
                {QStringLiteral("complete"),
                 button(QStringLiteral("Complete"), QStringLiteral("checkmark"),
                        QStringLiteral("Complete this timer"), !busy)},
                {QStringLiteral("cancel"), button(QStringLiteral("Cancel"), QStringLiteral("xmark"),
                                                  QStringLiteral("Cancel this timer"), !busy)},
            };
        }
    }
    updateTicking();
    Q_EMIT timersChanged();
}

void WorkPanelModel::rebuildPanels() {
    m_projects.clear();
    m_sharing.clear();
    const auto &status = m_status->status();
    if (status && status->projects) {
        for (const StatusProjectRow &row : *status->projects) {
            const bool subtotal =
                row.unpricedTokens.value_or(0) > 0 || row.indeterminateTokens.value_or(0) > 0;
            const double cost = subtotal ? row.pricedSubtotal.value_or(row.estCost) : row.estCost;
            const QString label = row.key.value(QStringLiteral("project"));
            m_projects << QVariantMap{
                {QStringLiteral("label"), label.isEmpty() ? QStringLiteral("Unlabeled") : label},
                {QStringLiteral("figures"),
                 formatTokens(row.work) + QStringLiteral(" work tokens · ") + formatUSD(cost)},
                {QStringLiteral("costHelp"),
                 subtotal ? QStringLiteral(
                                "Priced subtotal only; the complete API equivalent is unavailable")
                          : QStringLiteral("API list-price equivalent on the quon basis; not "
                                           "your subscription charge")}};
        }
    }
    if (status) {
        const bool on = status->consent.master.shared;
        m_sharing = {
            {QStringLiteral("state"),
             on ? QStringLiteral("Sharing enabled") : QStringLiteral("Sharing off")},
            {QStringLiteral("symbol"), symbolSource(on ? QStringLiteral("checkmark.circle.fill")
                                                       : QStringLiteral("pause.circle.fill"))},
            {QStringLiteral("color"), toneColor(on ? Tone::Green : Tone::Secondary)},
            {QStringLiteral("disclosure"), symbolSource(QStringLiteral("chevron.right"))},
            {QStringLiteral("summary"), sharingSummary(sharingCounts(status->consent))},
            {QStringLiteral("manage"), QStringLiteral("Manage in console")},
        };
    }
    Q_EMIT panelsChanged();
}

QVariantMap WorkPanelModel::update() const {
    const bool syncing = m_status->syncing();
    return button(syncing ? QStringLiteral("Updating") : QStringLiteral("Update now"),
                  QStringLiteral("arrow.triangle.2.circlepath"),
                  QStringLiteral("Update the latest usage stored on this Mac"), !syncing);
}

QVariantMap WorkPanelModel::workspace() const {
    const bool opening = m_status->openingLocalConsole();
    return button(opening ? QStringLiteral("Opening") : QStringLiteral("Open workspace"),
                  QStringLiteral("rectangle.3.group"),
                  QStringLiteral("Open your cloud workspace for history, goals, evidence, "
                                 "clients, and reports"));
}

QVariantMap WorkPanelModel::meter() const {
    return button(QStringLiteral("Open meter"), QStringLiteral("gauge.with.dots.needle.50percent"),
                  QStringLiteral("Open this Mac's private local Meter"),
                  !m_status->openingLocalConsole());
}

QString WorkPanelModel::syncDetail() const {
    const auto &status = m_status->status();
    if (status && status->enrolled && !status->lastPushAt)
        return QStringLiteral("Not synced");
    return QStringLiteral("Stored on this Mac");
}

QStringList WorkPanelModel::messages() const {
    QStringList out;
    if (!m_status->syncMessage().isEmpty())
        out << m_status->syncMessage();
    if (!m_status->localConsoleMessage().isEmpty())
        out << m_status->localConsoleMessage();
    return out;
}

} // namespace quonbrix
