#include "sim_state.h"

#include "daemon_link/records.h"
#include "relative_time.h"
#include "tokens.h"
#include "json/json_codec.h"

#include <algorithm>

namespace quonbrix::sim {

namespace {

constexpr qint64 minuteMs = 60 * 1000;
constexpr qint64 hourMs = 60 * minuteMs;
constexpr qint64 handoffLifetimeMs = 60 * 1000;
// What one active heartbeat stands for: the app samples every 15 seconds.
constexpr qint64 heartbeatSeconds = 15;

} // namespace

SimState::SimState(Scenario scenario, const Clock &clock, const QString &timeZone)
    : m_scenario(std::move(scenario))
    , m_clock(clock)
    , m_timers(clock, timeZone) {}

std::unique_ptr<SimState> SimState::create(const Scenario &scenario, const Clock &clock,
                                           const QString &timeZone, QString *error) {
    std::unique_ptr<SimState> state(new SimState(scenario, clock, timeZone));
    state->m_startedAt = clock.now();
    if (!state->reanchor(state->m_startedAt, error))
        return nullptr;
    // What commands change starts from the scenario and is kept from here on.
    const DaemonStatus &first = state->m_base;
    state->m_enrolled = first.enrolled;
    state->m_orgId = first.orgId;
    state->m_attention = first.attention;
    state->m_timers.seed(first.workTimers.value_or(std::vector<WorkSession>{}));
    state->m_unsyncedRows = scenario.pendingSyncRows;
    return state;
}

bool SimState::reanchor(const QDateTime &now, QString *error) {
    const std::optional<ResolvedTree> resolved = resolvePlaceholders(m_scenario.status, now, error);
    if (!resolved)
        return false;
    QString why;
    std::optional<DaemonStatus> status = json::decode<DaemonStatus>(resolved->tree, &why);
    if (!status) {
        if (error)
            *error = QStringLiteral("scenario %1 does not make a readable status: %2")
                         .arg(m_scenario.name, why);
        return false;
    }
    m_base = std::move(*status);
    m_anchor = now;
    const qint64 lifetime =
        std::clamp(resolved->nearestFutureOffsetMs.value_or(hourMs), minuteMs, hourMs);
    m_anchorExpires = now.addMSecs(lifetime);
    return true;
}

void SimState::grow(DaemonStatus &s) const {
    const double hours = double(m_startedAt.msecsTo(m_clock.now())) / double(hourMs);
    const double f = std::max(0.0, m_scenario.growthPercentPerHour / 100.0 * hours);
    if (f == 0)
        return;
    const auto up = [f](qint64 &v) { v += qint64(double(v) * f); };
    const auto upCost = [f](double &v) { v *= 1.0 + f; };
    for (qint64 *v : {&s.output, &s.input, &s.work, &s.cache, &s.tokens, &s.claudeCodeOutput,
                      &s.codexOutput, &s.claudeCode, &s.codex})
        up(*v);
    upCost(s.estCost);
    if (s.pricedSubtotal)
        upCost(*s.pricedSubtotal);
    if (s.projects) {
        for (StatusProjectRow &row : *s.projects) {
            up(row.tokens);
            up(row.work);
            up(row.cache);
            upCost(row.estCost);
            if (row.pricedSubtotal)
                upCost(*row.pricedSubtotal);
        }
    }
    if (s.currentWindow) {
        up(s.currentWindow->estimatedTokens);
        up(s.currentWindow->estimatedWork);
    }
}

void SimState::growLimits(DaemonStatus &s) const {
    if (!s.providerLimits || m_scenario.limitGrowthPercentPerHour.isEmpty())
        return;
    // From the last rollover: a window that rolled over starts again from the scenario's value.
    const double hours = std::max(0.0, double(m_anchor.msecsTo(m_clock.now())) / double(hourMs));
    for (ProviderLimitSnapshot &reading : *s.providerLimits) {
        const double rate =
            m_scenario.limitGrowthPercentPerHour.value(reading.source + u'/' + reading.window);
        if (rate > 0 && !reading.stale.value_or(false))
            reading.usedPercent = std::min(100.0, reading.usedPercent + rate * hours);
    }
}

DaemonStatus SimState::status() {
    const QDateTime now = m_clock.now();
    if (now >= m_anchorExpires)
        reanchor(now, nullptr); // the same file resolved once already, so this holds
    DaemonStatus s = m_base;
    grow(s);
    growLimits(s);
    s.enrolled = m_enrolled;
    s.orgId = m_enrolled ? m_orgId : std::nullopt;
    if (m_lastPushAt)
        s.lastPushAt = m_lastPushAt;
    s.attention = m_attention;
    s.workTimers = m_timers.openSessions();
    s.workTimer = m_timers.current();
    return s;
}

SyncResult SimState::sync(const std::optional<QString> &forcedSkip) {
    SyncResult r;
    r.ok = true;
    if (forcedSkip) {
        r.skipped = *forcedSkip;
        r.ok = *forcedSkip != u"error";
        r.queued = m_heldBackRows;
    } else {
        r.collected = std::exchange(m_unsyncedRows, 0);
        if (!m_enrolled) {
            // Rows stay on this machine; there is nowhere to push them.
            r.skipped = QStringLiteral("not-enrolled");
        } else if (!m_base.consent.master.shared) {
            m_heldBackRows += r.collected;
            r.skipped = QStringLiteral("consent-off");
            r.queued = m_heldBackRows;
        } else {
            r.pushed = r.collected + std::exchange(m_heldBackRows, 0);
            m_lastPushAt = double(m_clock.now().toMSecsSinceEpoch());
        }
    }
    r.lastPushAt = m_lastPushAt ? m_lastPushAt : m_base.lastPushAt;
    return r;
}

LocalViewHandoff SimState::issueHandoff() {
    return {randomToken(), double(m_clock.now().toMSecsSinceEpoch() + handoffLifetimeMs)};
}

void SimState::recordHeartbeat(const AttentionHeartbeat &heartbeat) {
    if (!heartbeat.active)
        return;
    const QDateTime now = m_clock.now();
    if (!m_attention) {
        m_attention = AttentionDay{};
        m_attention->period = now.toLocalTime().date().toString(Qt::ISODate);
    }
    AttentionDay &day = *m_attention;
    day.activeSeconds += heartbeatSeconds;
    day.activeSamples += 1;
    const QString stamp = isoUtc(now);
    if (!day.firstActiveAt)
        day.firstActiveAt = stamp;
    day.lastActiveAt = stamp;
    const QDateTime first = QDateTime::fromString(*day.firstActiveAt, Qt::ISODateWithMs);
    day.spanSeconds = first.isValid() ? std::max<qint64>(0, first.secsTo(now)) : 0;
}

void SimState::markEnrolled(const std::optional<QString> &orgId) {
    m_enrolled = true;
    m_orgId = orgId;
}

void SimState::clearEnrollment() {
    m_enrolled = false;
    m_orgId.reset();
}

} // namespace quonbrix::sim
