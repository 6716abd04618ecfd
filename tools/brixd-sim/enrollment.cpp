#include "enrollment.h"

#include "account/token_store.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace quonbrix::sim {

namespace {

constexpr int secretToolTimeoutMs = 5000;

QString enrollmentPath(const QString &privateDir) {
    return privateDir + QStringLiteral("/enrollment.json");
}

struct KeyringResult {
    bool removed = false;
    std::optional<QString> failure; // why the item could not be looked at
};

// Removes one token with `secret-tool clear`.
KeyringResult clearKeyringItem(const QString &account) {
    QProcess tool;
    tool.setStandardOutputFile(QProcess::nullDevice());
    tool.start(QStringLiteral("secret-tool"),
               {QStringLiteral("clear"), QStringLiteral("service"), tokens::service,
                QStringLiteral("account"), account});
    if (!tool.waitForStarted())
        return {false, QStringLiteral("secret-tool is not installed (libsecret-tools)")};
    if (!tool.waitForFinished(secretToolTimeoutMs)) {
        tool.kill();
        tool.waitForFinished();
        return {false, QStringLiteral("secret-tool did not finish within %1 s")
                           .arg(secretToolTimeoutMs / 1000)};
    }
    if (tool.exitStatus() != QProcess::NormalExit)
        return {false, QStringLiteral("secret-tool crashed")};
    // It exits 1 without a word when there was nothing to remove, and with one line when it
    // could not look (no Secret Service on the bus, no bus at all). That line names no secret.
    QString why = QString::fromUtf8(tool.readAllStandardError()).section(u'\n', 0, 0).trimmed();
    why.remove(QStringLiteral("secret-tool: "));
    if (!why.isEmpty())
        return {false, why};
    return {tool.exitCode() == 0, std::nullopt};
}

} // namespace

std::optional<Enrollment> readEnrollment(const QString &privateDir, QString *problem) {
    QFile file(enrollmentPath(privateDir));
    if (!file.exists())
        return std::nullopt;
    const auto fail = [&](const QString &why) -> std::optional<Enrollment> {
        if (problem)
            *problem = file.fileName() + QStringLiteral(": ") + why;
        return std::nullopt;
    };
    if (!file.open(QIODevice::ReadOnly))
        return fail(file.errorString());
    const QJsonObject o = QJsonDocument::fromJson(file.read(64 * 1024)).object();
    const QJsonValue orgId = o.value(u"orgId"), userId = o.value(u"userId");
    if (!orgId.isString() || !userId.isString())
        return fail(QStringLiteral("not an object with the texts orgId and userId"));
    return Enrollment{orgId.toString(), userId.toString()};
}

QString forgetEnrollment(const QString &privateDir) {
    const QString path = enrollmentPath(privateDir);
    QString done = !QFile::exists(path)  ? QStringLiteral("no enrollment file")
                   : QFile::remove(path) ? QStringLiteral("enrollment file deleted")
                                         : QStringLiteral("cannot delete the enrollment file");
    // A failure for the first token would be the same for the second, so stop at one.
    int removed = 0;
    for (const QString &account : {tokens::refreshAccount, tokens::accessAccount}) {
        const KeyringResult result = clearKeyringItem(account);
        if (result.failure)
            return done + QStringLiteral(", keyring not cleared: ") + *result.failure;
        removed += result.removed ? 1 : 0;
    }
    return done + QStringLiteral(", %1 of 2 tokens removed from the keyring").arg(removed);
}

} // namespace quonbrix::sim
