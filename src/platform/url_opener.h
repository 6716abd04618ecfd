#pragma once

#include <QDBusConnection>
#include <QUrl>
#include <functional>

namespace quonbrix {

// Hands URLs to the user's browser. A URL carrying a one-time token in its fragment goes only
// through the desktop portal's OpenURI call, so the token travels over the session bus and
// never through a launcher's command line, where other local users could read it. Other URLs
// go through the portal too when there is one, else through `fallback` (xdg-open).
class UrlOpener {
public:
    UrlOpener(QDBusConnection bus, std::function<bool(const QUrl &)> fallback);

    // True when the desktop accepted the URL.
    bool open(const QUrl &url) const;

    static bool carriesSecret(const QUrl &url);

private:
    bool openViaPortal(const QUrl &url) const;

    QDBusConnection m_bus;
    std::function<bool(const QUrl &)> m_fallback;
};

} // namespace quonbrix
