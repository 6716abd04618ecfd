#pragma once

#include "daemon_link/meter_client.h"
#include "daemon_link/records.h"
#include "features/limit_forecast.h"
#include "platform/environment.h"

#include <QJsonObject>
#include <QStringList>
#include <optional>

namespace quonbrix::cli {

// Runs a command-line invocation (`args` without the program name) and returns the exit code.
// Needs a QCoreApplication; runs an event loop only as long as the command needs one.
int run(const QStringList &args, const Environment &env);

// The pieces the commands print, separate so they can be checked without a daemon. Run-out
// forecasts are worked out in `forecast`.
QString summary(const DaemonStatus &status, const ForecastContext &forecast);
// Without a status: the "down" object, saying why (`failure`) in its tooltip.
QJsonObject waybarObject(const std::optional<DaemonStatus> &status, const QString &base,
                         const ForecastContext &forecast,
                         ReplyFailure failure = ReplyFailure::Unreachable);
QString watchLine(const std::optional<DaemonStatus> &status, const QString &base,
                  const ForecastContext &forecast);

} // namespace quonbrix::cli
