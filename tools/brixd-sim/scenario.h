#pragma once

// A scenario is one JSON file: a one-line description, the status record the sim serves (with
// time placeholders, see relative_time.h) and two knobs for how it behaves over time. The
// built-in ones are compiled in from scenarios/; any other file can be named by its path.

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

namespace quonbrix::sim {

struct Scenario {
    QString name;
    QString description;
    // The status as written in the file, placeholders and all.
    QJsonObject status;
    // How fast the token counters and costs grow while the sim runs, so a watcher sees the
    // figures move.
    double growthPercentPerHour = 0;
    // Usage rows the first sync finds; later syncs find none.
    qint64 pendingSyncRows = 5;
    // Percentage points per hour that a provider window's usedPercent climbs, by
    // "source/window" ("claude-code/session"), so the app's run-out forecast has a pace to
    // follow. Counted from the window's last rollover, never past 100.
    QHash<QString, double> limitGrowthPercentPerHour;
};

struct ScenarioSummary {
    QString name;
    QString description;
};

inline const QString defaultScenarioName = QStringLiteral("typical-day");

// The built-in scenarios, by name.
QList<ScenarioSummary> builtInScenarios();

// Text with a slash or ending in ".json" is a path; anything else names a built-in scenario.
std::optional<Scenario> loadScenario(const QString &nameOrPath, QString *error);

std::optional<Scenario> parseScenario(const QByteArray &bytes, const QString &name, QString *error);

} // namespace quonbrix::sim
