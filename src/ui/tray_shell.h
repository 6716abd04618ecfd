#pragma once

#include "popover_link/popover_records.h"
#include "ui/tray_icon.h"

#include <QObject>
#include <QPoint>
#include <QRect>
#include <memory>
#include <optional>

class QDBusServiceWatcher;
class QMenu;
class QTimer;
class QSystemTrayIcon;

namespace quonbrix {

class AppCore;
class StatusModel;

// The tray icon's tooltip: what a glance needs without opening the popover. The headline with
// its headroom, the earliest run-out at the current pace, today's output tokens, the open
// timers, and why the meter is not running when it is not.
QString trayToolTip(const StatusModel &model);
class PopoverHost;
class PopoverPresenter;

// The desktop face of the app: the tray icon with its menu, and the popover. Without a
// tray the popover is an ordinary window, opened at start, with a hint on getting a tray.
class TrayShell : public QObject {
    Q_OBJECT

public:
    struct Options {
        bool trayAvailable = true;
        // Wayland clients cannot place their own windows, so the popover is a normal window.
        bool canPlaceWindows = true;
        QString currentDesktop; // $XDG_CURRENT_DESKTOP
        // The popover program (PopoverHost::locate).
        QString popoverProgram;
    };

    TrayShell(AppCore &core, Options options, QObject *parent = nullptr);
    ~TrayShell() override;

    // Shows the tray icon, or without a tray the popover window.
    void show();
    // Brings the popover up (the tray menu's Open, or a second `quonbrix` started).
    void openPopover();

    bool hasTray() const { return m_tray != nullptr; }
    QSystemTrayIcon *trayIcon() const { return m_tray; }
    PopoverHost &popover() { return *m_host; }
    PopoverPresenter &presenter() { return *m_presenter; }
    IconBadge currentBadge() const { return m_badge; }
    view::WindowMode popoverMode() const;

Q_SIGNALS:
    void quitRequested();

private:
    void makeTray();
    void dropTray();
    void trayAvailabilityChanged(bool available);
    void requestPopover(bool toggle);
    void copyToClipboard(const QString &text);
    void updateIcon();
    std::optional<QRect> trayGeometry() const;

    AppCore &m_core;
    Options m_options;
    PopoverPresenter *m_presenter;
    PopoverHost *m_host;
    QSystemTrayIcon *m_tray = nullptr;
    std::unique_ptr<QMenu> m_menu;
    TrayIconRenderer m_renderer;
    IconBadge m_badge = IconBadge::None;
    // Where the tray icon was last clicked, for trays that do not report its place.
    std::optional<QPoint> m_lastTrayClick;
    QDBusServiceWatcher *m_trayWatch = nullptr;
    QTimer *m_trayPoll = nullptr;
};

} // namespace quonbrix
