#pragma once

// Secrets the sim hands out: the admin token file and one-time handoff tokens. Neither ever
// reaches a log or a command line.

#include <QString>

namespace quonbrix::sim {

// 32 bytes from the system's secure random source, base64url without padding.
QString randomToken();

// Writes a fresh token to <privateDir>/admin-token. The directory is created 0700 (and
// tightened to 0700 if it is looser); the file is written atomically and is 0600 before it
// becomes visible under its name. `error` never contains the token.
bool writeAdminToken(const QString &privateDir, QString *error);

} // namespace quonbrix::sim
