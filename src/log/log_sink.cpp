#include "log/log_sink.h"

#include <QStringList>
#include <QtEndian>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quonbrix::logging {

namespace {

const QString kPrefix = QStringLiteral("[QuonBrix] ");

// Set once by install(), before any other thread logs; read by the handler on any thread.
struct State {
    int journalFd = -1;
    sockaddr_un journalAddress{};
    QByteArray identifier;
};
State s_state;

int priorityOf(QtMsgType type) {
    switch (type) {
    case QtDebugMsg:
        return 7;
    case QtInfoMsg:
        return 6;
    case QtWarningMsg:
        return 4;
    case QtCriticalMsg:
        return 3;
    case QtFatalMsg:
        return 2;
    }
    return 6;
}

// The journal's native datagram: NAME=value lines, or NAME, a 64-bit length and the raw
// value for a value that holds a newline.
void appendField(QByteArray &out, const char *name, const QByteArray &value) {
    out += name;
    if (!value.contains('\n')) {
        out += '=';
        out += value;
    } else {
        out += '\n';
        const quint64 size = qToLittleEndian(quint64(value.size()));
        out.append(reinterpret_cast<const char *>(&size), sizeof size);
        out += value;
    }
    out += '\n';
}

bool sendToJournal(QtMsgType type, const char *category, const QByteArray &line) {
    if (s_state.journalFd < 0)
        return false;
    QByteArray datagram;
    appendField(datagram, "PRIORITY", QByteArray::number(priorityOf(type)));
    appendField(datagram, "SYSLOG_IDENTIFIER", s_state.identifier);
    appendField(datagram, "QUONBRIX_CATEGORY", category ? QByteArray(category) : QByteArray());
    appendField(datagram, "MESSAGE", line);
    ssize_t sent;
    do {
        sent = ::sendto(s_state.journalFd, datagram.constData(), size_t(datagram.size()),
                        MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&s_state.journalAddress),
                        sizeof s_state.journalAddress);
    } while (sent < 0 && errno == EINTR);
    return sent == datagram.size();
}

void writeToStderr(QByteArray line) {
    line += '\n';
    const char *data = line.constData();
    qsizetype left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        left -= written;
    }
}

void handle(QtMsgType type, const QMessageLogContext &context, const QString &message) {
    const QByteArray line = formatLine(context.category, message).toUtf8();
    if (!sendToJournal(type, context.category, line))
        writeToStderr(line);
}

} // namespace

QString formatLine(const char *category, const QString &message) {
    if (message.startsWith(kPrefix))
        return message;
    if (!category || !*category || std::strcmp(category, "default") == 0)
        return kPrefix + message;
    return kPrefix + QLatin1String(category) + QStringLiteral(": ") + message;
}

Sink sinkFor(const std::optional<QString> &journalStream, int stderrFd) {
    if (!journalStream)
        return Sink::Stderr;
    const QStringList parts = journalStream->split(u':');
    bool deviceOk = false;
    bool inodeOk = false;
    const qulonglong device = parts.value(0).toULongLong(&deviceOk);
    const qulonglong inode = parts.value(1).toULongLong(&inodeOk);
    struct stat st {};
    if (parts.size() != 2 || !deviceOk || !inodeOk || ::fstat(stderrFd, &st) != 0)
        return Sink::Stderr;
    return qulonglong(st.st_dev) == device && qulonglong(st.st_ino) == inode ? Sink::Journal
                                                                             : Sink::Stderr;
}

QtMessageHandler install(const SinkOptions &options) {
    if (s_state.journalFd >= 0)
        ::close(s_state.journalFd);
    s_state = State{};
    s_state.identifier = options.identifier.isEmpty() ? QByteArray(program_invocation_short_name)
                                                      : options.identifier;
    if (options.sink == Sink::Journal &&
        size_t(options.journalSocket.size()) < sizeof s_state.journalAddress.sun_path) {
        s_state.journalAddress.sun_family = AF_UNIX;
        std::memcpy(s_state.journalAddress.sun_path, options.journalSocket.constData(),
                    size_t(options.journalSocket.size()));
        s_state.journalFd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    return qInstallMessageHandler(&handle);
}

void installForThisProcess() {
    std::optional<QString> journalStream;
    if (qEnvironmentVariableIsSet("JOURNAL_STREAM"))
        journalStream = qEnvironmentVariable("JOURNAL_STREAM");
    SinkOptions options;
    options.sink = sinkFor(journalStream);
    install(options);
}

} // namespace quonbrix::logging
