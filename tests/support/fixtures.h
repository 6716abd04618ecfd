#pragma once

#include "daemon_link/meter_client.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace quonbrix::test {

// Bytes of tests/support/fixtures/<name>; fails the running test when the file is missing.
QByteArray fixture(const QString &name);
QJsonObject fixtureObject(const QString &name);

// The smallest body that decodes as a status: every required key, nothing optional.
QJsonObject minimalStatus();
QByteArray minimalStatusBody();

// Time-outs for tests against the fake daemon: generous enough for a loaded machine, short
// retry pauses. Tests that are about time-outs set their own.
inline MeterClientTimeouts quickTimeouts() {
    MeterClientTimeouts t;
    t.request = std::chrono::milliseconds(3000);
    t.sync = std::chrono::milliseconds(3000);
    t.handoffRetryDelay = std::chrono::milliseconds(50);
    return t;
}

} // namespace quonbrix::test
