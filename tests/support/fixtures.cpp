#include "support/fixtures.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

namespace quonbrix::test {

QByteArray fixture(const QString &name) {
    QFile file(QStringLiteral(QUONBRIX_FIXTURES_DIR "/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        QTest::qFail(qPrintable(QStringLiteral("missing fixture ") + name), __FILE__, __LINE__);
        return {};
    }
    return file.readAll();
}

QJsonObject fixtureObject(const QString &name) {
    return QJsonDocument::fromJson(fixture(name)).object();
}

QJsonObject minimalStatus() {
    return fixtureObject(QStringLiteral("status-minimal.json"));
}

QByteArray minimalStatusBody() {
    return fixture(QStringLiteral("status-minimal.json"));
}

} // namespace quonbrix::test
