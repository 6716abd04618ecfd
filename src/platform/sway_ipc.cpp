#include "platform/sway_ipc.h"

#include "log/log_categories.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QtEndian>
#include <utility>

namespace quonbrix {

namespace {

// i3's IPC framing, which sway keeps: magic, payload length, message type.
constexpr char ipcMagic[] = {'i', '3', '-', 'i', 'p', 'c'};
constexpr qsizetype headerSize = sizeof ipcMagic + 2 * sizeof(quint32);
// A tree with hundreds of windows is well under a megabyte; more than this is not sway.
constexpr quint32 maxPayload = 16u << 20;

enum MessageType : quint32 {
    Subscribe = 2,
    GetTree = 4,
    WorkspaceEvent = 0x80000000,
    WindowEvent = 0x80000003,
};

QByteArray ipcMessage(quint32 type, const QByteArray &payload) {
    QByteArray message(ipcMagic, sizeof ipcMagic);
    char numbers[2 * sizeof(quint32)];
    qToLittleEndian(quint32(payload.size()), numbers);
    qToLittleEndian(type, numbers + sizeof(quint32));
    message.append(numbers, sizeof numbers);
    return message + payload;
}

// The node that has the focus: a window, or a workspace or output when no window has it.
std::optional<QJsonObject> focusedNode(const QJsonObject &node) {
    if (node.value(QLatin1String("focused")).toBool())
        return node;
    for (const QLatin1String key : {QLatin1String("nodes"), QLatin1String("floating_nodes")}) {
        const QJsonArray children = node.value(key).toArray();
        for (const QJsonValue &child : children) {
            if (auto found = focusedNode(child.toObject()))
                return found;
        }
    }
    return std::nullopt;
}

std::optional<ForegroundApp> applicationOf(const QJsonObject &node) {
    QString id = node.value(QLatin1String("app_id")).toString();
    if (id.isEmpty()) // Xwayland windows have no app_id but their X11 class
        id = node.value(QLatin1String("window_properties"))
                 .toObject()
                 .value(QLatin1String("class"))
                 .toString();
    return foregroundAppFor(id);
}

} // namespace

struct SwayFocus::Private {
    QString path;
    QLocalSocket socket;
    QByteArray received;
    std::optional<ForegroundApp> focused;
    bool treeAsked = false;
    bool treeStale = false;
    bool failed = false;

    void connected();
    void requestTree();
    void readMessages();
    bool handle(quint32 type, const QByteArray &payload);
    void fail(const QString &why);
};

void SwayFocus::Private::connected() {
    // Workspace focus too: switching to an empty workspace focuses no window.
    socket.write(ipcMessage(Subscribe, QByteArrayLiteral(R"(["window","workspace"])")));
    requestTree();
}

// One tree at a time; events meanwhile ask for one more after it.
void SwayFocus::Private::requestTree() {
    if (treeAsked) {
        treeStale = true;
        return;
    }
    treeAsked = true;
    socket.write(ipcMessage(GetTree, {}));
}

void SwayFocus::Private::readMessages() {
    received += socket.readAll();
    while (!failed && received.size() >= headerSize) {
        if (!received.startsWith(QByteArrayView(ipcMagic, sizeof ipcMagic)))
            return fail(QStringLiteral("it does not speak sway's IPC"));
        const auto *numbers = received.constData() + sizeof ipcMagic;
        const quint32 size = qFromLittleEndian<quint32>(numbers);
        const quint32 type = qFromLittleEndian<quint32>(numbers + sizeof(quint32));
        if (size > maxPayload)
            return fail(QStringLiteral("it sent a %1-byte message").arg(size));
        if (received.size() < headerSize + qsizetype(size))
            return;
        const QByteArray payload = received.mid(headerSize, size);
        received.remove(0, headerSize + size);
        if (!handle(type, payload))
            return fail(QStringLiteral("it sent a message that is not JSON"));
    }
}

bool SwayFocus::Private::handle(quint32 type, const QByteArray &payload) {
    const QJsonDocument document = QJsonDocument::fromJson(payload);
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    const QString change = object.value(QLatin1String("change")).toString();
    switch (type) {
    case Subscribe:
        if (!object.value(QLatin1String("success")).toBool())
            fail(QStringLiteral("it refused to report focus changes"));
        break;
    case GetTree:
        treeAsked = false;
        if (auto node = focusedNode(object))
            focused = applicationOf(*node);
        else
            focused.reset();
        if (std::exchange(treeStale, false))
            requestTree();
        break;
    case WindowEvent:
        // Titles change all the time and never change the application.
        if (change != QLatin1String("title") && change != QLatin1String("mark") &&
            change != QLatin1String("urgent"))
            requestTree();
        break;
    case WorkspaceEvent:
        if (change == QLatin1String("focus"))
            requestTree();
        break;
    default:
        break;
    }
    return true;
}

void SwayFocus::Private::fail(const QString &why) {
    if (failed)
        return;
    failed = true;
    focused.reset();
    qCWarning(lcAttention,
              "[QuonBrix] attention: sway's IPC socket %s: %s; the focused application is left "
              "out",
              qUtf8Printable(path), qUtf8Printable(why));
    socket.abort();
}

SwayFocus::SwayFocus(const QString &socketPath)
    : d(std::make_unique<Private>()) {
    d->path = socketPath;
    Private *p = d.get();
    QObject::connect(&p->socket, &QLocalSocket::connected, &p->socket, [p] { p->connected(); });
    QObject::connect(&p->socket, &QLocalSocket::readyRead, &p->socket, [p] { p->readMessages(); });
    QObject::connect(&p->socket, &QLocalSocket::disconnected, &p->socket,
                     [p] { p->fail(QStringLiteral("sway closed it")); });
    QObject::connect(&p->socket, &QLocalSocket::errorOccurred, &p->socket,
                     [p] { p->fail(p->socket.errorString()); });
    p->socket.connectToServer(socketPath);
}

SwayFocus::~SwayFocus() {
    // Closing must not count as sway going away.
    QObject::disconnect(&d->socket, nullptr, nullptr, nullptr);
}

std::optional<ForegroundApp> SwayFocus::foregroundApp() {
    return d->focused;
}

} // namespace quonbrix
