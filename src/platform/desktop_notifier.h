#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>

namespace quonbrix {

// Posts notifications through the desktop's org.freedesktop.Notifications service. A
// notification whose identifier is still on screen is replaced, not stacked: the server's id
// for each identifier is kept until the server says the notification closed.
class DesktopNotifier : public QObject {
    Q_OBJECT

public:
    struct Options {
        QString appName = QStringLiteral("QuonBrix");
        QString desktopEntry = QStringLiteral("app.quonbrix.QuonBrix");
        QString soundName = QStringLiteral("message-new-instant");
        // An icon name from the theme or an absolute path to an image.
        QString icon;
    };

    DesktopNotifier(QDBusConnection bus, Options options, QObject *parent = nullptr);
    explicit DesktopNotifier(QDBusConnection bus, QObject *parent = nullptr)
        : DesktopNotifier(std::move(bus), Options{}, parent) {}

    // Returns at once; the server answers later. Without a server nothing happens beyond one
    // line in the log.
    // `critical` asks the server to keep it on screen until dismissed.
    void post(const QString &identifier, const QString &title, const QString &body,
              bool critical = false);

    // The server's id for an identifier on screen, 0 when none (for tests and diagnostics).
    uint serverId(const QString &identifier) const { return m_ids.value(identifier); }
    // Posts sent and not yet answered.
    int pendingPosts() const { return m_pending; }

Q_SIGNALS:
    // After the server answered a post, successfully or not.
    void posted(const QString &identifier, bool ok);

private Q_SLOTS:
    void onClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    Options m_options;
    QHash<QString, uint> m_ids;
    bool m_loggedFailure = false;
    int m_pending = 0;
};

} // namespace quonbrix
