#pragma once

// A signed-in machine, as the daemon finds it: ~/.quon-brix/enrollment.json, which the app
// writes last when a sign-in succeeds, and the two tokens the app put in the desktop keyring
// before it. The daemon reads the file once, at start (the app restarts it after a sign-in),
// and signing out deletes the file and both tokens.

#include <QString>
#include <optional>

namespace quonbrix::sim {

struct Enrollment {
    QString orgId;
    QString userId;
};

// <privateDir>/enrollment.json. Absent when there is no such file, and also, with `problem`
// set, when the file is not an object with the string keys "orgId" and "userId".
std::optional<Enrollment> readEnrollment(const QString &privateDir, QString *problem);

// Deletes the enrollment file and the keyring items of both tokens (with secret-tool, up to
// five seconds each). Returns what happened in a few words for the log. Without secret-tool or
// a Secret Service on the session bus the tokens stay where they are, which the words say.
QString forgetEnrollment(const QString &privateDir);

} // namespace quonbrix::sim
