#include "ui/work_panels.h"

#include "features/formatting.h"
#include "features/sharing.h"
#include "features/work_timers.h"
#include "ui/popover_panels.h"

#include <algorithm>

namespace quonbrix {

namespace {

bool isRunning(const WorkSession &session) {
    return session.status == QLatin1String("running");
}

view::Button button(const QString &label, const QString &symbol, const QString &help,
                    bool enabled = true) {
    return {label, view::symbolUrl(symbol), help, enabled};
}

view::Timer timerRow(const WorkSession &session, bool busy, const QDateTime &now) {
    const bool running = isRunning(session);
    view::Timer t;
    t.sessionId = session.id;
    t.label = session.projectLabel;
    t.caption = QStringLiteral("Project-only time");
    t.elapsed = formatElapsedClock(workTimerElapsedSeconds(session, now));
    t.stateWord = running ? QStringLiteral("Running") : QStringLiteral("Paused");
    t.color = toneColor(running ? Tone::Green : Tone::Orange);
    t.statusSymbol = view::symbolUrl(running ? QStringLiteral("record.circle.fill")
                                             : QStringLiteral("pause.circle.fill"));
    t.primaryAction = running ? QStringLiteral("pause") : QStringLiteral("resume");
    t.primary = running ? button(QStringLiteral("Pause"), QStringLiteral("pause.fill"),
                                 QStringLiteral("Pause this timer"), !busy)
                        : button(QStringLiteral("Resume"), QStringLiteral("play.fill"),
                                 QStringLiteral("Resume this timer"), !busy);
    t.complete = button(QStringLiteral("Complete"), QStringLiteral("checkmark"),
                        QStringLiteral("Complete this timer"), !busy);
    t.cancel = button(QStringLiteral("Cancel"), QStringLiteral("xmark"),
                      QStringLiteral("Cancel this timer"), !busy);
    return t;
}

view::Feedback feedback(const std::vector<WorkTimerFeedback> &list) {
    if (list.empty())
        return {};
    const WorkTimerFeedback &last = list.back();
    QString text = last.message;
    if (last.projectLabel)
        text = *last.projectLabel + QStringLiteral(": ") + text;
    return {text,
            view::symbolUrl(last.isError ? QStringLiteral("exclamationmark.triangle.fill")
                                         : QStringLiteral("checkmark.circle.fill")),
            toneColor(last.isError ? Tone::Orange : Tone::Green)};
}

} // namespace

bool anyTimerRunning(const std::optional<DaemonStatus> &status) {
    if (!status || !status->workTimers)
        return false;
    return std::any_of(status->workTimers->cbegin(), status->workTimers->cend(),
                       [](const WorkSession &s) { return isOpenWorkTimer(s) && isRunning(s); });
}

view::Work workPanel(const StatusModel &model, const QDateTime &now) {
    view::Work work;
    work.title = QStringLiteral("Current work");
    work.labelPlaceholder = QStringLiteral("Project label");
    work.start = button(QStringLiteral("Start"), QStringLiteral("play.fill"), QString(),
                        !model.workTimerBusyIDs().contains(workTimerStartBusyID));
    if (const auto &status = model.status())
        for (const WorkSession *session : openWorkTimers(*status))
            work.timers.push_back(
                timerRow(*session, model.workTimerBusyIDs().contains(session->id), now));
    work.timersHeader = openTimersText(qsizetype(work.timers.size()));
    if (!work.timers.empty())
        work.timersHeader += QStringLiteral(" · concurrent timer time is additive");
    work.feedback = feedback(model.workTimerFeedback());
    return work;
}

view::Projects projectsPanel(const std::optional<DaemonStatus> &status) {
    view::Projects projects;
    projects.title = QStringLiteral("Local projects");
    projects.emptyText = QStringLiteral(
        "No Claude Code or Codex usage found yet. Refresh after your first session.");
    if (!status || !status->projects)
        return projects;
    for (const StatusProjectRow &row : *status->projects) {
        const bool subtotal =
            row.unpricedTokens.value_or(0) > 0 || row.indeterminateTokens.value_or(0) > 0;
        const double cost = subtotal ? row.pricedSubtotal.value_or(row.estCost) : row.estCost;
        const QString label = row.key.value(QStringLiteral("project"));
        projects.rows.push_back(
            {label.isEmpty() ? QStringLiteral("Unlabeled") : label,
             formatTokens(row.work) + QStringLiteral(" work tokens · ") + formatUSD(cost),
             subtotal ? QStringLiteral(
                            "Priced subtotal only; the complete API equivalent is unavailable")
                      : QStringLiteral("API list-price equivalent on the quon basis; not your "
                                       "subscription charge")});
    }
    return projects;
}

view::Sharing sharingPanel(const std::optional<DaemonStatus> &status) {
    view::Sharing sharing;
    sharing.title = QStringLiteral("Cloud sync (optional)");
    if (!status)
        return sharing;
    const bool on = status->consent.master.shared;
    sharing.shown = true;
    sharing.state = on ? QStringLiteral("Sharing enabled") : QStringLiteral("Sharing off");
    sharing.symbol = view::symbolUrl(on ? QStringLiteral("checkmark.circle.fill")
                                        : QStringLiteral("pause.circle.fill"));
    sharing.color = toneColor(on ? Tone::Green : Tone::Secondary);
    sharing.disclosure = view::symbolUrl(QStringLiteral("chevron.right"));
    sharing.summary = sharingSummary(sharingCounts(status->consent));
    sharing.manage = {QStringLiteral("Manage in console"), {}, {}, true};
    return sharing;
}

view::Button updateButton(const StatusModel &model) {
    const bool syncing = model.syncing();
    return button(syncing ? QStringLiteral("Updating") : QStringLiteral("Update now"),
                  QStringLiteral("arrow.triangle.2.circlepath"),
                  QStringLiteral("Update the latest usage stored on this computer"), !syncing);
}

view::Footer footer(const StatusModel &model) {
    view::Footer f;
    if (!model.syncMessage().isEmpty())
        f.messages << model.syncMessage();
    if (!model.localConsoleMessage().isEmpty())
        f.messages << model.localConsoleMessage();
    if (!model.signOutMessage().isEmpty())
        f.messages << model.signOutMessage();
    const auto &status = model.status();
    f.syncDetail = status && status->enrolled && !status->lastPushAt
                       ? QStringLiteral("Not synced")
                       : QStringLiteral("Stored on this computer");
    const bool opening = model.openingLocalConsole();
    f.workspace = button(opening ? QStringLiteral("Opening") : QStringLiteral("Open workspace"),
                         QStringLiteral("rectangle.3.group"),
                         QStringLiteral("Open your cloud workspace for history, goals, evidence, "
                                        "clients, and reports"));
    f.meter =
        button(QStringLiteral("Open meter"), QStringLiteral("gauge.with.dots.needle.50percent"),
               QStringLiteral("Open this computer's private local Meter"), !opening);
    f.guide = button(QStringLiteral("Guide"), QStringLiteral("list.bullet.rectangle"),
                     QStringLiteral("Open the setup guide"));
    f.quit = button(QStringLiteral("Quit"), QStringLiteral("power"),
                    QStringLiteral("Stop the meter and quit QuonBrix"));
    return f;
}

} // namespace quonbrix
