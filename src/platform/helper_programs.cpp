#include "platform/helper_programs.h"

#include <QDir>
#include <QFileInfo>

namespace quonbrix {

QString helperProgram(const QString &applicationDir, const QString &name) {
    const QDir dir(applicationDir);
    const QString installed =
        QDir::cleanPath(dir.filePath(QStringLiteral("../libexec/quonbrix/") + name));
    if (QFileInfo(installed).isExecutable())
        return installed;
    const QString beside = dir.filePath(name);
    return QFileInfo(beside).isExecutable() ? beside : installed;
}

} // namespace quonbrix
