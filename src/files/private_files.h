#pragma once

// Every file the app writes goes through here. A reader (brixd starting at the same moment)
// sees the old content or the new, never half of it, and a crash in between leaves the old
// file as it was.

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <optional>
#include <sys/types.h>

namespace quonbrix::files {

// Creates `dir` 0700 when it is missing, never its parents: a missing home directory is
// reported, not made up. An existing directory, or a symlink to one, is accepted; one we own
// loses any group and other permissions. Returns what went wrong, if anything.
std::optional<QString> preparePrivateDir(const QString &dir);

// Replaces `path` with `bytes`: a temporary file in the same directory, fsync, rename over the
// target. An existing target keeps its mode; a new file gets `newFileMode`. Returns what went
// wrong, if anything; the target is then untouched and no temporary file is left behind.
std::optional<QString> writeFileAtomically(const QString &path, const QByteArray &bytes,
                                           mode_t newFileMode);

// The same for files only their owner may read: the result is 0600 whatever an earlier copy
// allowed.
std::optional<QString> writeOwnerOnly(const QString &path, const QByteArray &bytes);

// Creates `dir` and whichever of its parents are missing, each new one 0700. Directories that
// exist are left as they are: they may be shared ones such as ~/.config.
std::optional<QString> makePrivatePath(const QString &dir);

// How a file was when it was read, to tell whether anyone has replaced or rewritten it since.
// A missing file has a stamp too: it must still be missing.
struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    qint64 modifiedNs = 0;
    qint64 changedNs = 0;
    friend bool operator==(const FileStamp &, const FileStamp &) = default;
};

// Reads all of `path` with its stamp taken on the open file. A missing file is no failure: it
// reads as an empty, non-existent one. Returns what went wrong, if anything.
std::optional<QString> readFileStamped(const QString &path, QByteArray &bytes, FileStamp &stamp);

// Whether the file at `path` holds exactly `bytes`; read in pieces, so a big file is not held
// twice.
bool holdsExactly(const QString &path, const QByteArray &bytes);

enum class GuardedWrite { Written, TargetChanged, Failed };
// writeFileAtomically for files other programs rewrite too: the target is only replaced while it
// is still as it was read (`readAs`, and `readBytes` for a rewrite within the same clock tick),
// checked just before the rename, so their change is not overwritten with content merged from
// an older copy. TargetChanged writes nothing; Failed sets `failure`. An existing target keeps
// its owner's permissions but loses any for group and others: what goes into these files (the
// daemon's token) is for their owner only.
GuardedWrite writeFileIfUnchanged(const QString &path, const QByteArray &bytes, mode_t newFileMode,
                                  const FileStamp &readAs, const QByteArray &readBytes,
                                  QString &failure);

} // namespace quonbrix::files
