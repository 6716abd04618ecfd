#include "platform/url_opener.h"

#include <QDBusMessage>
#include <QLoggingCategory>

namespace quonbrix {

Q_LOGGING_CATEGORY(lcOpener, "quonbrix.shell")

UrlOpener::UrlOpener(QDBusConnection bus, std::function<bool(const QUrl &)> fallback)
    : m_bus(std::move(bus))
    , m_fallback(std::move(fallback)) {}

bool UrlOpener::carriesSecret(const QUrl &url) {
    return url.fragment().startsWith(QLatin1String("handoff="));
}

bool UrlOpener::openViaPortal(const QUrl &url) const {
    if (!m_bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"),
        QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenURI"));
    call << QString() << url.toString(QUrl::FullyEncoded) << QVariantMap();
    // The portal answers with a request handle at once; the browser starts on its own time.
    const QDBusMessage answer = m_bus.call(call, QDBus::Block, 5000);
    return answer.type() == QDBusMessage::ReplyMessage;
}

bool UrlOpener::open(const QUrl &url) const {
    if (openViaPortal(url))
        return true;
    if (carriesSecret(url)) {
        qCWarning(lcOpener, "[QuonBrix] shell: no desktop portal to hand the local console link "
                            "to; not passing its token on a command line");
        return false;
    }
    return m_fallback && m_fallback(url);
}

} // namespace quonbrix
