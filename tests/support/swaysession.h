#pragma once

#include <QFile>
#include <QString>
#include <optional>

namespace quonbrix::test {

struct SwaySession {
    QString wayland;  // the Wayland socket's path
    QString swaysock; // the IPC socket's path
};

// The headless sway the CTest fixture started (tests/support/swaysession.sh), or absent when
// the test runs without it.
inline std::optional<SwaySession> fixtureSway() {
#ifdef QUONBRIX_SWAYSESSION_DIR
    const auto read = [](const char *name) {
        QFile file(QStringLiteral(QUONBRIX_SWAYSESSION_DIR "/") + QLatin1String(name));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed()
                                              : QString();
    };
    SwaySession session{read("wayland"), read("swaysock")};
    if (session.wayland.isEmpty() || session.swaysock.isEmpty())
        return std::nullopt;
    return session;
#else
    return std::nullopt;
#endif
}

} // namespace quonbrix::test
