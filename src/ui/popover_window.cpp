#include "ui/popover_window.h"

#include "ui/popover_model.h"
#include "ui/popover_placement.h"
#include "ui/symbols.h"

#include <QCursor>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>

namespace quonbrix {

Q_LOGGING_CATEGORY(lcPopover, "quonbrix.popover")

namespace {
// A tray click arrives just after the focus loss it caused; within this window the click
// means "close", not "open again".
constexpr qint64 clickAfterFocusLossMs = 300;
} // namespace

PopoverWindow::PopoverWindow(PopoverModel *model, Mode mode, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_mode(mode) {}

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
                                  {{QStringLiteral("model"), QVariant::fromValue(m_model)}})
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
    connect(m_window, &QWindow::visibleChanged, this,
            [this](bool visible) { m_model->work()->setShown(visible); });
    if (m_mode == Mode::Popup) {
        m_window->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
        connect(m_window, &QWindow::activeChanged, this, [this] {
            if (m_window->isVisible() && !m_window->isActive()) {
                m_sinceFocusLoss.start();
                m_window->hide();
            }
        });
    } else {
        m_window->setTitle(QStringLiteral("QuonBrix"));
    }
    return true;
}

bool PopoverWindow::open(std::optional<QRect> trayIcon) {
    if (!load())
        return false;
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
    if (m_mode == Mode::Popup) {
        const QSize size(qMax(m_window->width(), 1), qMax(m_window->height(), 1));
        m_window->setPosition(popoverPosition(
            size, trayIcon, screen ? std::optional<QPoint>(cursor) : std::nullopt, available));
    }
    m_model->refreshTexts();
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
    Q_EMIT opened();
    return true;
}

void PopoverWindow::toggle(std::optional<QRect> trayIcon) {
    if (isVisible()) {
        close();
        return;
    }
    if (m_sinceFocusLoss.isValid() && m_sinceFocusLoss.elapsed() < clickAfterFocusLossMs) {
        m_sinceFocusLoss.invalidate();
        return;
    }
    open(trayIcon);
}

void PopoverWindow::close() {
    if (m_window)
        m_window->hide();
}

} // namespace quonbrix
