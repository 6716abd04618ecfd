#include "platform/wayland_idle.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <wayland-client.h>

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"
#include "log/log_categories.h"

namespace quonbrix {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Input within this counts as none at all (the answer is 0 s); short, so that the idle time
// is exact to a second, and the compositor's timer costs nothing while the user types.
constexpr std::uint32_t idleAfterMs = 1000;
// Start-up only, before the tray shows: how long the compositor may take to list its globals.
constexpr int probeTimeoutMs = 250;

// Our own socket rather than wl_display_connect, which reads the process environment and
// would wait on a compositor whose listen queue is full.
int connectTo(const QString &path) {
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || std::size_t(name.size()) >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// wl_display_roundtrip, but giving up after `timeoutMs`: a compositor that accepted the
// connection and then hangs must not hold up the start.
bool roundtripWithin(wl_display *display, int timeoutMs) {
    bool done = false;
    static const wl_callback_listener doneListener = {
        [](void *data, wl_callback *callback, std::uint32_t) {
            *static_cast<bool *>(data) = true;
            wl_callback_destroy(callback);
        }};
    wl_callback *callback = wl_display_sync(display);
    wl_callback_add_listener(callback, &doneListener, &done);
    const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done) {
        if (wl_display_flush(display) < 0 && errno != EAGAIN)
            break;
        if (wl_display_prepare_read(display) != 0) {
            if (wl_display_dispatch_pending(display) < 0)
                break;
            continue;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd readable{wl_display_get_fd(display), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&readable, 1, int(left.count())) <= 0) {
            wl_display_cancel_read(display);
            break;
        }
        if (wl_display_read_events(display) < 0 || wl_display_dispatch_pending(display) < 0)
            break;
    }
    if (!done)
        wl_callback_destroy(callback);
    return done;
}

struct Globals {
    std::uint32_t seat = 0;
    std::uint32_t extNotifier = 0;
    std::uint32_t kdeIdle = 0;
};

void onGlobal(void *data, wl_registry *, std::uint32_t name, const char *interface, std::uint32_t) {
    auto *globals = static_cast<Globals *>(data);
    const std::string_view which(interface);
    // The first seat is the user's; a second one would be another person's input.
    if (which == wl_seat_interface.name && !globals->seat)
        globals->seat = name;
    else if (which == ext_idle_notifier_v1_interface.name)
        globals->extNotifier = name;
    else if (which == org_kde_kwin_idle_interface.name)
        globals->kdeIdle = name;
}

void onGlobalRemove(void *, wl_registry *, std::uint32_t) {}

const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};

} // namespace

struct WaylandIdleTime::Private {
    wl_display *display = nullptr;
    wl_registry *registry = nullptr;
    Globals globals;
    wl_seat *seat = nullptr;
    ext_idle_notifier_v1 *extNotifier = nullptr;
    ext_idle_notification_v1 *extNotification = nullptr;
    org_kde_kwin_idle *kdeIdle = nullptr;
    org_kde_kwin_idle_timeout *kdeTimeout = nullptr;
    std::unique_ptr<QSocketNotifier> notifier;
    // When the last input was: the "idle" event comes one timeout after it.
    std::optional<SteadyClock::time_point> idleSince;
    bool lost = false;

    ~Private() {
        notifier.reset();
        if (extNotification)
            ext_idle_notification_v1_destroy(extNotification);
        if (extNotifier)
            ext_idle_notifier_v1_destroy(extNotifier);
        if (kdeTimeout)
            org_kde_kwin_idle_timeout_release(kdeTimeout);
        if (kdeIdle)
            org_kde_kwin_idle_destroy(kdeIdle);
        if (seat)
            wl_seat_destroy(seat);
        if (registry)
            wl_registry_destroy(registry);
        if (display) {
            wl_display_flush(display);
            wl_display_disconnect(display);
        }
    }

    void idled() {
        if (!idleSince)
            idleSince = SteadyClock::now() - std::chrono::milliseconds(idleAfterMs);
    }
    void resumed() { idleSince.reset(); }

    bool watch();
    void readEvents();
    void lose();
};

namespace {

const ext_idle_notification_v1_listener extListener = {
    [](void *d, ext_idle_notification_v1 *) {
        static_cast<WaylandIdleTime::Private *>(d)->idled();
    },
    [](void *d, ext_idle_notification_v1 *) {
        static_cast<WaylandIdleTime::Private *>(d)->resumed();
    }};

const org_kde_kwin_idle_timeout_listener kdeListener = {
    [](void *d, org_kde_kwin_idle_timeout *) {
        static_cast<WaylandIdleTime::Private *>(d)->idled();
    },
    [](void *d, org_kde_kwin_idle_timeout *) {
        static_cast<WaylandIdleTime::Private *>(d)->resumed();
    }};

template <class Proxy>
Proxy *bindGlobal(wl_registry *registry, std::uint32_t name, const wl_interface &interface) {
    return static_cast<Proxy *>(wl_registry_bind(registry, name, &interface, 1));
}

} // namespace

