#pragma once

// The stand-in daemon as a child process, and the small process and file chores several
// suites share.

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

namespace quonbrix::test {

// Running, not merely waiting to be reaped.
bool processAlive(qint64 pid);

// A loopback port nothing listens on (until someone takes it).
quint16 freePort();

// Writes `bytes` to `path`, making its folder first; false on any failure.
bool writeFile(const QString &path, const QByteArray &bytes, int mode = 0644);

// `brixd-sim run --port 0 ARGS` in a HOME of its own, with nothing else inherited.
class SimProcess {
public:
    ~SimProcess();

    // `env` holds NAME=value pairs; true once the sim says where it serves.
    bool start(const QStringList &args = {}, const QStringList &env = {});
    // SIGTERM; the exit code, or -1 when it did not end normally within 2 s.
    int stop();
    // Everything it has written to stderr so far.
    QByteArray log();
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port); }

    QTemporaryDir home;
    quint16 port = 0;
    quint16 accountPort = 0;
    qint64 startedAtMs = 0;

private:
    QProcess m_process;
    QByteArray m_log;
};

} // namespace quonbrix::test
