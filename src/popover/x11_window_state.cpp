#include "popover/x11_window_state.h"

#include <QGuiApplication>
#include <QWindow>

#include <X11/Xlib.h>

namespace quonbrix {

void keepOutOfTaskbar(QWindow *window) {
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    Display *display = x11 ? x11->display() : nullptr;
    if (!display || !window)
        return;
    // Qt has no flag for this: Qt::Tool makes a utility window, which some task lists (xfce's)
    // still show. EWMH's way for a mapped window is a client message to the root window.
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = Window(window->winId());
    event.xclient.message_type = XInternAtom(display, "_NET_WM_STATE", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = 1; // _NET_WM_STATE_ADD
    event.xclient.data.l[1] = long(XInternAtom(display, "_NET_WM_STATE_SKIP_TASKBAR", False));
    event.xclient.data.l[2] = long(XInternAtom(display, "_NET_WM_STATE_SKIP_PAGER", False));
    event.xclient.data.l[3] = 1; // from a normal application
    XSendEvent(display, DefaultRootWindow(display), False,
               SubstructureRedirectMask | SubstructureNotifyMask, &event);
    XFlush(display);
}

} // namespace quonbrix
