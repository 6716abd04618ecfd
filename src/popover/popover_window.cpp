#include "popover/popover_window.h"

#include "popover/popover_placement.h"
#include "popover/popover_view.h"
#include "popover/symbols.h"

#include <QCursor>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QScreen>
#include <QTimer>

namespace quonbrix {

Q_LOGGING_CATEGORY(lcPopover, "quonbrix.popover")

namespace {
// A tray click arrives just after the focus loss it caused; within this window the click
// means "close", not "open again".
constexpr qint64 clickAfterFocusLossMs = 300;
// Where no frame is ever reported (some platforms draw without telling), the window counts as
// shown after this long.
constexpr int frameWaitMs = 1000;
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
    // The screen the popover belongs on: the tray icon's, else the pointer's, else the primary.
    const QPoint cursor = QCursor::pos();
    QScreen *screen = trayIcon ? QGuiApplication::screenAt(trayIcon->center()) : nullptr;
    if (!screen)
        screen = QGuiApplication::screenAt(cursor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    // Never taller than that screen; the QML scrolls what does not fit.
    m_window->setMaximumHeight(available.height() - 24);
    if (m_mode == view::WindowMode::Popup) {
        const QSize size(qMax(m_window->width(), 1), qMax(m_window->height(), 1));
        m_window->setPosition(popoverPosition(
            size, trayIcon, screen ? std::optional<QPoint>(cursor) : std::nullopt, available));
    }
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
    if (wasVisible) {
        Q_EMIT visibilityReported(true);
        return;
    }
    m_awaitingFrame = true;
    QTimer::singleShot(frameWaitMs, this, &PopoverWindow::reportShown);
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
