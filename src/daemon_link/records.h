#pragma once

// Value records exchanged with the local meter daemon. Each record lists its JSON keys once,
// in `fields()`, and both the strict decoder and the encoder walk that list, so decoding and
// encoding can never drift apart. A field of type std::optional is optional on the wire:
// missing or null decodes as absent and absent is not written; every other field is required.

#include "json/keyed_list.h"

#include <QString>
#include <QStringList>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

namespace quonbrix {

using StringMap = KeyedList<QString>;

// ---- Provider rate limits -------------------------------------------------------------

struct ProviderLimitSnapshot {
    QString source;
    QString window;
    double usedPercent = 0;
    std::optional<QString> resetsAt;
    std::optional<double> resetsAtMs;
    std::optional<QString> capturedAt;
    std::optional<double> capturedAtMs;
    std::optional<double> windowMinutes;
    std::optional<QString> planLabel;
    std::optional<QString> severity;
    std::optional<QString> scopeLabel;
    std::optional<QString> period;
    std::optional<QString> schemaVersion;
    std::optional<bool> stale;

    bool operator==(const ProviderLimitSnapshot &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("source", s.source);
        v("window", s.window);
        v("usedPercent", s.usedPercent);
        v("resetsAt", s.resetsAt);
        v("resetsAtMs", s.resetsAtMs);
        v("capturedAt", s.capturedAt);
        v("capturedAtMs", s.capturedAtMs);
        v("windowMinutes", s.windowMinutes);
        v("planLabel", s.planLabel);
        v("severity", s.severity);
        v("scopeLabel", s.scopeLabel);
        v("period", s.period);
        v("schemaVersion", s.schemaVersion);
        v("stale", s.stale);
    }
};

struct CodexResetCreditsStatus {
    std::optional<qint64> availableCount;
    std::optional<double> earliestExpiresAtMs;
    std::optional<double> capturedAtMs;
    std::optional<bool> stale;

    bool operator==(const CodexResetCreditsStatus &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("availableCount", s.availableCount);
        v("earliestExpiresAtMs", s.earliestExpiresAtMs);
        v("capturedAtMs", s.capturedAtMs);
        v("stale", s.stale);
    }
};

// ---- Goals, limits, alerts ------------------------------------------------------------

struct UsageGoal {
    std::optional<QString> scope;
    std::optional<QString> key;
    QString metric;
    QString period;
    double target = 0;

    bool operator==(const UsageGoal &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("scope", s.scope);
        v("key", s.key);
        v("metric", s.metric);
        v("period", s.period);
        v("target", s.target);
    }
};

struct LimitSettings {
    QString preset;
    qint64 windowLimit = 0;
    qint64 weeklyLimit = 0;
    double warnAt = 0;
    double dangerAt = 0;

    bool operator==(const LimitSettings &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("preset", s.preset);
        v("windowLimit", s.windowLimit);
        v("weeklyLimit", s.weeklyLimit);
        v("warnAt", s.warnAt);
        v("dangerAt", s.dangerAt);
    }
};

struct AlertState {
    QString state;
    double windowRatio = 0;
    double weeklyRatio = 0;
    double projectedWeeklyRatio = 0;
    qint64 windowHeadroom = 0;
    qint64 weeklyHeadroom = 0;
    QString message;

    bool operator==(const AlertState &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("state", s.state);
        v("windowRatio", s.windowRatio);
        v("weeklyRatio", s.weeklyRatio);
        v("projectedWeeklyRatio", s.projectedWeeklyRatio);
        v("windowHeadroom", s.windowHeadroom);
        v("weeklyHeadroom", s.weeklyHeadroom);
        v("message", s.message);
    }
};

// ---- Work timers ------------------------------------------------------------------------

struct WorkIssueRef {
    QString provider;
    QString providerInstance;
    QString externalId;
    QString issueType;

    bool operator==(const WorkIssueRef &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("provider", s.provider);
        v("providerInstance", s.providerInstance);
        v("externalId", s.externalId);
        v("issueType", s.issueType);
    }
};

struct WorkSegment {
    QString id;
    QString startedAt;
    std::optional<QString> endedAt;
    QString timeZone;

