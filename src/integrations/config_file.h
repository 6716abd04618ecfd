#pragma once

// The one way an install edits a client's configuration file: read it right before the edit,
// merge, and replace it only while nobody else has changed it meanwhile.

#include "integrations/config_edit.h"

#include <QByteArray>
#include <QString>

namespace quonbrix::integrations {

// What an edit makes of the file's current content. Added and Updated write `bytes`; Unchanged
// and Failed are the answer as they are, and nothing is written.
struct Edit {
    InstallResult result;
    QByteArray bytes;
};
// `current` is empty when the file does not exist (`exists` false).
using Editor = std::function<Edit(const QByteArray &current, bool exists)>;

InstallResult editConfigFile(const QString &path, const Editor &editor, const AfterRead &afterRead);

// Where an edit of `path` really goes: a symlink (dotfile managers keep these) is followed to
// the file it names, even one that does not exist yet, so the link stays a link.
QString followLinks(const QString &path);

InstallResult failed(QString message);

// A configuration file read for inspect().
struct ConfigRead {
    enum class Status { Missing, Unreadable, Read };
    Status status = Status::Missing;
    QByteArray bytes;
};
ConfigRead readConfig(const QString &path);

} // namespace quonbrix::integrations
