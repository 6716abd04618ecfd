#include "popover/popover_app.h"

#include "log/log_categories.h"

#include <QClipboard>
#include <QGuiApplication>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace quonbrix {

PopoverApp::PopoverApp(Options options, QObject *parent)
    : QObject(parent)
    , m_options(options)
    , m_window(&m_view)
    , m_input(options.input, QSocketNotifier::Read) {
    ::fcntl(m_options.input, F_SETFL, ::fcntl(m_options.input, F_GETFL) | O_NONBLOCK);
    connect(&m_input, &QSocketNotifier::activated, this, &PopoverApp::readInput);
    m_linger.setSingleShot(true);
    m_linger.setInterval(m_options.linger);
    connect(&m_linger, &QTimer::timeout, this, [this] {
        // The tray keeps offering what was copied here (a sign-in code) once we are gone.
        const QClipboard *clipboard = QGuiApplication::clipboard();
        if (clipboard->ownsClipboard() && !clipboard->text().isEmpty())
            send({std::nullopt, std::nullopt, clipboard->text()});
        Q_EMIT finished();
    });
    connect(&m_view, &PopoverView::commandRequested, this,
            [this](const view::UserCommand &command) {
                send({std::nullopt, command, std::nullopt});
            });
    connect(&m_view, &PopoverView::closeRequested, &m_window, &PopoverWindow::close);
    connect(&m_window, &PopoverWindow::visibilityReported, this, [this](bool visible) {
        if (visible) {
            m_linger.stop();
        } else {
            // A confirmation, another screen or an open settings group does not outlive the
            // popover it was in.
            m_view.resetScreens();
            m_linger.start();
        }
        send({visible, std::nullopt, std::nullopt});
    });
    // The scene is made before the first request is read: the tray sends its state and the
    // request at once, and both are waiting by the time the QML is ready.
    m_window.load();
    m_linger.start();
}

void PopoverApp::readInput() {
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(m_options.input, buffer, sizeof buffer);
        if (n > 0) {
            m_reader.feed(QByteArrayView(buffer, n), [this](QByteArrayView line) {
                if (const auto message = view::decodeLine<view::ToPopover>(line))
                    handle(*message);
                else
                    qCWarning(lcPopover, "[QuonBrix] popover: unreadable message ignored");
            });
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        // The tray has gone (or its pipe broke): nothing is left to show.
        m_input.setEnabled(false);
        Q_EMIT finished();
        return;
    }
}

void PopoverApp::handle(const view::ToPopover &message) {
    if (message.state)
        m_view.apply(*message.state);
    if (message.show)
        m_window.handle(*message.show);
    if (message.hide)
        m_window.close();
}

void PopoverApp::send(const view::FromPopover &message) {
    const QByteArray line = view::encodeLine(message);
    qsizetype done = 0;
    while (done < line.size()) {
        const ssize_t n =
            ::write(m_options.output, line.constData() + done, size_t(line.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            Q_EMIT finished();
            return;
        }
        done += n;
    }
}

} // namespace quonbrix
