#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QPalette>

namespace quonbrix {

// Follows the desktop's light or dark preference, as the XDG desktop portal publishes it
// (org.freedesktop.appearance color-scheme: 0 no preference, 1 dark, 2 light), and gives the
// application a dark or light palette to match. Without a portal, or with no preference, the
// platform's palette stays. Never blocks: the answer arrives when it arrives.
class PortalColorScheme : public QObject {
    Q_OBJECT

public:
    explicit PortalColorScheme(QDBusConnection bus, QObject *parent = nullptr);

    // 0, 1 or 2 as the portal last said; -1 before it answered or without a portal.
    int scheme() const { return m_scheme; }

    static QPalette darkPalette();
    static QPalette lightPalette();

Q_SIGNALS:
    void schemeChanged(int scheme);

private Q_SLOTS:
    void onSettingChanged(const QDBusMessage &message);

private:
    void apply(int scheme);

    QDBusConnection m_bus;
    QPalette m_platform;
    int m_scheme = -1;
};

} // namespace quonbrix
