#include "ui/tray_shell.h"

#include "app/app_core.h"
#include "log/log_categories.h"
#include "platform/url_opener.h"
#include "ui/popover_host.h"
#include "ui/popover_presenter.h"

#include "features/limit_forecast.h"
#include "features/provider_limits.h"
#include "features/today_figures.h"
#include "features/work_timers.h"

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

namespace quonbrix {

QString trayToolTip(const StatusModel &model) {
    QStringList lines{QStringLiteral("QuonBrix")};
    if (!model.daemonCondition().isEmpty())
        lines << model.daemonCondition();
    const auto &status = model.status();
    if (!status) {
        if (model.daemonCondition().isEmpty())
            lines << QStringLiteral("Starting meter…");
        return lines.join(u'\n');
    }
    if (status->providerLimits && !status->providerLimits->empty()) {
        const LimitHeadline headline = limitHeadline(*status->providerLimits);
        lines << (headline.remaining.isEmpty()
                      ? headline.text
                      : headline.text + QStringLiteral(" · ") + headline.remaining);
        const QString runOut = earliestRunOutLine(*status->providerLimits, model.forecastContext());
        if (!runOut.isEmpty())
            lines << runOut;
    } else {
        lines << providerHeadroomUnavailableText();
    }
    const std::vector<TodayFigure> today = todayFigures(*status);
    if (!today.empty())
        lines << QStringLiteral("Today: ") + todayFigureText(today.front());
    QStringList timers;
    for (const WorkSession *session : openWorkTimers(*status))
        timers << session->projectLabel;
    lines << (timers.isEmpty() ? openTimersText(0)
                               : openTimersText(timers.size()) + QStringLiteral(": ") +
                                     timers.join(QStringLiteral(", ")));
    return lines.join(u'\n');
}

TrayShell::TrayShell(AppCore &core, Options options, QObject *parent)
    : QObject(parent)
    , m_core(core)
    , m_options(std::move(options))
    , m_presenter(new PopoverPresenter(
          &core.model(),
          m_options.trayAvailable ? QString()
                                  : PopoverPresenter::noTrayHint(m_options.currentDesktop),
          WebLinks::from(core.environment()), core.environment(), this))
    , m_host(new PopoverHost(m_options.popoverProgram, this)) {
    core.model().setUrlOpener(
        [opener = UrlOpener(QDBusConnection::sessionBus(), [](const QUrl &url) {
             return QDesktopServices::openUrl(url);
         })](const QUrl &url, QObject *context, UrlOpenDone done) {
            opener.open(url, context, std::move(done));
        });
    connect(m_presenter, &PopoverPresenter::quitRequested, this, &TrayShell::quitRequested);
    m_presenter->setInstalledDaemon(QDir::cleanPath(QCoreApplication::applicationDirPath() +
                                                    QStringLiteral("/../libexec/quonbrix/brixd")));
    // The tray lives all day, so it is the one that holds what the user copied: X11 and
    // Wayland lose a clipboard whose owner exits, and the popover's process does not stay.
    connect(m_presenter, &PopoverPresenter::copyRequested, this, &TrayShell::copyToClipboard);
    connect(m_host, &PopoverHost::clipboardHandedOver, this, &TrayShell::copyToClipboard);
    connect(m_presenter, &PopoverPresenter::beepRequested, this, [] { QApplication::beep(); });
    connect(m_presenter, &PopoverPresenter::changed, m_host, &PopoverHost::update);
    connect(m_host, &PopoverHost::commandReceived, m_presenter, &PopoverPresenter::perform);
    connect(m_host, &PopoverHost::visibilityReported, this, [this](bool visible) {
        if (visible)
            m_core.popoverShown();
        else
            m_presenter->stopShowing();
    });
    connect(&core.model(), &StatusModel::statusChanged, this, &TrayShell::updateIcon);
    // The run-out in the tooltip moves with the readings seen, not only with the status.
    connect(&core.model(), &StatusModel::passFinished, this, &TrayShell::updateIcon);
    connect(&core.model(), &StatusModel::daemonConditionChanged, this, &TrayShell::updateIcon);

    // A panel or bar started after the app (the usual order at login, or waybar restarted)
    // brings its StatusNotifierWatcher with it: the icon goes there when it comes, and the
    // popover becomes an ordinary window again when it goes.
    m_trayWatch = new QDBusServiceWatcher(
        QStringLiteral("org.kde.StatusNotifierWatcher"), QDBusConnection::sessionBus(),
        QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration,
        this);
    connect(m_trayWatch, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        // A watcher that restarted has forgotten our item: a new icon registers again.
        dropTray();
        trayAvailabilityChanged(true);
    });
    connect(m_trayWatch, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        dropTray();
        // An X11 tray (XEmbed) may still be there for Qt's fallback. Qt learns that the
        // watcher left from a signal of its own, so it is asked a moment later.
        QTimer::singleShot(500, this, [this] {
            trayAvailabilityChanged(QSystemTrayIcon::isSystemTrayAvailable());
        });
    });
    // An X11 tray without a StatusNotifierWatcher (XEmbed: trayer, stalonetray, older panels)
    // says nothing on the bus; while there is no tray at all, Qt is asked now and then.
    m_trayPoll = new QTimer(this);
    m_trayPoll->setInterval(3000);
    connect(m_trayPoll, &QTimer::timeout, this, [this] {
        if (!m_options.trayAvailable && QSystemTrayIcon::isSystemTrayAvailable())
            trayAvailabilityChanged(true);
    });
    if (m_options.trayAvailable)
        makeTray();
    else if (QGuiApplication::platformName() == QLatin1String("xcb"))
        m_trayPoll->start();
}

