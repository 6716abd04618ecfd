#include "supervisor/trust_store_child.h"

#include "log/log_categories.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <algorithm>

namespace quonbrix::truststore {

namespace {

// The answer is one path; a helper printing more than this is not answering.
constexpr qsizetype kMaxAnswerBytes = 64 * 1024;
// SIGKILL cannot be ignored, but a child stuck in the kernel may take a moment to be reaped.
constexpr int kReapAfterKillMs = 2000;

QString installedPath(const QString &applicationDir) {
    return QDir::cleanPath(applicationDir + QStringLiteral("/../libexec/quonbrix/") +
                           QLatin1String(kHelperName));
}

void warn(const QString &what) {
    qCWarning(lcTrustStore).noquote()
        << QStringLiteral("[QuonBrix] brixd trust-store: helper %1 — keeping Bun bundled roots")
               .arg(what);
}

// One line holding the absolute path of a file that exists.
std::optional<QString> pathFrom(QByteArray answer) {
    if (!answer.endsWith('\n'))
        return std::nullopt;
    answer.chop(1);
    if (answer.isEmpty() || answer.contains('\n') || answer.contains('\0'))
        return std::nullopt;
    const QString path = QFile::decodeName(answer);
    if (!QDir::isAbsolutePath(path) || !QFileInfo(path).isFile())
        return std::nullopt;
    return path;
}

} // namespace

std::optional<QString> locateHelper(const QString &applicationDir) {
    if (applicationDir.isEmpty())
        return std::nullopt;
    for (const QString &candidate : {installedPath(applicationDir),
                                     QDir(applicationDir).filePath(QLatin1String(kHelperName))}) {
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}

std::optional<QString> buildInChild(const QString &applicationDir, const TrustStoreSources &sources,
                                    const QProcessEnvironment &environment,
                                    std::chrono::milliseconds timeout) {
    const std::optional<QString> helper = locateHelper(applicationDir);
    if (!helper) {
        warn(QStringLiteral("not found: install it as %1").arg(installedPath(applicationDir)));
        return std::nullopt;
    }
    QProcess process;
    process.setProgram(*helper);
    process.setArguments(sources.toArguments());
    process.setProcessEnvironment(environment);
    // Its log lines are ours and go where ours go; stdout carries the answer.
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted(-1)) {
        warn(QStringLiteral("%1 could not start: %2").arg(*helper, process.errorString()));
        return std::nullopt;
    }

    // Read as it comes rather than only at the end, so a helper that floods its stdout is
    // stopped early instead of filling our memory.
    const QDeadlineTimer deadline(timeout, Qt::PreciseTimer);
    const auto remainingMs = [&deadline] {
        return int(std::max<qint64>(deadline.remainingTime(), 1));
    };
    QByteArray answer;
    while (process.state() != QProcess::NotRunning && answer.size() <= kMaxAnswerBytes &&
           !deadline.hasExpired()) {
        if (process.waitForReadyRead(remainingMs()))
            answer += process.readAllStandardOutput();
        else if (process.state() != QProcess::NotRunning && !deadline.hasExpired())
            process.waitForFinished(remainingMs()); // stdout closed early: only the exit is left
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(kReapAfterKillMs);
        warn(
            answer.size() > kMaxAnswerBytes
                ? QStringLiteral("answered with something that is not a path")
                : QStringLiteral("did not finish within %1 s").arg(double(timeout.count()) / 1000));
        return std::nullopt;
    }
    answer += process.readAllStandardOutput();
    if (process.exitStatus() == QProcess::CrashExit) {
        warn(QStringLiteral("crashed (signal %1)").arg(process.exitCode()));
        return std::nullopt;
    }
    if (process.exitCode() != 0) {
        warn(QStringLiteral("failed with exit code %1").arg(process.exitCode()));
        return std::nullopt;
    }
    // Nothing at all: it chose Bun's roots and has already said why.
    if (answer.isEmpty())
        return std::nullopt;
    std::optional<QString> path = pathFrom(answer);
    if (!path)
        warn(QStringLiteral("answered with something that is not a path"));
    return path;
}

} // namespace quonbrix::truststore
