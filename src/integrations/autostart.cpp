#include "integrations/autostart.h"

#include "files/private_files.h"
#include "platform/environment.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace quonbrix {

namespace {

// Exec= quoting from the freedesktop desktop-entry format: an argument with reserved
// characters goes in double quotes, with ", `, $ and \ escaped inside.
QString quotedExec(const QString &program) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    if (std::none_of(program.begin(), program.end(), [](QChar c) { return reserved.contains(c); }))
        return program;
    QString quoted = program;
    for (const char *c : {"\\", "\"", "`", "$"})
        quoted.replace(QLatin1String(c), QLatin1String("\\") + QLatin1String(c));
    // A desktop file's string values escape backslashes once more.
    quoted.replace(QLatin1String("\\"), QLatin1String("\\\\"));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

} // namespace

Autostart::Autostart(const Environment &env, QString program)
    : m_program(std::move(program)) {
    QString config = env.value(QStringLiteral("XDG_CONFIG_HOME"), QString());
    // Relative values are to be ignored, as for every XDG base directory.
    if (!config.startsWith(QLatin1Char('/')))
        config = env.homeDir() + QStringLiteral("/.config");
    m_path = config + QStringLiteral("/autostart/") + fileName;
}

QByteArray Autostart::entry(const QString &program) {
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=QuonBrix\n"
                          "Comment=Keeps the local AI-usage meter running and shows its figures\n"
                          "Exec=%1\n"
                          "Icon=app.quonbrix.QuonBrix\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(quotedExec(program))
        .toUtf8();
}

bool Autostart::isOn() const {
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine(4096).trimmed();
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return false;
    }
    return true;
}

std::optional<QString> Autostart::setOn(bool on) const {
    if (on) {
        if (const auto failure = files::makePrivatePath(QFileInfo(m_path).absolutePath()))
            return failure;
        return files::writeFileAtomically(m_path, entry(m_program), 0644);
    }
    if (::unlink(QFile::encodeName(m_path).constData()) != 0 && errno != ENOENT)
        return QStringLiteral("%1: %2").arg(m_path, QString::fromLocal8Bit(std::strerror(errno)));
    return std::nullopt;
}

} // namespace quonbrix
