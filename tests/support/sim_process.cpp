#include "support/sim_process.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpServer>
#include <csignal>
#include <sys/stat.h>

namespace quonbrix::test {

bool processAlive(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    const QByteArray s = stat.readAll();
    const qsizetype close = s.lastIndexOf(')');
    return close >= 0 && close + 2 < s.size() && s[close + 2] != 'Z' && s[close + 2] != 'X';
}

quint16 freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

bool writeFile(const QString &path, const QByteArray &bytes, int mode) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size() &&
           f.flush() && ::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0;
}

SimProcess::~SimProcess() {
    m_process.kill();
    m_process.waitForFinished(2000);
}

bool SimProcess::start(const QStringList &args, const QStringList &env) {
    QProcessEnvironment vars; // nothing but HOME, so none of the sim's variables leak in
    vars.insert(QStringLiteral("HOME"), home.path());
    for (const QString &pair : env)
        vars.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    m_process.setProcessEnvironment(vars);
    startedAtMs = QDateTime::currentMSecsSinceEpoch();
    m_process.start(
        QStringLiteral(QUONBRIX_BIN_DIR "/brixd-sim"),
        QStringList{QStringLiteral("run"), QStringLiteral("--port"), QStringLiteral("0")} + args);
    static const QRegularExpression serving(
        QStringLiteral("serving scenario \\S+ on http://127\\.0\\.0\\.1:(\\d+)"));
    static const QRegularExpression account(
        QStringLiteral("account API on http://127\\.0\\.0\\.1:(\\d+)"));
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 10000) {
        const QString text = QString::fromUtf8(log());
        const QRegularExpressionMatch m = serving.match(text);
        if (m.hasMatch()) { // the last line at start
            port = quint16(m.captured(1).toUInt());
            accountPort = quint16(account.match(text).captured(1).toUInt());
            return true;
        }
        if (m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(100);
    }
    return false;
}

int SimProcess::stop() {
    ::kill(pid_t(m_process.processId()), SIGTERM);
    const bool ended =
        m_process.waitForFinished(2000) && m_process.exitStatus() == QProcess::NormalExit;
    return ended ? m_process.exitCode() : -1;
}

QByteArray SimProcess::log() {
    return m_log += m_process.readAllStandardError();
}

} // namespace quonbrix::test
