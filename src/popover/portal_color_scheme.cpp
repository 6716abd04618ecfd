#include "popover/portal_color_scheme.h"

#include "log/log_categories.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <array>
#include <iterator>

namespace quonbrix {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearance = QStringLiteral("org.freedesktop.appearance");
const QString colorScheme = QStringLiteral("color-scheme");

// Read wraps the value in a second variant (ReadOne, newer, does not): unwrap what is there.
QVariant unwrap(QVariant value) {
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}

int schemeFrom(const QVariant &value) {
    bool ok = false;
    const uint scheme = unwrap(value).toUInt(&ok);
    return ok && scheme <= 2 ? int(scheme) : 0;
}

} // namespace

PortalColorScheme::PortalColorScheme(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_platform(QGuiApplication::palette()) {
    if (!m_bus.isConnected())
        return;
    // Any sender: the portal's unique name changes when it restarts, and only the portal
    // sends on this path and interface.
    m_bus.connect(QString(), portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                  SLOT(onSettingChanged(QDBusMessage)));
    QDBusMessage read = QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface,
                                                       QStringLiteral("Read"));
    read << appearance << colorScheme;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(read, 2000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *w;
        if (reply.isError()) {
            qCDebug(lcPopover,
                    "[QuonBrix] popover: no colour scheme from a portal "
                    "(%s); the platform's palette stays",
                    qUtf8Printable(reply.error().name()));
            return;
        }
        apply(schemeFrom(reply.value().variant()));
    });
}

void PortalColorScheme::onSettingChanged(const QDBusMessage &message) {
    const QVariantList args = message.arguments();
    if (args.size() == 3 && args[0].toString() == appearance && args[1].toString() == colorScheme)
        apply(schemeFrom(args[2]));
}

void PortalColorScheme::apply(int scheme) {
    if (scheme == m_scheme)
        return;
    m_scheme = scheme;
    QGuiApplication::setPalette(scheme == 1   ? darkPalette()
                                : scheme == 2 ? lightPalette()
                                              : m_platform);
    Q_EMIT schemeChanged(scheme);
}

namespace {

// One colour per role, in the order of `roles`.
constexpr QPalette::ColorRole roles[] = {QPalette::Window,     QPalette::WindowText,
                                         QPalette::Base,       QPalette::AlternateBase,
                                         QPalette::Text,       QPalette::PlaceholderText,
                                         QPalette::Button,     QPalette::ButtonText,
                                         QPalette::Highlight,  QPalette::HighlightedText,
                                         QPalette::Light,      QPalette::Midlight,
                                         QPalette::Mid,        QPalette::Dark,
                                         QPalette::Shadow,     QPalette::ToolTipBase,
                                         QPalette::ToolTipText};

QPalette paletteOf(const std::array<QRgb, std::size(roles)> &colors) {
    QPalette p;
    for (size_t i = 0; i < std::size(roles); ++i)
        p.setColor(roles[i], QColor(colors[i]));
    return p;
}

} // namespace

QPalette PortalColorScheme::darkPalette() {
    return paletteOf({0x2b2b2e, 0xeeeef0, 0x1e1e20, 0x323236, 0xeeeef0, 0x9a9aa2, 0x3a3a3e,
                      0xeeeef0, 0x3584e4, 0xffffff, 0x55555a, 0x48484d, 0x5a5a60, 0x8a8a90,
                      0x000000, 0x1e1e20, 0xeeeef0});
}

QPalette PortalColorScheme::lightPalette() {
    return paletteOf({0xf6f6f7, 0x1d1d1f, 0xffffff, 0xececed, 0x1d1d1f, 0x6e6e73, 0xfcfcfc,
                      0x1d1d1f, 0x3584e4, 0xffffff, 0xffffff, 0xe8e8ea, 0xc6c6c8, 0x8e8e93,
                      0x404040, 0xffffff, 0x1d1d1f});
}

} // namespace quonbrix