// Events are read when the socket has some, never waited for.
bool WaylandIdleTime::Private::watch() {
    if (wl_display_flush(display) < 0)
        return false;
    notifier = std::make_unique<QSocketNotifier>(wl_display_get_fd(display), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [this] { readEvents(); });
    return true;
}

void WaylandIdleTime::Private::readEvents() {
    while (wl_display_prepare_read(display) != 0) {
        if (wl_display_dispatch_pending(display) < 0)
            return lose();
    }
    if (wl_display_read_events(display) < 0 || wl_display_dispatch_pending(display) < 0)
        return lose();
    if (wl_display_flush(display) < 0 && errno != EAGAIN)
        return lose();
}

void WaylandIdleTime::Private::lose() {
    lost = true;
    idleSince.reset();
    notifier->setEnabled(false);
    const int error = wl_display_get_error(display);
    qCWarning(lcAttention,
              "[QuonBrix] attention: the Wayland compositor's connection ended (%s); no idle "
              "time from it any more",
              error ? std::strerror(error) : "closed");
}

WaylandIdleTime::WaylandIdleTime(std::unique_ptr<Private> p)
    : d(std::move(p)) {}

WaylandIdleTime::~WaylandIdleTime() = default;

std::optional<QString> WaylandIdleTime::socketPath(const Environment &env) {
    // Unset means the first display, as for every Wayland client.
    const QString display =
        env.value(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    if (display.startsWith(QLatin1Char('/')))
        return display;
    const QString runtimeDir = env.value(QStringLiteral("XDG_RUNTIME_DIR"), QString());
    if (display.isEmpty() || runtimeDir.isEmpty())
        return std::nullopt;
    return runtimeDir + QLatin1Char('/') + display;
}

std::unique_ptr<WaylandIdleTime> WaylandIdleTime::open(const QString &socketPath) {
    const int fd = connectTo(socketPath);
    if (fd < 0)
        return nullptr;
    auto p = std::make_unique<Private>();
    p->display = wl_display_connect_to_fd(fd); // owns the socket from here, even on failure
    if (!p->display)
        return nullptr;
    p->registry = wl_display_get_registry(p->display);
    wl_registry_add_listener(p->registry, &registryListener, &p->globals);
    if (!roundtripWithin(p->display, probeTimeoutMs))
        return nullptr;
    const Globals &globals = p->globals;
    if (!globals.seat || (!globals.extNotifier && !globals.kdeIdle))
        return nullptr;
    p->seat = bindGlobal<wl_seat>(p->registry, globals.seat, wl_seat_interface);
    if (globals.extNotifier) {
        p->extNotifier = bindGlobal<ext_idle_notifier_v1>(p->registry, globals.extNotifier,
                                                          ext_idle_notifier_v1_interface);
        p->extNotification =
            ext_idle_notifier_v1_get_idle_notification(p->extNotifier, idleAfterMs, p->seat);
        ext_idle_notification_v1_add_listener(p->extNotification, &extListener, p.get());
    } else {
        p->kdeIdle = bindGlobal<org_kde_kwin_idle>(p->registry, globals.kdeIdle,
                                                   org_kde_kwin_idle_interface);
        p->kdeTimeout = org_kde_kwin_idle_get_idle_timeout(p->kdeIdle, p->seat, idleAfterMs);
        org_kde_kwin_idle_timeout_add_listener(p->kdeTimeout, &kdeListener, p.get());
    }
    if (!p->watch())
        return nullptr;
    return std::unique_ptr<WaylandIdleTime>(new WaylandIdleTime(std::move(p)));
}

void WaylandIdleTime::queryIdleSeconds(QObject *, Answer answer) {
    if (d->lost)
        return answer(std::nullopt);
    if (!d->idleSince)
        return answer(0.0);
    const std::chrono::duration<double> idle = SteadyClock::now() - *d->idleSince;
    answer(idle.count());
}

QString WaylandIdleTime::name() const {
    return d->extNotification ? QStringLiteral("Wayland ext_idle_notifier_v1")
                              : QStringLiteral("Wayland org_kde_kwin_idle");
}

} // namespace quonbrix
