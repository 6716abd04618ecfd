#include "files/private_files.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace quonbrix::files {

namespace {

QString describe(const char *what, const QString &path, int err) {
    return QStringLiteral("%1 %2: %3")
        .arg(QLatin1String(what), path, QString::fromLocal8Bit(std::strerror(err)));
}

bool writeAll(int fd, const QByteArray &bytes) {
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, size_t(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        left -= n;
    }
    return true;
}

FileStamp stampOf(const struct stat &st) {
    FileStamp stamp;
    stamp.exists = true;
    stamp.device = st.st_dev;
    stamp.inode = st.st_ino;
    stamp.size = st.st_size;
    stamp.modifiedNs = qint64(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
    stamp.changedNs = qint64(st.st_ctim.tv_sec) * 1'000'000'000 + st.st_ctim.tv_nsec;
    return stamp;
}

// The target as it is now; absent when it cannot be told.
std::optional<FileStamp> currentStamp(const QByteArray &native) {
    struct stat st = {};
    if (::stat(native.constData(), &st) == 0)
        return stampOf(st);
    if (errno == ENOENT)
        return FileStamp{};
    return std::nullopt;
}

// What the target must still be just before the rename.
struct AsRead {
    const FileStamp &stamp;
    const QByteArray &bytes;
};

// Temporary files of ours that a writer killed before its rename left behind: they may hold a
// token. One an hour old is no other writer's work in progress.
void removeLeftovers(const QFileInfo &target) {
    const QString prefix = u'.' + target.fileName() + u'.';
    const QDir dir = target.absoluteDir();
    const QDateTime hourAgo = QDateTime::currentDateTimeUtc().addSecs(-3600);
    for (const QFileInfo &left :
         dir.entryInfoList({prefix + QStringLiteral("??????")}, QDir::Files | QDir::Hidden)) {
        if (!left.isSymLink() && left.ownerId() == ::getuid() && left.lastModified() < hourAgo)
            QFile::remove(left.absoluteFilePath());
    }
}

GuardedWrite replace(const QString &path, const QByteArray &bytes, mode_t mode,
                     const AsRead *readAs, QString &failure) {
    const QFileInfo info(path);
    const QByteArray native = QFile::encodeName(path);
    removeLeftovers(info);
    QByteArray temp = QFile::encodeName(info.absolutePath()) + "/." +
                      QFile::encodeName(info.fileName()) + ".XXXXXX";
    const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0) {
        failure = describe("cannot write", path, errno);
        return GuardedWrite::Failed;
    }

    // The mode is set before the first byte goes in, so the content is never readable by more
    // than it should be, not even for a moment.
    const char *failedStep = nullptr;
    int err = 0;
    if (::fchmod(fd, mode) != 0)
        failedStep = "cannot restrict";
    else if (!writeAll(fd, bytes) || ::fsync(fd) != 0)
        failedStep = "cannot write";
    if (failedStep)
        err = errno;
    if (::close(fd) != 0 && !failedStep) {
        failedStep = "cannot write";
        err = errno;
    }
    // Checked as late as can be: what is left is the moment between this and the rename.
    bool changed = false;
    if (!failedStep && readAs) {
        const std::optional<FileStamp> now = currentStamp(native);
        if (!now) {
            failedStep = "cannot check";
            err = errno;
        } else {
            changed = *now != readAs->stamp || (now->exists && !holdsExactly(path, readAs->bytes));
        }
    }
    if (!failedStep && !changed && ::rename(temp.constData(), native.constData()) != 0) {
        failedStep = "cannot replace";
        err = errno;
    }
    if (failedStep || changed) {
        ::unlink(temp.constData());
        if (changed)
            return GuardedWrite::TargetChanged;
        failure = describe(failedStep, path, err);
        return GuardedWrite::Failed;
    }

    // The rename itself lasts through a crash only once the directory is on disk too.
    const int dirFd = ::open(QFile::encodeName(info.absolutePath()).constData(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return GuardedWrite::Written;
}

mode_t modeFor(const QString &path, mode_t newFileMode) {
    struct stat st = {};
    const bool exists = ::stat(QFile::encodeName(path).constData(), &st) == 0;
    return exists ? (st.st_mode & 07777) : newFileMode;
}

std::optional<QString> unguarded(const QString &path, const QByteArray &bytes, mode_t mode) {
    QString failure;
    if (replace(path, bytes, mode, nullptr, failure) == GuardedWrite::Written)
        return std::nullopt;
    return failure;
}

} // namespace

std::optional<QString> preparePrivateDir(const QString &dir) {
    const QByteArray native = QFile::encodeName(dir);
    struct stat st = {};
    if (::stat(native.constData(), &st) != 0) {
        if (::mkdir(native.constData(), 0700) != 0)
            return describe("cannot create directory", dir, errno);
        ::chmod(native.constData(), 0700); // the umask may have taken bits away
        return std::nullopt;
    }
    if (!S_ISDIR(st.st_mode))
        return QStringLiteral("%1 is not a directory").arg(dir);
    if (st.st_uid == ::getuid() && (st.st_mode & 077) != 0)
        ::chmod(native.constData(), 0700);
    return std::nullopt;
}

std::optional<QString> writeFileAtomically(const QString &path, const QByteArray &bytes,
                                           mode_t newFileMode) {
    return unguarded(path, bytes, modeFor(path, newFileMode));
}

std::optional<QString> writeOwnerOnly(const QString &path, const QByteArray &bytes) {
    return unguarded(path, bytes, 0600);
}

std::optional<QString> makePrivatePath(const QString &dir) {
    const QByteArray native = QFile::encodeName(QDir::cleanPath(QDir(dir).absolutePath()));
    // Each prefix ending before a '/', then the whole path.
    for (qsizetype end = 1; end <= native.size(); ++end) {
        if (end < native.size() && native.at(end) != '/')
            continue;
        const QByteArray prefix = native.left(end);
        struct stat st = {};
        if (::stat(prefix.constData(), &st) == 0) {
            if (!S_ISDIR(st.st_mode))
                return QStringLiteral("%1 is not a directory").arg(QFile::decodeName(prefix));
            continue;
        }
        if (::mkdir(prefix.constData(), 0700) != 0 && errno != EEXIST)
            return describe("cannot create directory", QFile::decodeName(prefix), errno);
        ::chmod(prefix.constData(), 0700); // the umask may have taken bits away
    }
    return std::nullopt;
}

std::optional<QString> readFileStamped(const QString &path, QByteArray &bytes, FileStamp &stamp) {
    bytes.clear();
    stamp = {};
    // Non-blocking, so a FIFO put in the file's place is reported instead of waited on.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ENOENT)
            return std::nullopt;
        return describe("cannot read", path, errno);
    }
    struct stat st = {};
    if (::fstat(fd, &st) != 0) {
        const int err = errno;
        ::close(fd);
        return describe("cannot read", path, err);
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return QStringLiteral("%1 is not a regular file").arg(path);
    }
    stamp = stampOf(st);
    // One allocation of the size the file has; a file that grows while it is read is read to
    // its end all the same, and the stamp no longer matching tells the rest.
    bytes.resize(qsizetype(st.st_size) + 1);
    qsizetype got = 0;
    for (;;) {
        if (got == bytes.size())
            bytes.resize(bytes.size() * 2);
        const ssize_t n = ::read(fd, bytes.data() + got, size_t(bytes.size() - got));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            const int err = errno;
            ::close(fd);
            bytes.clear();
            return describe("cannot read", path, err);
        }
        if (n == 0)
            break;
        got += n;
    }
    ::close(fd);
    bytes.truncate(got);
    return std::nullopt;
}

bool holdsExactly(const QString &path, const QByteArray &bytes) {
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

GuardedWrite writeFileIfUnchanged(const QString &path, const QByteArray &bytes, mode_t newFileMode,
                                  const FileStamp &readAs, const QByteArray &readBytes,
                                  QString &failure) {
    const AsRead asRead{readAs, readBytes};
    return replace(path, bytes, modeFor(path, newFileMode) & ~mode_t(077), &asRead, failure);
}

} // namespace quonbrix::files
