#pragma once

// One line format and one destination for every program's log: tray, helpers and command line.

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <optional>

namespace quonbrix::logging {

// "[QuonBrix] subject: …". The app's messages already read so and pass unchanged; anything
// else (Qt's own warnings) gets the prefix with its category as the subject.
QString formatLine(const char *category, const QString &message);

enum class Sink { Stderr, Journal };

// systemd puts "device:inode" of the stream it connected to stderr into JOURNAL_STREAM. While
// stderr still is that stream, lines go to the journal directly, each with its priority.
Sink sinkFor(const std::optional<QString> &journalStream, int stderrFd = 2);

struct SinkOptions {
    Sink sink = Sink::Stderr;
    QByteArray journalSocket = QByteArrayLiteral("/run/systemd/journal/socket");
    // SYSLOG_IDENTIFIER; the program's file name when empty.
    QByteArray identifier;
};

// Routes every message of this process through formatLine to the sink; a line the journal
// refuses goes to stderr. Returns the handler it replaced.
QtMessageHandler install(const SinkOptions &options);

// What each program's main() calls first: the sink this process's JOURNAL_STREAM asks for.
void installForThisProcess();

} // namespace quonbrix::logging
