#pragma once

#include "popover_link/popover_records.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QRect>
#include <optional>

class QQmlEngine;

namespace quonbrix {

class PopoverView;

// The popover window: the QML scene over a PopoverView, placed under the tray icon (or as an
// ordinary window), hidden when it loses the focus in popup mode.
class PopoverWindow : public QObject {
    Q_OBJECT

public:
    explicit PopoverWindow(PopoverView *view, QObject *parent = nullptr);
    ~PopoverWindow() override;

    // Makes the scene; false when the QML could not be loaded (the reason was logged).
    bool load();
    bool isVisible() const;
    // Null until loaded.
    QQuickWindow *window() const { return m_window; }
    view::WindowMode mode() const { return m_mode; }

    // Carries out a show request: opens (or, for a tray click, closes) the popover. A click
    // that itself took the focus away from the open popover counts as closing it.
    void handle(const view::ShowRequest &request);
    // Shows the popover near `trayIcon` (when known) and gives it the focus.
    void open(std::optional<QRect> trayIcon = std::nullopt);
    void close();

Q_SIGNALS:
    // Whether the popover is on screen: after every request, and whenever that changes. A
    // window coming up is reported once its first frame is drawn.
    void visibilityReported(bool visible);

private Q_SLOTS:
    // Sizes the window to its content, within the screen it is on.
    void fitToScreen();

private:
    void setMode(view::WindowMode mode);
    void reportShown();

    PopoverView *m_view;
    view::WindowMode m_mode = view::WindowMode::Popup;
    QQmlEngine *m_engine = nullptr;
    QPointer<QQuickWindow> m_window;
    QElapsedTimer m_sinceFocusLoss;
    bool m_awaitingFrame = false;
    bool m_loadFailed = false;
    QRect m_available = QRect(0, 0, 1280, 800);
};

} // namespace quonbrix