void TrayShell::makeTray() {
    if (m_tray)
        return;
    m_tray = new QSystemTrayIcon(this);
    m_tray->setToolTip(trayToolTip(m_core.model()));
    m_menu = std::make_unique<QMenu>();
    m_menu->addAction(QStringLiteral("Open"), this, &TrayShell::openPopover);
    m_menu->addAction(QStringLiteral("Refresh"), &m_core.model(), &StatusModel::refresh);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit"), this, &TrayShell::quitRequested);
    m_tray->setContextMenu(m_menu.get());
    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    // A StatusNotifierItem host does not tell where the icon is; the pointer
                    // that just clicked it is on it.
                    m_lastTrayClick = QCursor::pos();
                    requestPopover(true);
                }
            });
    m_tray->setIcon(m_renderer.icon(m_badge));
}

void TrayShell::dropTray() {
    delete m_tray;
    m_tray = nullptr;
    m_menu.reset();
}

void TrayShell::trayAvailabilityChanged(bool available) {
    if (available != m_options.trayAvailable)
        qCInfo(lcShell, "[QuonBrix] shell: %s",
               available ? "a system tray appeared, the icon is in it"
                         : "the system tray went away; QuonBrix opens as a window");
    m_options.trayAvailable = available;
    if (available)
        m_trayPoll->stop();
    else if (QGuiApplication::platformName() == QLatin1String("xcb"))
        m_trayPoll->start();
    m_presenter->setTrayHint(available ? QString()
                                       : PopoverPresenter::noTrayHint(m_options.currentDesktop));
    if (available) {
        makeTray();
        m_tray->show();
        // The window that stood in for the icon is not needed any more.
        m_host->hide();
    }
}

TrayShell::~TrayShell() = default;

void TrayShell::show() {
    if (m_tray)
        m_tray->show();
    else
        openPopover();
}

void TrayShell::openPopover() {
    requestPopover(false);
}

view::WindowMode TrayShell::popoverMode() const {
    return m_options.trayAvailable && m_options.canPlaceWindows ? view::WindowMode::Popup
                                                                : view::WindowMode::Window;
}

void TrayShell::requestPopover(bool toggle) {
    std::optional<view::Rect> icon;
    if (const auto r = trayGeometry())
        icon = view::Rect{r->x(), r->y(), r->width(), r->height()};
    else if (m_lastTrayClick) // a second `quonbrix` opens it where the tray click did
        icon = view::Rect{m_lastTrayClick->x(), m_lastTrayClick->y(), 1, 1};
    m_host->show(m_presenter->startShowing(), {toWire(popoverMode()), toggle, icon});
}

void TrayShell::copyToClipboard(const QString &text) {
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->setText(text, QClipboard::Clipboard);
    if (clipboard->supportsSelection())
        clipboard->setText(text, QClipboard::Selection);
}

void TrayShell::updateIcon() {
    if (m_tray) {
        const QString tip = trayToolTip(m_core.model());
        if (tip != m_tray->toolTip())
            m_tray->setToolTip(tip);
    }
    const IconBadge badge = m_core.model().daemonCondition().isEmpty()
                                ? iconBadgeFor(m_core.model().status())
                                : IconBadge::NotMetering;
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
