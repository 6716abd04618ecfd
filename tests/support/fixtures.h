#pragma once

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

} // namespace quonbrix::test
