#pragma once

#include "app/mcp_setup.h"
#include "app/status_model.h"
#include "app/web_links.h"
#include "integrations/autostart.h"
#include "popover_link/popover_records.h"
#include "update/update_controller.h"

#include <QLocale>
#include <QObject>
#include <QTimeZone>
#include <QTimer>

namespace quonbrix {

// Words what the popover shows from the status model and carries out what the user asks for
// in it. While the popover is hidden it does no work at all; while it is shown it follows the
// model (and, while a timer runs, the clock) and hands on only the sections that changed.
class PopoverPresenter : public QObject {
    Q_OBJECT

public:
    // `trayHint` is shown under the header when the desktop has no tray to hold the icon.
    // `env` locates the AI clients' configuration files and the daemon's token.
    PopoverPresenter(StatusModel *status, QString trayHint, WebLinks links, Environment env,
                     QObject *parent = nullptr);

    // Everything the popover shows, worded now: relative times age while the status stays.
    view::PopoverState state() const;
    // Following starts with `state()` as what the popover has; it ends when it is hidden.
    view::PopoverState startShowing();
    void stopShowing();
    bool isShowing() const { return m_showing; }
    bool isTicking() const { return m_tick.isActive(); }

    void perform(const view::UserCommand &command);

    // Time, locale and zone the panels are worded in; the system's unless set.
    void setContext(const Clock *clock, QLocale locale, QTimeZone zone);

    // The line under the header when there is no tray; empty once a tray appeared.
    void setTrayHint(QString hint);

    // Where an installed daemon would be, for the terminal sign-in command when none was found.
    void setInstalledDaemon(QString path) { m_installedDaemon = std::move(path); }

    // The update row and its command; without one the row is not shown.
    void setUpdater(UpdateController *updater);
    // The "Start at login" switch; without one it is not shown.
    void setAutostart(std::optional<Autostart> autostart);

    // One line telling how to get a tray icon on this desktop, from XDG_CURRENT_DESKTOP.
    static QString noTrayHint(const QString &currentDesktop);

Q_SIGNALS:
    // Only the sections that differ from what the popover has.
    void changed(const quonbrix::view::PopoverState &sections);
    void quitRequested();
    // A new version is installed and the person asked to run it.
    void restartRequested();
    // Text for the clipboard (the terminal sign-in command).
    void copyRequested(const QString &text);
    // Something asked for could not be done and has no place to say so (the agent guide).
    void beepRequested();

private:
    void scheduleUpdate();
    void update(bool workOnly);
    void updateTicking();
    void copyAgentGuide();
    void updateAction();
    void toggleAutostart();
    std::optional<integrations::McpClient> client(const view::UserCommand &command) const;

    StatusModel *m_status;
    QString m_trayHint;
    WebLinks m_links;
    QString m_installedDaemon = QStringLiteral("/usr/libexec/quonbrix/brixd");
    const Clock *m_clock = &SystemClock::instance();
    QLocale m_locale;
    QTimeZone m_zone = QTimeZone::systemTimeZone();
    bool m_showing = false;
    bool m_updateQueued = false;
    view::PopoverState m_shown;
    QTimer m_tick;
    McpSetup m_mcp;
    // The agent guide was copied since the popover opened: its row shows a done mark.
    bool m_guideCopied = false;
    UpdateController *m_updater = nullptr;
    std::optional<Autostart> m_autostart;
    // Whether the entry is there, read when the popover opens and after a toggle rather than on
    // every refresh.
    std::optional<bool> m_startsAtLogin;
};

} // namespace quonbrix
