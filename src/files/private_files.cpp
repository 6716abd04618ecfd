#include "files/private_files.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
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

std::optional<QString> replace(const QString &path, const QByteArray &bytes, mode_t mode) {
    const QFileInfo info(path);
    QByteArray temp = QFile::encodeName(info.absolutePath()) + "/." +
                      QFile::encodeName(info.fileName()) + ".XXXXXX";
    const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0)
        return describe("cannot write", path, errno);

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
    if (!failedStep && ::rename(temp.constData(), QFile::encodeName(path).constData()) != 0) {
        failedStep = "cannot replace";
        err = errno;
    }
    if (failedStep) {
        ::unlink(temp.constData());
        return describe(failedStep, path, err);
    }

    // The rename itself lasts through a crash only once the directory is on disk too.
    const int dirFd = ::open(QFile::encodeName(info.absolutePath()).constData(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return std::nullopt;
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
    struct stat st = {};
    const bool exists = ::stat(QFile::encodeName(path).constData(), &st) == 0;
    return replace(path, bytes, exists ? (st.st_mode & 07777) : newFileMode);
}

std::optional<QString> writeOwnerOnly(const QString &path, const QByteArray &bytes) {
    return replace(path, bytes, 0600);
}

} // namespace quonbrix::files
