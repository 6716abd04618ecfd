#include "platform/url_opener.h"

#include "log/log_categories.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <QTimer>
#include <chrono>
#include <optional>
#include <utility>

namespace quonbrix {

namespace {

const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

// The portal answers with a request handle at once; only the first call of a session waits
// for the bus to start it.
constexpr int callTimeoutMs = 5000;
// An app chooser can be left open for good, and then the portal never reports. A report later
// than this finds nobody listening.
constexpr std::chrono::minutes reportWatch{2};

// Where the portal publishes the request made with `token`: the caller's unique name without
// the colon and with dots as underscores (":1.42" becomes "1_42").
QString requestPath(const QDBusConnection &bus, const QString &token) {
    QString sender = bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    return QStringLiteral("/org/freedesktop/portal/desktop/request/") + sender + u'/' + token;
}

} // namespace

// One OpenURI call and the portal's later report on it. A child of the caller's context, so it
// goes with it; otherwise it deletes itself once there is nothing left to wait for.
class PortalRequest : public QObject {
    Q_OBJECT

public:
    PortalRequest(const QDBusConnection &bus, const QUrl &url, QObject *context, UrlOpenDone done);

private Q_SLOTS:
    void response(uint code, const QVariantMap &results, const QDBusMessage &message);

private:
    struct Report {
        uint code;
        QString sender;
    };

    void answered(QDBusPendingCallWatcher *watcher);
    void settle(uint code);
    void watch(const QString &path);
    void unwatch();
    void finish(UrlOpenOutcome outcome);

    QDBusConnection m_bus;
    UrlOpenDone m_done;
    QString m_watched;             // the request path listened on
    QString m_portal;              // the unique name that answered the call
    std::optional<Report> m_early; // a report that overtook the call's answer
    QTimer m_expiry;
};

PortalRequest::PortalRequest(const QDBusConnection &bus, const QUrl &url, QObject *context,
                             UrlOpenDone done)
    : QObject(context)
    , m_bus(bus)
    , m_done(std::move(done)) {
    static unsigned requests = 0;
    const QString token = QStringLiteral("quonbrix%1").arg(++requests);
    // Listening before asking: a report sent right after the answer cannot slip through.
    if (m_bus.isConnected())
        watch(requestPath(m_bus, token));
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"),
        QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenURI"));
    call << QString() << url.toString(QUrl::FullyEncoded)
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    // Without a bus the call fails at once and still reports through the watcher.
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &PortalRequest::answered);
    m_expiry.setSingleShot(true);
    m_expiry.setInterval(reportWatch);
    connect(&m_expiry, &QTimer::timeout, this, &QObject::deleteLater);
}

void PortalRequest::answered(QDBusPendingCallWatcher *watcher) {
    watcher->deleteLater();
    const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
    if (reply.isError()) {
        // The error's name only: its text may quote the URL.
        qCDebug(lcShell, "[QuonBrix] shell: desktop portal did not take the URL (%s)",
                qUtf8Printable(reply.error().name()));
        finish(UrlOpenOutcome::Refused);
        return;
    }
    m_portal = watcher->reply().service();
    // Portals older than the handle_token option choose a path of their own.
    const QString handle = reply.value().path();
    if (handle != m_watched) {
        unwatch();
        watch(handle);
    }
    const QPointer<PortalRequest> alive(this);
    const UrlOpenDone done = m_done;
    done(UrlOpenOutcome::Accepted);
    if (!alive)
        return;
    if (m_early && m_early->sender == m_portal)
        settle(m_early->code);
    else
        m_expiry.start();
}

void PortalRequest::response(uint code, const QVariantMap &, const QDBusMessage &message) {
    if (!m_done)
        return;
    if (m_portal.isEmpty())
        m_early = Report{code, message.service()};
    else if (message.service() == m_portal)
        settle(code);
}

void PortalRequest::settle(uint code) {
    // 0 is success; 1 the user cancelled, 2 anything else.
    if (code != 0)
        qCDebug(lcShell, "[QuonBrix] shell: desktop portal could not open the URL (response %u)",
                code);
    finish(code == 0 ? UrlOpenOutcome::Opened : UrlOpenOutcome::RefusedLater);
}

// No sender in the match rule: naming the portal would make the connection look its owner up
// with a blocking call. The sender is compared with the call's answerer instead.
void PortalRequest::watch(const QString &path) {
    if (m_bus.connect(QString(), path, requestInterface, QStringLiteral("Response"), this,
                      SLOT(response(uint, QVariantMap, QDBusMessage))))
        m_watched = path;
}

void PortalRequest::unwatch() {
    if (!m_watched.isEmpty())
        m_bus.disconnect(QString(), m_watched, requestInterface, QStringLiteral("Response"), this,
                         SLOT(response(uint, QVariantMap, QDBusMessage)));
    m_watched.clear();
}

void PortalRequest::finish(UrlOpenOutcome outcome) {
    unwatch();
    m_expiry.stop();
    deleteLater();
    // The caller may destroy its context, and this request with it, while it runs.
    const UrlOpenDone done = std::exchange(m_done, nullptr);
    done(outcome);
}

UrlOpener::UrlOpener(QDBusConnection bus, std::function<bool(const QUrl &)> fallback)
    : m_bus(std::move(bus))
    , m_fallback(std::move(fallback)) {}

bool UrlOpener::carriesSecret(const QUrl &url) {
    return url.fragment().startsWith(QLatin1String("handoff="));
}

void UrlOpener::open(const QUrl &url, QObject *context, UrlOpenDone done) const {
    const bool secret = carriesSecret(url);
    // A secret stays out of the fallback's reach altogether.
    auto fallback = [url = secret ? QUrl() : url, launch = m_fallback] {
        return !url.isEmpty() && launch && launch(url);
    };
    new PortalRequest(m_bus, url, context,
                      [secret, fallback, done = std::move(done)](UrlOpenOutcome outcome) {
                          if (outcome != UrlOpenOutcome::Refused) {
                              done(outcome);
                              return;
                          }
                          if (secret)
                              qCWarning(lcShell, "[QuonBrix] shell: no desktop portal to hand "
                                                 "the local console link to; not passing its "
                                                 "token on a command line");
                          done(fallback() ? UrlOpenOutcome::Accepted : UrlOpenOutcome::Refused);
                      });
}

} // namespace quonbrix

#include "url_opener.moc"
