#include "ui/tray_shell.h"

#include "app/app_core.h"
#include "platform/url_opener.h"
#include "ui/popover_model.h"

#include <QDesktopServices>
#include <QMenu>
#include <QSystemTrayIcon>

namespace quonbrix {

TrayShell::TrayShell(AppCore &core, Options options, QObject *parent)
    : QObject(parent)
    , m_core(core)
    , m_options(std::move(options))
    , m_popoverModel(new PopoverModel(
          &core.model(),
          m_options.trayAvailable ? QString() : PopoverModel::noTrayHint(m_options.currentDesktop),
          WorkPanelModel::linksFrom(core.environment()), this))
    , m_popover(new PopoverWindow(m_popoverModel,
                                  m_options.trayAvailable && m_options.canPlaceWindows
                                      ? PopoverWindow::Mode::Popup
                                      : PopoverWindow::Mode::Window,
                                  this)) {
    core.model().setUrlOpener(
        [opener = UrlOpener(QDBusConnection::sessionBus(), [](const QUrl &url) {
             return QDesktopServices::openUrl(url);
         })](const QUrl &url, QObject *context, UrlOpenDone done) {
            opener.open(url, context, std::move(done));
        });
    connect(m_popoverModel, &PopoverModel::quitRequested, this, &TrayShell::quitRequested);
    connect(m_popover, &PopoverWindow::opened, this, [this] { m_core.popoverShown(); });
    connect(&core.model(), &StatusModel::statusChanged, this, &TrayShell::updateIcon);

    if (!m_options.trayAvailable)
        return;
    m_tray = new QSystemTrayIcon(this);
    m_tray->setToolTip(QStringLiteral("QuonBrix"));
    m_menu = std::make_unique<QMenu>();
    m_menu->addAction(QStringLiteral("Open"), this, &TrayShell::openPopover);
    m_menu->addAction(QStringLiteral("Refresh"), &core.model(), &StatusModel::refresh);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit"), this, &TrayShell::quitRequested);
    m_tray->setContextMenu(m_menu.get());
    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    m_popover->toggle(trayGeometry());
            });
    m_tray->setIcon(m_renderer.icon(m_badge));
}

TrayShell::~TrayShell() {
    // The window's bindings read the model; it goes first.
    delete m_popover;
}

void TrayShell::show() {
    if (m_tray)
        m_tray->show();
    else
        openPopover();
}

void TrayShell::openPopover() {
    m_popover->open(trayGeometry());
}

void TrayShell::updateIcon() {
    const IconBadge badge = iconBadgeFor(m_core.model().status());
    if (badge == m_badge)
        return;
    m_badge = badge;
    if (m_tray)
        m_tray->setIcon(m_renderer.icon(badge));
}

std::optional<QRect> TrayShell::trayGeometry() const {
    if (!m_tray)
        return std::nullopt;
    const QRect r = m_tray->geometry();
    if (!r.isValid() || r.isEmpty())
        return std::nullopt;
    return r;
}

} // namespace quonbrix
