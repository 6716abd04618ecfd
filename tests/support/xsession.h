#pragma once

#include <QFile>
#include <QString>
#include <optional>

namespace quonbrix::test {

// The display of the X desktop the CTest fixture started (tests/support/xsession.sh), or
// absent when the test runs without it.
inline std::optional<QString> fixtureDisplay() {
#ifdef QUONBRIX_XSESSION_DIR
    QFile file(QStringLiteral(QUONBRIX_XSESSION_DIR "/display"));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QString display = QString::fromUtf8(file.readAll()).trimmed();
    if (display.isEmpty())
        return std::nullopt;
    return display;
#else
    return std::nullopt;
#endif
}

} // namespace quonbrix::test
