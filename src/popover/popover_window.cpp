#include "popover/popover_window.h"

#include "log/log_categories.h"
#include "popover/popover_placement.h"
#include "popover/popover_view.h"
#include "popover/symbols.h"
#include "popover/x11_window_state.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQmlProperty>
#include <QQuickItem>
#include <QScreen>
#include <QTimer>

namespace quonbrix {

namespace {
// A tray click arrives just after the focus loss it caused; within this window the click
// means "close", not "open again".
constexpr qint64 clickAfterFocusLossMs = 300;
// Where no frame is ever reported (some platforms draw without telling), the window counts as
// shown after this long.
constexpr int frameWaitMs = 1000;
// What a panel or bar may take at an edge of a Wayland output.
constexpr int waylandBarAllowance = 40;
// As tall as the popover gets as an ordinary window on a tall output.
constexpr int maxWindowHeight = 860;
} // namespace

PopoverWindow::PopoverWindow(PopoverView *view, QObject *parent)
    : QObject(parent)
    , m_view(view) {}

PopoverWindow::~PopoverWindow() {
    delete m_window;
    delete m_engine;
}

bool PopoverWindow::isVisible() const {
    return m_window && m_window->isVisible();
}

bool PopoverWindow::load() {
    if (m_window)
        return true;
    if (m_loadFailed)
        return false;
    m_engine = new QQmlEngine;
    m_engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
    m_engine->addImageProvider(QStringLiteral("symbol"), new SymbolImageProvider);
    QString error;
    {
        QQmlComponent component(m_engine, QUrl(QStringLiteral("qrc:/qt/qml/QuonBrix/Popover.qml")));
        QObject *root = component.isReady()
                            ? component.createWithInitialProperties(
                                  {{QStringLiteral("view"), QVariant::fromValue(m_view)}})
                            : nullptr;
        m_window = qobject_cast<QQuickWindow *>(root);
        if (!m_window) {
            error = component.errorString();
            delete root;
        }
    }
    if (!m_window) {
        qCWarning(lcPopover).noquote() << "[QuonBrix] popover: could not be loaded:" << error;
        delete m_engine;
        m_engine = nullptr;
        m_loadFailed = true;
        return false;
    }
    connect(m_window, &QWindow::visibleChanged, this, [this](bool visible) {
        if (!visible) {
            m_awaitingFrame = false;
            Q_EMIT visibilityReported(false);
        }
    });
    connect(m_window, &QQuickWindow::frameSwapped, this, &PopoverWindow::reportShown);
    // The content's height changes with what is shown; the window follows within the screen.
    QQmlProperty(m_window, QStringLiteral("wantedHeight"))
        .connectNotifySignal(this, SLOT(fitToScreen()));
    connect(m_window, &QWindow::activeChanged, this, [this] {
        if (m_mode == view::WindowMode::Popup && m_window->isVisible() && !m_window->isActive()) {
            m_sinceFocusLoss.start();
            m_window->hide();
        }
    });
    setMode(m_mode);
    return true;
}

void PopoverWindow::setMode(view::WindowMode mode) {
    m_mode = mode;
    if (!m_window)
        return;
    if (mode == view::WindowMode::Popup)
        m_window->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    else
        m_window->setFlags(Qt::Window);
    m_window->setTitle(QStringLiteral("QuonBrix"));
}

void PopoverWindow::handle(const view::ShowRequest &request) {
    const auto mode = view::windowModeFromWire(request.mode).value_or(view::WindowMode::Popup);
    if (mode != m_mode && !isVisible())
        setMode(mode);
    std::optional<QRect> icon;
    if (request.trayIcon)
        icon = QRect(int(request.trayIcon->x), int(request.trayIcon->y),
                     int(request.trayIcon->width), int(request.trayIcon->height));
    if (request.toggle) {
        if (isVisible()) {
            close();
            return;
        }
        if (m_sinceFocusLoss.isValid() && m_sinceFocusLoss.elapsed() < clickAfterFocusLossMs) {
            m_sinceFocusLoss.invalidate();
            Q_EMIT visibilityReported(false);
            return;
        }
    }
    open(icon);
}

void PopoverWindow::open(std::optional<QRect> trayIcon) {
    if (!load()) {
        Q_EMIT visibilityReported(false);
        return;
    }
    const bool wasVisible = m_window->isVisible();
    // The screen the popover belongs on: the tray icon's (or where the tray was last clicked),
    // else the pointer's, else the primary. Without a place from the tray it goes to the top
    // right corner, where trays usually are, not to wherever the pointer happens to be.
    QScreen *screen = trayIcon ? QGuiApplication::screenAt(trayIcon->center()) : nullptr;
    if (!screen)
        screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    m_available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    fitToScreen();
    if (m_mode == view::WindowMode::Popup) {
        const QSize size(qMax(m_window->width(), 1), qMax(m_window->height(), 1));
        m_window->setPosition(popoverPosition(size, trayIcon, std::nullopt, m_available));
    }
    m_window->show();
    if (m_mode == view::WindowMode::Popup &&
        QGuiApplication::platformName() == QLatin1String("xcb"))
        keepOutOfTaskbar(m_window);
    m_window->raise();
    m_window->requestActivate();
    // Keyboard users start on the first control, with its focus ring showing.
    if (!wasVisible)
        if (QQuickItem *first = m_window->contentItem()->nextItemInFocusChain(true))
            first->forceActiveFocus(Qt::TabFocusReason);
    if (wasVisible) {
        Q_EMIT visibilityReported(true);
        return;
    }
    m_awaitingFrame = true;
    QTimer::singleShot(frameWaitMs, this, &PopoverWindow::reportShown);
}

void PopoverWindow::fitToScreen() {
    if (!m_window)
        return;
    // Wayland hides the space panels and bars take (availableGeometry is the whole output), so
    // there the popover keeps a bar's height clear at the top and at the bottom.
    const bool wayland = QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    const int limit = m_available.height() - (wayland ? 2 * waylandBarAllowance : 24);
    const int wanted = m_window->property("wantedHeight").toInt();
    int height = qMax(1, wanted > 0 ? qMin(wanted, limit) : limit);
    if (wayland && m_mode == view::WindowMode::Window) {
        // A window of fixed size floats on tiling compositors (sway, Hyprland) instead of
        // being stretched over a tile. They centre it once, at the size it first has, so that
        // size does not follow the content: a popover that grew afterwards would run off the
        // bottom of the output. The panels scroll inside it instead.
        height = qMax(1, qMin(limit, maxWindowHeight));
        m_window->setMinimumSize(QSize(m_window->width(), height));
        m_window->setMaximumSize(QSize(m_window->width(), height));
    } else {
        m_window->setMinimumHeight(0);
        m_window->setMaximumHeight(limit);
    }
    m_window->resize(m_window->width(), height);
}

void PopoverWindow::reportShown() {
    if (!m_awaitingFrame || !isVisible())
        return;
    m_awaitingFrame = false;
    Q_EMIT visibilityReported(true);
}

void PopoverWindow::close() {
    if (isVisible())
        m_window->hide();
    else
        Q_EMIT visibilityReported(false);
}

} // namespace quonbrix
