#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <optional>

class QObject;

namespace quonbrix {

// Seconds since the user last touched keyboard or pointer, from whatever the desktop offers.
class IdleTimeSource {
public:
    // The idle seconds, absent when the source cannot answer right now or not in time.
    using Answer = std::function<void(std::optional<double>)>;

    virtual ~IdleTimeSource();
    // Never waits: calls `answer` once, either before returning (a source that can tell at
    // once) or when the desktop's reply comes. Never called after `context` is destroyed.
    virtual void queryIdleSeconds(QObject *context, Answer answer) = 0;
    virtual QString name() const = 0;
};

struct ForegroundApp {
    std::optional<QString> id;   // e.g. the X11 WM_CLASS class
    std::optional<QString> name; // the window's or application's display name
};

// The application the user is looking at. Absent when there is no focused window or the
// desktop does not tell.
class ForegroundAppSource {
public:
    virtual ~ForegroundAppSource();
    virtual std::optional<ForegroundApp> foregroundApp() = 0;
};

// The session's language for messages: LC_ALL, else LC_MESSAGES, else LANG.
QString sessionMessagesLocale();

// The display name of the application whose windows carry this WM_CLASS class: the Name of
// its desktop entry (matched by StartupWMClass or file name), else the class itself. Cached.
// `messagesLocale` is the session's language as LC_ALL / LC_MESSAGES / LANG give it
// ("ja_JP.UTF-8"): the entry's Name[ja_JP] or Name[ja] is taken before the plain Name.
QString applicationDisplayName(const QString &windowClass,
                               const QString &messagesLocale = sessionMessagesLocale());

// The application behind a window's class or app_id: the id and its desktop-entry name (never
// the window's title); absent for an empty id.
std::optional<ForegroundApp> foregroundAppFor(const QString &id);

// An X11 display connection of our own (not the toolkit's), answering both questions through
// the XScreenSaver extension and the EWMH _NET_ACTIVE_WINDOW property.
class X11DesktopSession final : public IdleTimeSource, public ForegroundAppSource {
public:
    // Null when $DISPLAY is unset, the display cannot be opened or lacks XScreenSaver.
    static std::unique_ptr<X11DesktopSession> open(const QString &display);
    ~X11DesktopSession() override;

    std::optional<double> idleSeconds();
    // A round trip to the local X server: answered before returning.
    void queryIdleSeconds(QObject *, Answer answer) override { answer(idleSeconds()); }
    QString name() const override { return QStringLiteral("X11 XScreenSaver"); }
    std::optional<ForegroundApp> foregroundApp() override;

private:
    struct Private;
    explicit X11DesktopSession(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d;
};

} // namespace quonbrix
