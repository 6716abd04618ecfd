#pragma once

#include "platform/desktop_session.h"

#include <QDBusConnection>
#include <memory>

namespace quonbrix {

// GNOME (X11 and Wayland): Mutter's idle monitor, which answers in milliseconds.
class MutterIdleTime final : public IdleTimeSource {
public:
    explicit MutterIdleTime(QDBusConnection bus);
    // Null when the session bus has no idle monitor.
    static std::unique_ptr<MutterIdleTime> probe(QDBusConnection bus);
    void queryIdleSeconds(QObject *context, Answer answer) override;
    QString name() const override { return QStringLiteral("GNOME Mutter IdleMonitor"); }

private:
    QDBusConnection m_bus;
};

// KDE Plasma: the screen saver service's session idle time. Plasma answers in milliseconds,
// whatever the interface's old documentation says about seconds.
class KdeScreenSaverIdleTime final : public IdleTimeSource {
public:
    explicit KdeScreenSaverIdleTime(QDBusConnection bus);
    // Null unless the screen saver service answers the idle call within a quarter of a second:
    // other desktops register its name without that call.
    static std::unique_ptr<KdeScreenSaverIdleTime> probe(QDBusConnection bus);
    void queryIdleSeconds(QObject *context, Answer answer) override;
    QString name() const override { return QStringLiteral("KDE ScreenSaver"); }

private:
    QDBusConnection m_bus;
};

} // namespace quonbrix
