#include "tokens.h"

#include <QDir>
#include <QRandomGenerator>
#include <QSaveFile>

namespace quonbrix::sim {

namespace {

constexpr auto ownerOnlyDir = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
constexpr auto ownerOnlyFile = QFile::ReadOwner | QFile::WriteOwner;

bool fail(QString *error, const QString &why) {
    if (error)
        *error = why;
    return false;
}

} // namespace

QString randomToken() {
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(bytes.data()),
                                          bytes.size() / qsizetype(sizeof(quint32)));
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

bool writeAdminToken(const QString &privateDir, QString *error) {
    if (!QDir(privateDir).exists() && !QDir().mkdir(privateDir, ownerOnlyDir))
        return fail(error, QStringLiteral("cannot create %1").arg(privateDir));
    if (!QFile::setPermissions(privateDir, ownerOnlyDir))
        return fail(error, QStringLiteral("cannot make %1 private").arg(privateDir));

    QSaveFile file(privateDir + QStringLiteral("/admin-token"));
    if (!file.open(QIODevice::WriteOnly))
        return fail(error,
                    QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
    // QSaveFile copies the mode of a file it replaces; a token file must not inherit 0644.
    if (!file.setPermissions(ownerOnlyFile)) {
        file.cancelWriting();
        return fail(error, QStringLiteral("cannot restrict %1").arg(file.fileName()));
    }
    file.write(randomToken().toLatin1() + '\n');
    if (!file.commit())
        return fail(error,
                    QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
    return true;
}

} // namespace quonbrix::sim
