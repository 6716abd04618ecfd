#pragma once

#include <QString>
#include <optional>

namespace quonbrix {

class Environment;

// Starting QuonBrix at login: an entry in the desktop's autostart folder
// ($XDG_CONFIG_HOME/autostart, ~/.config/autostart by default), which GNOME, KDE, XFCE and
// most session starters read. Off until the person turns it on.
class Autostart {
public:
    static inline const QString fileName = QStringLiteral("app.quonbrix.QuonBrix.desktop");

    // `program` is what the entry runs: this executable's absolute path.
    Autostart(const Environment &env, QString program);

    QString path() const { return m_path; }
    // On when our entry is there and not switched off by the desktop's own settings
    // (Hidden=true, or X-GNOME-Autostart-enabled=false).
    bool isOn() const;
    // Writes or removes the entry. Returns what went wrong, if anything.
    std::optional<QString> setOn(bool on) const;

    // The entry's text, running `program`.
    static QByteArray entry(const QString &program);

private:
    QString m_path;
    QString m_program;
};

} // namespace quonbrix
