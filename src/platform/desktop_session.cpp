#include "platform/desktop_session.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QStandardPaths>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/scrnsaver.h>

namespace quonbrix {

IdleTimeSource::~IdleTimeSource() = default;

namespace {

// The keys of a desktop file's [Desktop Entry] group, localised ones ("Name[ja]") included.
QHash<QString, QString> desktopEntryKeys(const QString &path) {
    QHash<QString, QString> keys;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return keys;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const auto eq = line.indexOf(QLatin1Char('='));
        if (inEntry && eq > 0)
            keys.insert(line.left(eq).trimmed(), line.mid(eq + 1).trimmed());
    }
    return keys;
}

// Name in the session's language, in the order freedesktop's desktop entry format gives:
// lang_COUNTRY@MODIFIER, lang_COUNTRY, lang@MODIFIER, lang, then the plain Name.
QString localizedName(const QHash<QString, QString> &keys, const QString &messagesLocale) {
    QString locale = messagesLocale.section(QLatin1Char('.'), 0, 0); // drop the encoding
    const QString modifier = messagesLocale.contains(QLatin1Char('@'))
                                 ? messagesLocale.section(QLatin1Char('@'), 1)
                                 : QString();
    locale = locale.section(QLatin1Char('@'), 0, 0);
    const QString lang = locale.section(QLatin1Char('_'), 0, 0);
    QStringList tries;
    if (!modifier.isEmpty())
        tries << locale + u'@' + modifier;
    tries << locale;
    if (!modifier.isEmpty())
        tries << lang + u'@' + modifier;
    tries << lang;
    for (const QString &tag : tries) {
        if (tag.isEmpty() || tag == QLatin1String("C") || tag == QLatin1String("POSIX"))
            continue;
        const QString name = keys.value(QStringLiteral("Name[") + tag + u']');
        if (!name.isEmpty())
            return name;
    }
    return keys.value(QStringLiteral("Name"));
}

} // namespace

QString sessionMessagesLocale() {
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QString value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            return value;
    }
    return {};
}

QString applicationDisplayName(const QString &windowClass, const QString &messagesLocale) {
    static QHash<QString, QString> cache;
    const QString cacheKey = windowClass + u'\n' + messagesLocale;
    const auto hit = cache.constFind(cacheKey);
    if (hit != cache.constEnd())
        return *hit;
    QString name = windowClass;
    const QStringList dirs =
        QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    for (const QString &dir : dirs) {
        const QStringList entries = QDir(dir).entryList({QStringLiteral("*.desktop")}, QDir::Files);
        for (const QString &entry : entries) {
            const bool byFile = entry.chopped(8).compare(windowClass, Qt::CaseInsensitive) == 0;
            const auto keys = desktopEntryKeys(dir + QLatin1Char('/') + entry);
            const bool byWmClass = keys.value(QStringLiteral("StartupWMClass")) == windowClass;
            const QString entryName = localizedName(keys, messagesLocale);
            if ((byFile || byWmClass) && !entryName.isEmpty()) {
                name = entryName;
                break;
            }
        }
        if (name != windowClass)
            break;
    }
    cache.insert(cacheKey, name);
    return name;
}
ForegroundAppSource::~ForegroundAppSource() = default;

std::optional<ForegroundApp> foregroundAppFor(const QString &id) {
    if (id.isEmpty())
        return std::nullopt;
    ForegroundApp app;
    app.id = id;
    app.name = applicationDisplayName(id);
    return app;
}

namespace {

// Windows can vanish between reading _NET_ACTIVE_WINDOW and asking for their properties;
// Xlib's default handler would exit the process for that, so errors only set a flag.
thread_local bool t_xError = false;

int recordError(Display *, XErrorEvent *) {
    t_xError = true;
    return 0;
}

struct ErrorTrap {
    Display *display;
    XErrorHandler previous;
    explicit ErrorTrap(Display *d)
        : display(d)
        , previous(XSetErrorHandler(recordError)) {
        t_xError = false;
    }
    ~ErrorTrap() {
        XSync(display, False);
        XSetErrorHandler(previous);
    }
    bool failed() {
        XSync(display, False);
        return t_xError;
    }
};

} // namespace

struct X11DesktopSession::Private {
    Display *display = nullptr;
    Atom netActiveWindow = None;
    XScreenSaverInfo *info = nullptr;
};

X11DesktopSession::X11DesktopSession(std::unique_ptr<Private> p)
    : d(std::move(p)) {}

X11DesktopSession::~X11DesktopSession() {
    if (d->info)
        XFree(d->info);
    if (d->display)
        XCloseDisplay(d->display);
}

std::unique_ptr<X11DesktopSession> X11DesktopSession::open(const QString &display) {
    if (display.isEmpty())
        return nullptr;
    Display *dpy = XOpenDisplay(display.toLocal8Bit().constData());
    if (!dpy)
        return nullptr;
    int eventBase = 0, errorBase = 0;
    if (!XScreenSaverQueryExtension(dpy, &eventBase, &errorBase)) {
        XCloseDisplay(dpy);
        return nullptr;
    }
    auto p = std::make_unique<Private>();
    p->display = dpy;
    p->netActiveWindow = XInternAtom(dpy, "_NET_ACTIVE_WINDOW", False);
    p->info = XScreenSaverAllocInfo();
    return std::unique_ptr<X11DesktopSession>(new X11DesktopSession(std::move(p)));
}

std::optional<double> X11DesktopSession::idleSeconds() {
    if (!d->info || !XScreenSaverQueryInfo(d->display, DefaultRootWindow(d->display), d->info))
        return std::nullopt;
    return double(d->info->idle) / 1000.0;
}

std::optional<ForegroundApp> X11DesktopSession::foregroundApp() {
    Display *dpy = d->display;
    ErrorTrap trap(dpy);
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char *data = nullptr;
    Window active = None;
    if (XGetWindowProperty(dpy, DefaultRootWindow(dpy), d->netActiveWindow, 0, 1, False, XA_WINDOW,
                           &type, &format, &count, &after, &data) == Success &&
        data && type == XA_WINDOW && format == 32 && count == 1)
        active = Window(*reinterpret_cast<unsigned long *>(data));
    if (data)
        XFree(data);
    if (active == None)
        return std::nullopt;

    ForegroundApp app;
    XClassHint hint{nullptr, nullptr};
    if (XGetClassHint(dpy, active, &hint)) {
        if (hint.res_class && *hint.res_class)
            app.id = QString::fromLocal8Bit(hint.res_class);
        XFree(hint.res_name);
        XFree(hint.res_class);
    }
    // The name is the application's, never the window title: titles carry file names,
    // mail subjects and the like, and none of that may leave the desktop.
    if (app.id)
        app.name = applicationDisplayName(*app.id);
    if (trap.failed())
        return std::nullopt; // the window went away mid-query
    if (!app.id && !app.name)
        return std::nullopt;
    return app;
}

} // namespace quonbrix
