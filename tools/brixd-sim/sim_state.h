#pragma once

// Everything the sim knows: the scenario's status and what the commands have changed since
// start (sync, sign-out, attention, work timers).

#include "daemon_link/records.h"
#include "platform/clock.h"
#include "scenario.h"
#include "work_timers.h"

#include <QDateTime>
#include <memory>

namespace quonbrix::sim {

class SimState {
public:
    // Fails, with a reason, when the scenario does not make a status the app could read.
    static std::unique_ptr<SimState> create(const Scenario &scenario, const Clock &clock,
                                            const QString &timeZone, QString *error);

    const QString &scenarioName() const { return m_scenario.name; }

    DaemonStatus status();
    // `forcedSkip` makes the sync report that skip code, to show each message by hand.
    SyncResult sync(const std::optional<QString> &forcedSkip);
    LocalViewHandoff issueHandoff();
    void recordHeartbeat(const AttentionHeartbeat &heartbeat);
    // Signed in from the enrollment file, whatever the scenario says.
    void markEnrolled(const std::optional<QString> &orgId);
    void clearEnrollment();
    WorkTimerBook &timers() { return m_timers; }

private:
    SimState(Scenario scenario, const Clock &clock, const QString &timeZone);
    bool reanchor(const QDateTime &now, QString *error);
    void grow(DaemonStatus &s) const;
    void growLimits(DaemonStatus &s) const;

    Scenario m_scenario;
    const Clock &m_clock;
    QDateTime m_startedAt;
    // Placeholders are resolved against this instant, which stands still so that what the app
    // keys on (a window's start, a reset minute) does not change from one poll to the next. It
    // moves to now once the nearest future instant of the scenario comes due, as if that
    // window had rolled over, and at least hourly.
    QDateTime m_anchor;
    QDateTime m_anchorExpires;
    DaemonStatus m_base;

    bool m_enrolled = false;
    std::optional<QString> m_orgId;
    std::optional<double> m_lastPushAt;
    qint64 m_unsyncedRows = 0;
    qint64 m_heldBackRows = 0;
    std::optional<AttentionDay> m_attention;
    WorkTimerBook m_timers;
};

} // namespace quonbrix::sim
