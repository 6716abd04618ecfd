#include "helpers/openssl_pipeline.h"

#include <QFile>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

namespace quonbrix::test {

bool opensslPipelineAvailable() {
    return !QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("awk")).isEmpty();
}

std::optional<QByteArray> normalizeWithOpenSslPipeline(QByteArrayView raw,
                                                       const QString &scratchPath) {
    {
        QSaveFile scratch(scratchPath);
        if (!scratch.open(QIODevice::WriteOnly) ||
            scratch.write(raw.data(), raw.size()) != raw.size() || !scratch.commit())
            return std::nullopt;
    }
    const QString command =
        QStringLiteral("awk '/-----BEGIN CERTIFICATE-----/{c=\"\"} {c=c $0 ORS} "
                       "/-----END CERTIFICATE-----/{cmd=\"openssl x509 -inform PEM -outform PEM "
                       "2>/dev/null\"; ") +
        QStringLiteral("printf \"%s\",c | cmd; close(cmd)}' '") + scratchPath + QStringLiteral("'");

    QProcess sh;
    sh.setStandardErrorFile(QProcess::nullDevice());
    sh.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    QByteArray out;
    if (sh.waitForStarted(-1)) {
        while (sh.waitForReadyRead(-1))
            out += sh.readAllStandardOutput();
        sh.waitForFinished(-1);
        out += sh.readAllStandardOutput();
    }
    QFile::remove(scratchPath);
    if (!out.contains("BEGIN CERTIFICATE"))
        return std::nullopt;
    return out;
}

} // namespace quonbrix::test
