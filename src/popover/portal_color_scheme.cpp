#include "popover/portal_color_scheme.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcColorScheme, "quonbrix.popover")

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
            qCDebug(lcColorScheme,
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

QPalette PortalColorScheme::darkPalette() {
    QPalette p;
    const QColor window(0x2b, 0x2b, 0x2e), base(0x1e, 0x1e, 0x20), text(0xee, 0xee, 0xf0);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window.lighter(115));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0xa2));
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3e));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Light, QColor(0x55, 0x55, 0x5a));
    p.setColor(QPalette::Midlight, QColor(0x48, 0x48, 0x4d));
    p.setColor(QPalette::Mid, QColor(0x5a, 0x5a, 0x60));
    p.setColor(QPalette::Dark, QColor(0x8a, 0x8a, 0x90));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    return p;
}

QPalette PortalColorScheme::lightPalette() {
    QPalette p;
    const QColor window(0xf6, 0xf6, 0xf7), text(0x1d, 0x1d, 0x1f);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, Qt::white);
    p.setColor(QPalette::AlternateBase, window.darker(104));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x6e, 0x6e, 0x73));
    p.setColor(QPalette::Button, QColor(0xfc, 0xfc, 0xfc));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Light, Qt::white);
    p.setColor(QPalette::Midlight, QColor(0xe8, 0xe8, 0xea));
    p.setColor(QPalette::Mid, QColor(0xc6, 0xc6, 0xc8));
    p.setColor(QPalette::Dark, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::Shadow, QColor(0x40, 0x40, 0x40));
    p.setColor(QPalette::ToolTipBase, Qt::white);
    p.setColor(QPalette::ToolTipText, text);
    return p;
}

} // namespace quonbrix
