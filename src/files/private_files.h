#pragma once

// Every file the app writes goes through here. A reader (brixd starting at the same moment)
// sees the old content or the new, never half of it, and a crash in between leaves the old
// file as it was.

#include <QByteArray>
#include <QString>
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

} // namespace quonbrix::files
