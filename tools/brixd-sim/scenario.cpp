#include "scenario.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <cmath>

namespace quonbrix::sim {

namespace {

const QString resourceDir = QStringLiteral(":/scenarios");

bool fail(QString *error, const QString &why) {
    if (error)
        *error = why;
    return false;
}

std::optional<QByteArray> readFile(const QString &path, QString *error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(error, QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    return file.readAll();
}

} // namespace

QList<ScenarioSummary> builtInScenarios() {
    QList<ScenarioSummary> out;
    const QStringList files =
        QDir(resourceDir).entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const QString name = QFileInfo(file).completeBaseName();
        QString error;
        const std::optional<QByteArray> bytes = readFile(resourceDir + u'/' + file, &error);
        const std::optional<Scenario> scenario =
            bytes ? parseScenario(*bytes, name, &error) : std::nullopt;
        out.append({name, scenario ? scenario->description : QStringLiteral("(unreadable)")});
    }
    return out;
}

std::optional<Scenario> loadScenario(const QString &nameOrPath, QString *error) {
    const bool isPath = nameOrPath.contains(u'/') || nameOrPath.endsWith(u".json");
    QString path = nameOrPath;
    if (!isPath) {
        path = resourceDir + u'/' + nameOrPath + QStringLiteral(".json");
        if (!QFile::exists(path)) {
            fail(error,
                 QStringLiteral("unknown scenario \"%1\" (see: brixd-sim list)").arg(nameOrPath));
            return std::nullopt;
        }
    }
    const std::optional<QByteArray> bytes = readFile(path, error);
    if (!bytes)
        return std::nullopt;
    return parseScenario(*bytes, QFileInfo(path).completeBaseName(), error);
}

std::optional<Scenario> parseScenario(const QByteArray &bytes, const QString &name,
                                      QString *error) {
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError || !doc.isObject()) {
        fail(error, QStringLiteral("scenario %1 is not a JSON object: %2")
                        .arg(name, parseError.errorString()));
        return std::nullopt;
    }
    const QJsonObject root = doc.object();
    Scenario s;
    s.name = name;
    s.description = root.value(u"description").toString();
    s.status = root.value(u"status").toObject();
    const QJsonValue growth = root.value(u"growthPercentPerHour");
    const QJsonValue rows = root.value(u"pendingSyncRows");
    if (s.description.isEmpty() || !root.value(u"status").isObject()) {
        fail(error, QStringLiteral("scenario %1 needs a \"description\" text and a \"status\" "
                                   "object")
                        .arg(name));
        return std::nullopt;
    }
    if (!growth.isUndefined()) {
        if (!growth.isDouble() || growth.toDouble() < 0 || growth.toDouble() > 1000) {
            fail(error, QStringLiteral("scenario %1: growthPercentPerHour must be a number "
                                       "from 0 to 1000")
                            .arg(name));
            return std::nullopt;
        }
        s.growthPercentPerHour = growth.toDouble();
    }
    if (!rows.isUndefined()) {
        if (!rows.isDouble() || rows.toDouble() < 0 || rows.toDouble() > 1e9 ||
            rows.toDouble() != std::floor(rows.toDouble())) {
            fail(error, QStringLiteral("scenario %1: pendingSyncRows must be a whole number "
                                       "from 0 up")
                            .arg(name));
            return std::nullopt;
        }
        s.pendingSyncRows = qint64(rows.toDouble());
    }
    const QJsonValue limitGrowth = root.value(u"limitGrowthPercentPerHour");
    const QJsonObject rates = limitGrowth.toObject();
    for (auto it = rates.constBegin(); it != rates.constEnd(); ++it) {
        const double rate = it.value().toDouble(-1);
        if (rate < 0 || rate > 1000 || !it.key().contains(u'/')) {
            fail(error, QStringLiteral("scenario %1: limitGrowthPercentPerHour must map "
                                       "\"source/window\" to a number from 0 to 1000")
                            .arg(name));
            return std::nullopt;
        }
        s.limitGrowthPercentPerHour.insert(it.key(), rate);
    }
    if (!limitGrowth.isUndefined() && !limitGrowth.isObject()) {
        fail(error,
             QStringLiteral("scenario %1: limitGrowthPercentPerHour must be an object").arg(name));
        return std::nullopt;
    }
    return s;
}

} // namespace quonbrix::sim
