#include "integrations/config_file.h"

#include "files/private_files.h"

#include <QFile>
#include <QFileInfo>
#include <unistd.h>

namespace quonbrix::integrations {

InstallResult failed(QString message) {
    return {InstallResult::Kind::Failed, std::move(message)};
}

ConfigRead readConfig(const QString &path) {
    ConfigRead read;
    files::FileStamp stamp;
    if (files::readFileStamped(path, read.bytes, stamp))
        read.status = ConfigRead::Status::Unreadable;
    else if (stamp.exists)
        read.status = ConfigRead::Status::Read;
    return read;
}

QString followLinks(const QString &path) {
    QByteArray current = QFile::encodeName(path);
    // As many hops as the kernel allows; a loop then fails to open, with its own message.
    for (int hop = 0; hop < 40; ++hop) {
        QByteArray target(4096, Qt::Uninitialized);
        const ssize_t n = ::readlink(current.constData(), target.data(), size_t(target.size()));
        if (n < 0 || n == target.size())
            break;
        target.truncate(n);
        if (!target.startsWith('/')) {
            const qsizetype slash = current.lastIndexOf('/');
            target.prepend(slash < 0 ? QByteArray() : current.left(slash + 1));
        }
        current = target;
    }
    return QFile::decodeName(current);
}

InstallResult editConfigFile(const QString &path, const Editor &editor,
                             const AfterRead &afterRead) {
    const QString target = followLinks(path);
    if (const auto failure = files::makePrivatePath(QFileInfo(target).absolutePath()))
        return failed(*failure);

    for (int attempt = 0; attempt < 3; ++attempt) {
        QByteArray current;
        files::FileStamp readAs;
        if (const auto failure = files::readFileStamped(target, current, readAs))
            return failed(*failure);
        if (afterRead)
            afterRead();
        Edit edit = editor(current, readAs.exists);
        if (edit.result.kind == InstallResult::Kind::Unchanged ||
            edit.result.kind == InstallResult::Kind::Failed)
            return edit.result;

        // A new file holds the admin token: only its owner may read it.
        QString failure;
        switch (files::writeFileIfUnchanged(target, edit.bytes, 0600, readAs, current, failure)) {
        case files::GuardedWrite::Written:
            if (!files::holdsExactly(target, edit.bytes))
                return failed(QStringLiteral("%1 does not read back as written — check it and "
                                             "try again.")
                                  .arg(path));
            return edit.result;
        case files::GuardedWrite::TargetChanged:
            continue; // someone else wrote it: merge into their version instead
        case files::GuardedWrite::Failed:
            return failed(failure);
        }
    }
    return failed(
        QStringLiteral("%1 kept changing while it was being updated — try again.").arg(path));
}

} // namespace quonbrix::integrations