    bool operator==(const WorkSegment &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("id", s.id);
        v("startedAt", s.startedAt);
        v("endedAt", s.endedAt);
        v("timeZone", s.timeZone);
    }
};

struct WorkSession {
    QString schemaVersion;
    QString id;
    QString projectLabel;
    std::optional<WorkIssueRef> issue;
    QString status;
    std::vector<WorkSegment> segments;
    QString createdAt;
    QString updatedAt;
    std::optional<QString> completedAt;
    qint64 revision = 0;

    bool operator==(const WorkSession &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("schemaVersion", s.schemaVersion);
        v("id", s.id);
        v("projectLabel", s.projectLabel);
        v("issue", s.issue);
        v("status", s.status);
        v("segments", s.segments);
        v("createdAt", s.createdAt);
        v("updatedAt", s.updatedAt);
        v("completedAt", s.completedAt);
        v("revision", s.revision);
    }
};

struct WorkTimerCommand {
    QString action;
    std::optional<QString> workSessionId;
    std::optional<QString> projectLabel;
    QString idempotencyKey;

    bool operator==(const WorkTimerCommand &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("action", s.action);
        v("workSessionId", s.workSessionId);
        v("projectLabel", s.projectLabel);
        v("idempotencyKey", s.idempotencyKey);
    }
};

struct WorkTimerCommandResponse {
    std::optional<WorkSession> session;

    bool operator==(const WorkTimerCommandResponse &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) { v("session", s.session); }
};

struct WorkTimerErrorResponse {
    std::optional<QString> errorCode;
    std::optional<QString> message;

    bool operator==(const WorkTimerErrorResponse &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("errorCode", s.errorCode);
        v("message", s.message);
    }
};

// What a work-timer command came to: the session after a successful command, or an error
// message. An error message means failure; without one the command succeeded (and the
// daemon may still have sent no session).
struct WorkTimerCommandOutcome {
    std::optional<WorkSession> session;
    std::optional<QString> error;

    bool ok() const { return !error.has_value(); }
};

// ---- Attention ---------------------------------------------------------------------------

struct AttentionHeartbeat {
    bool active = false;
    std::optional<QString> foregroundBundleId;
    std::optional<QString> foregroundName;
    double idleSeconds = 0;
    double ts = 0;

    bool operator==(const AttentionHeartbeat &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("active", s.active);
        v("foregroundBundleId", s.foregroundBundleId);
        v("foregroundName", s.foregroundName);
        v("idleSeconds", s.idleSeconds);
        v("ts", s.ts);
    }
};

struct AttentionDay {
    qint64 activeSeconds = 0;
    qint64 activeSamples = 0;
    std::optional<QString> firstActiveAt;
    std::optional<QString> lastActiveAt;
    QString period;
    qint64 spanSeconds = 0;

    bool operator==(const AttentionDay &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("activeSeconds", s.activeSeconds);
        v("activeSamples", s.activeSamples);
        v("firstActiveAt", s.firstActiveAt);
        v("lastActiveAt", s.lastActiveAt);
        v("period", s.period);
        v("spanSeconds", s.spanSeconds);
    }
};

struct WindowState {
    QString start;
    QString reset;
    double elapsedHours = 0;
    double remainingHours = 0;
    qint64 estimatedTokens = 0;
    qint64 estimatedWork = 0;

    bool operator==(const WindowState &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("start", s.start);
        v("reset", s.reset);
        v("elapsedHours", s.elapsedHours);
        v("remainingHours", s.remainingHours);
        v("estimatedTokens", s.estimatedTokens);
        v("estimatedWork", s.estimatedWork);
    }
};

// ---- Sharing consent and projects --------------------------------------------------------

struct ConsentMaster {
    bool shared = false;
    QString grain;

    bool operator==(const ConsentMaster &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("shared", s.shared);
        v("grain", s.grain);
    }
};

struct ProjectConsent {
    bool shared = false;

    bool operator==(const ProjectConsent &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) { v("shared", s.shared); }
};

struct ConsentState {
    ConsentMaster master;
    KeyedList<ProjectConsent> projects;

    bool operator==(const ConsentState &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("master", s.master);
        v("projects", s.projects);
    }
};

struct StatusProjectRow {
    StringMap key;
    qint64 tokens = 0;
    qint64 work = 0;
    qint64 cache = 0;
    double estCost = 0;
    std::optional<double> costBilling;
    std::optional<double> pricedSubtotal;
    std::optional<qint64> unpricedTokens;
    std::optional<QStringList> unpricedModels;
    std::optional<qint64> indeterminateTokens;
    std::optional<QStringList> indeterminateModels;
    QString lastSeen;

