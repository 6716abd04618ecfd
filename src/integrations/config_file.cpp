#include "integrations/config_file.h"

#include "files/private_files.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace quonbrix::integrations {

namespace {

constexpr int kAttempts = 3;

// The file as it is on disk now equals `bytes`: read back in pieces, so a big file is not held
// twice.
bool readsBackAs(const QString &path, const QByteArray &bytes) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st = {};
    bool same = ::fstat(fd, &st) == 0 && st.st_size == off_t(bytes.size());
    constexpr size_t kChunk = 1 << 20;
    const auto chunk = std::make_unique<char[]>(kChunk);
    qsizetype at = 0;
    while (same) {
        const ssize_t n = ::read(fd, chunk.get(), kChunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            same = n == 0 && at == bytes.size();
            break;
        }
        same = at + n <= bytes.size() && std::memcmp(chunk.get(), bytes.constData() + at, n) == 0;
        at += n;
    }
    ::close(fd);
    return same;
}

} // namespace

InstallResult failed(QString message) {
    return {InstallResult::Kind::Failed, std::move(message)};
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

    for (int attempt = 0; attempt < kAttempts; ++attempt) {
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
        current = QByteArray(); // not needed any more: a big file is not held three times

        // A new file holds the admin token: only its owner may read it.
        QString failure;
        switch (files::writeFileIfUnchanged(target, edit.bytes, 0600, readAs, failure)) {
        case files::GuardedWrite::Written:
            if (!readsBackAs(target, edit.bytes))
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
