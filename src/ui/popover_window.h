#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QRect>
#include <optional>

class QQmlEngine;

namespace quonbrix {

class PopoverModel;

// The popover: a QML window made on first open (the QML engine and the scene graph cost more
// memory than the rest of the app together, and most days the popover is opened rarely).
class PopoverWindow : public QObject {
    Q_OBJECT

public:
    enum class Mode {
        Popup,  // frameless, placed at the tray icon, closes when it loses focus
        Window, // an ordinary window, for desktops without a tray or that place windows
    };

    PopoverWindow(PopoverModel *model, Mode mode, QObject *parent = nullptr);
    ~PopoverWindow() override;

    Mode mode() const { return m_mode; }
    bool isLoaded() const { return m_window != nullptr; }
    bool isVisible() const;
    // Null until first shown.
    QQuickWindow *window() const { return m_window; }

    // Shows the popover near `trayIcon` (when known) and gives it focus. False when the QML
    // could not be loaded; the reason was logged.
    bool open(std::optional<QRect> trayIcon = std::nullopt);
    // A tray click: opens, or closes when open. A click that itself took the focus away
    // from the open popover counts as closing it.
    void toggle(std::optional<QRect> trayIcon = std::nullopt);
    void close();

Q_SIGNALS:
    void opened();

private:
    bool load();

    PopoverModel *m_model;
    Mode m_mode;
    QQmlEngine *m_engine = nullptr;
    QPointer<QQuickWindow> m_window;
    QElapsedTimer m_sinceFocusLoss;
    bool m_loadFailed = false;
};

} // namespace quonbrix
