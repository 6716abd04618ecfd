#include "platform/hyprland_ipc.h"

#include "log/log_categories.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QTimer>

namespace quonbrix {

namespace {

// The one query happens at the start; an answer later than this is not waited for, the next
// focus event tells anyway.
constexpr int queryTimeoutMs = 2000;
// Event lines carry a window title at most; a longer line is not Hyprland.
constexpr qint64 maxLine = 64 * 1024;

const QByteArray activeWindowEvent = QByteArrayLiteral("activewindow>>");

} // namespace

struct HyprlandFocus::Private {
    QString directory;
    QLocalSocket query;
    QLocalSocket events;
    QTimer queryTimeout;
    QByteArray reply;
    std::optional<ForegroundApp> focused;
    bool eventSeen = false;
    bool failed = false;

    void queryAnswered();
    void readEvents();
    void fail(const QString &why);
};

void HyprlandFocus::Private::queryAnswered() {
    queryTimeout.stop();
    // A focus event that came first is newer than this answer.
    if (failed || eventSeen)
        return;
    const QJsonObject window = QJsonDocument::fromJson(reply).object();
    focused = foregroundAppFor(window.value(QLatin1String("class")).toString());
}

void HyprlandFocus::Private::readEvents() {
    while (!failed && events.canReadLine()) {
        const QByteArray line = events.readLine().chopped(1);
        if (!line.contains(">>"))
            return fail(QStringLiteral("it does not speak Hyprland's event protocol"));
        if (!line.startsWith(activeWindowEvent))
            continue;
        eventSeen = true;
        // "activewindow>>CLASS,TITLE": titles have commas, classes do not.
        const QByteArray data = line.mid(activeWindowEvent.size());
        focused = foregroundAppFor(QString::fromUtf8(data.left(data.indexOf(',')).trimmed()));
    }
    if (!failed && events.bytesAvailable() > maxLine)
        fail(QStringLiteral("it sent a line longer than %1 bytes").arg(maxLine));
}

void HyprlandFocus::Private::fail(const QString &why) {
    if (failed)
        return;
    failed = true;
    focused.reset();
    qCWarning(lcAttention,
              "[QuonBrix] attention: Hyprland's event socket in %s: %s; the focused application "
              "is left out",
              qUtf8Printable(directory), qUtf8Printable(why));
    events.abort();
    query.abort();
}

std::optional<QString> HyprlandFocus::socketDirectory(const Environment &env) {
    const QString signature = env.value(QStringLiteral("HYPRLAND_INSTANCE_SIGNATURE"), QString());
    if (signature.isEmpty() || signature.contains(QLatin1Char('/')) ||
        signature.startsWith(QLatin1Char('.')))
        return std::nullopt;
    QStringList candidates;
    const QString runtimeDir = env.value(QStringLiteral("XDG_RUNTIME_DIR"), QString());
    if (!runtimeDir.isEmpty())
        candidates << runtimeDir + QStringLiteral("/hypr/") + signature;
    candidates << QStringLiteral("/tmp/hypr/") + signature;
    for (const QString &dir : std::as_const(candidates)) {
        if (QFileInfo::exists(dir + QStringLiteral("/.socket2.sock")))
            return dir;
    }
    return candidates.constFirst();
}

HyprlandFocus::HyprlandFocus(const QString &socketDirectory)
    : d(std::make_unique<Private>()) {
    Private *p = d.get();
    p->directory = socketDirectory;

    QObject::connect(&p->events, &QLocalSocket::readyRead, &p->events, [p] { p->readEvents(); });
    QObject::connect(&p->events, &QLocalSocket::disconnected, &p->events,
                     [p] { p->fail(QStringLiteral("Hyprland closed it")); });
    QObject::connect(&p->events, &QLocalSocket::errorOccurred, &p->events,
                     [p] { p->fail(p->events.errorString()); });
    p->events.connectToServer(socketDirectory + QStringLiteral("/.socket2.sock"));

    // The query socket answers once and closes; a failed query only means waiting for the
    // next focus change.
    p->queryTimeout.setSingleShot(true);
    QObject::connect(&p->queryTimeout, &QTimer::timeout, &p->query, [p] { p->query.abort(); });
    QObject::connect(&p->query, &QLocalSocket::connected, &p->query,
                     [p] { p->query.write(QByteArrayLiteral("j/activewindow")); });
    QObject::connect(&p->query, &QLocalSocket::readyRead, &p->query, [p] {
        p->reply += p->query.readAll();
        if (p->reply.size() > maxLine)
            p->query.abort();
    });
    QObject::connect(&p->query, &QLocalSocket::disconnected, &p->query,
                     [p] { p->queryAnswered(); });
    p->queryTimeout.start(queryTimeoutMs);
    p->query.connectToServer(socketDirectory + QStringLiteral("/.socket.sock"));
}

HyprlandFocus::~HyprlandFocus() {
    // Closing must not count as Hyprland going away.
    QObject::disconnect(&d->events, nullptr, nullptr, nullptr);
    QObject::disconnect(&d->query, nullptr, nullptr, nullptr);
}

std::optional<ForegroundApp> HyprlandFocus::foregroundApp() {
    return d->focused;
}

} // namespace quonbrix
