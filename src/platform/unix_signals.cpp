#include "platform/unix_signals.h"

#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quonbrix {

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int signalNumber) {
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}
} // namespace

UnixSignalWatcher::UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject *parent)
    : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, g_pipe) != 0)
        return;
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::drain);
    for (const int s : signalNumbers) {
        struct sigaction action = {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(s, &action, nullptr);
    }
}

UnixSignalWatcher::~UnixSignalWatcher() {
    if (g_pipe[0] >= 0) {
        delete m_notifier;
        ::close(g_pipe[0]);
        ::close(g_pipe[1]);
        g_pipe[0] = g_pipe[1] = -1;
    }
}

void UnixSignalWatcher::drain() {
    unsigned char byte = 0;
    while (::read(g_pipe[0], &byte, 1) == 1)
        Q_EMIT received(int(byte));
}

} // namespace quonbrix
