#pragma once

#include <QDBusConnection>
#include <QUrl>
#include <functional>

class QObject;

namespace quonbrix {

// What became of a URL handed to the desktop: first Accepted or Refused; after Accepted the
// portal may still say how it ended (Opened or RefusedLater), or never say.
enum class UrlOpenOutcome {
    Accepted,     // the desktop took the URL; the browser starts on its own time
    Refused,      // no portal (and no fallback), an error, or no answer in time
    Opened,       // later: the portal handed the URL to an application
    RefusedLater, // later: the user cancelled the app chooser, or the application failed
};
using UrlOpenDone = std::function<void(UrlOpenOutcome)>;

// Hands URLs to the user's browser. A URL carrying a one-time token in its fragment goes only
// through the desktop portal's OpenURI call, so the token travels over the session bus and
// never through a launcher's command line, where other local users could read it. Other URLs
// go through the portal too when there is one, else through `fallback` (xdg-open).
class UrlOpener {
public:
    UrlOpener(QDBusConnection bus, std::function<bool(const QUrl &)> fallback);

    // Returns at once. `done` runs later on `context`'s thread, never after `context` is
    // destroyed; a later report from the portal is waited for a couple of minutes at most.
    void open(const QUrl &url, QObject *context, UrlOpenDone done) const;

    static bool carriesSecret(const QUrl &url);

private:
    QDBusConnection m_bus;
    std::function<bool(const QUrl &)> m_fallback;
};

} // namespace quonbrix