    bool operator==(const StatusProjectRow &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("key", s.key);
        v("tokens", s.tokens);
        v("work", s.work);
        v("cache", s.cache);
        v("estCost", s.estCost);
        v("costBilling", s.costBilling);
        v("pricedSubtotal", s.pricedSubtotal);
        v("unpricedTokens", s.unpricedTokens);
        v("unpricedModels", s.unpricedModels);
        v("indeterminateTokens", s.indeterminateTokens);
        v("indeterminateModels", s.indeterminateModels);
        v("lastSeen", s.lastSeen);
    }
};

// ---- The status record and the small replies ----------------------------------------------

struct DaemonStatus {
    bool enrolled = false;
    std::optional<QString> orgId;
    QString period;
    qint64 output = 0;
    qint64 input = 0;
    qint64 work = 0;
    qint64 cache = 0;
    qint64 tokens = 0;
    qint64 claudeCodeOutput = 0;
    qint64 codexOutput = 0;
    qint64 claudeCode = 0;
    qint64 codex = 0;
    double estCost = 0;
    std::optional<double> costBilling;
    std::optional<double> pricedSubtotal;
    std::optional<qint64> unpricedTokens;
    std::optional<QStringList> unpricedModels;
    std::optional<qint64> indeterminateTokens;
    std::optional<QStringList> indeterminateModels;
    std::optional<std::vector<StatusProjectRow>> projects;
    std::optional<WindowState> currentWindow;
    std::optional<LimitSettings> limits;
    std::optional<AlertState> alert;
    std::optional<AttentionDay> attention;
    // Required: a status without sharing consent is not one the app can act on.
    ConsentState consent;
    std::optional<double> lastPushAt;
    std::optional<std::vector<UsageGoal>> goals;
    std::optional<std::vector<ProviderLimitSnapshot>> providerLimits;
    std::optional<CodexResetCreditsStatus> codexResetCredits;
    std::optional<std::vector<WorkSession>> workTimers;
    std::optional<WorkSession> workTimer;

    bool operator==(const DaemonStatus &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("enrolled", s.enrolled);
        v("orgId", s.orgId);
        v("period", s.period);
        v("output", s.output);
        v("input", s.input);
        v("work", s.work);
        v("cache", s.cache);
        v("tokens", s.tokens);
        v("claudeCodeOutput", s.claudeCodeOutput);
        v("codexOutput", s.codexOutput);
        v("claudeCode", s.claudeCode);
        v("codex", s.codex);
        v("estCost", s.estCost);
        v("costBilling", s.costBilling);
        v("pricedSubtotal", s.pricedSubtotal);
        v("unpricedTokens", s.unpricedTokens);
        v("unpricedModels", s.unpricedModels);
        v("indeterminateTokens", s.indeterminateTokens);
        v("indeterminateModels", s.indeterminateModels);
        v("projects", s.projects);
        v("currentWindow", s.currentWindow);
        v("limits", s.limits);
        v("alert", s.alert);
        v("attention", s.attention);
        v("consent", s.consent);
        v("lastPushAt", s.lastPushAt);
        v("goals", s.goals);
        v("providerLimits", s.providerLimits);
        v("codexResetCredits", s.codexResetCredits);
        v("workTimers", s.workTimers);
        v("workTimer", s.workTimer);
    }
};

struct SyncResult {
    bool ok = false;
    qint64 collected = 0;
    qint64 pushed = 0;
    qint64 queued = 0;
    std::optional<QString> skipped;
    std::optional<double> lastPushAt;

    bool operator==(const SyncResult &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("ok", s.ok);
        v("collected", s.collected);
        v("pushed", s.pushed);
        v("queued", s.queued);
        v("skipped", s.skipped);
        v("lastPushAt", s.lastPushAt);
    }
};

struct LocalViewHandoff {
    QString handoff;
    double expiresAt = 0;

    bool operator==(const LocalViewHandoff &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("handoff", s.handoff);
        v("expiresAt", s.expiresAt);
    }
};

} // namespace quonbrix
