#include "supervisor/daemon_supervisor.h"

#include "log/log_categories.h"
#include "supervisor/trust_store_child.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace quonbrix {

namespace {

const QString kCertFileVar = QStringLiteral("SSL_CERT_FILE");

// SIGKILL cannot be ignored, but a child stuck in the kernel may take a moment to be reaped.
constexpr int kReapAfterKillMs = 2000;

Environment lookupsFrom(const QProcessEnvironment &env) {
    QHash<QString, QString> vars;
    const QStringList keys = env.keys();
    for (const QString &key : keys)
        vars.insert(key, env.value(key));
    return Environment(std::move(vars));
}

} // namespace

DaemonSupervisorOptions DaemonSupervisorOptions::forThisProcess() {
    DaemonSupervisorOptions o;
    o.environment = QProcessEnvironment::systemEnvironment();
    o.applicationDir = QCoreApplication::applicationDirPath();
    o.workingDir = QDir::currentPath();
    return o;
}

DaemonSupervisor::DaemonSupervisor(DaemonSupervisorOptions options)
    : m_options(std::move(options))
    , m_env(lookupsFrom(m_options.environment))
    , m_thread(new QThread)
    , m_worker(new QObject)
    , m_relaunchTimer(new QTimer(m_worker)) {
    m_thread->setObjectName(QStringLiteral("supervisor"));
    m_relaunchTimer->setSingleShot(true);
    m_relaunchTimer->setTimerType(Qt::PreciseTimer);
    m_relaunchTimer->setInterval(m_options.relaunchDelay);
    QObject::connect(m_relaunchTimer, &QTimer::timeout, m_worker, [this] {
        if (!m_stopping && m_generation == m_relaunchGeneration)
            spawn();
    });
    m_worker->moveToThread(m_thread); // takes the timer along
    m_thread->start();
}

DaemonSupervisor::~DaemonSupervisor() {
    runAndWait([this] {
        stopSteps();
        m_process.reset();
    });
    m_thread->quit();
    m_thread->wait();
    delete m_worker;
    delete m_thread;
}

template <class F> void DaemonSupervisor::post(F &&task) {
    QMetaObject::invokeMethod(m_worker, std::forward<F>(task), Qt::QueuedConnection);
}

template <class F> void DaemonSupervisor::runAndWait(F &&task) {
    if (QThread::currentThread() == m_thread)
        task();
    else
        QMetaObject::invokeMethod(m_worker, std::forward<F>(task), Qt::BlockingQueuedConnection);
}

void DaemonSupervisor::start() {
    post([this] { spawn(); });
}

void DaemonSupervisor::stop() {
    runAndWait([this] { stopSteps(); });
}

void DaemonSupervisor::restart() {
    post([this] {
        stopSteps();
        m_stopping = false;
        spawn();
    });
}

std::optional<QString> DaemonSupervisor::trustStorePath() {
    std::lock_guard lock(m_trustMutex);
    if (!m_trustStore) {
        m_trustStore =
            m_options.trustStore
                ? m_options.trustStore()
                : truststore::buildInChild(m_options.applicationDir,
                                           TrustStoreSources::forPrivateDir(m_env.privateDir()),
                                           m_options.environment, m_options.trustStoreTimeout);
    }
    return *m_trustStore;
}

std::optional<QString> DaemonSupervisor::daemonPath() const {
    return locateDaemon(m_env, m_options.applicationDir, m_options.workingDir);
}

std::optional<QString> DaemonSupervisor::locateDaemon(const Environment &env,
                                                      const QString &applicationDir,
                                                      const QString &workingDir) {
    if (const std::optional<QString> set = env.value(QStringLiteral("QUON_BRIX_DAEMON"));
        set && !set->isEmpty())
        return QDir(workingDir).absoluteFilePath(*set);
    if (!applicationDir.isEmpty()) {
        const QString installed =
            QDir::cleanPath(applicationDir + QStringLiteral("/../libexec/quonbrix/brixd"));
        if (QFileInfo(installed).isFile())
            return installed;
    }
    const QFileInfo dev(QDir(workingDir).absoluteFilePath(QStringLiteral("brixd/dist/brixd")));
    if (dev.isFile() && dev.isExecutable())
        return dev.absoluteFilePath();
    return std::nullopt;
}

void DaemonSupervisor::spawn() {
    if (m_stopping)
        return;
    // One daemon at a time: a second start() while it runs has nothing to do.
    if (m_process && m_process->state() != QProcess::NotRunning)
        return;
    const std::optional<QString> program =
        locateDaemon(m_env, m_options.applicationDir, m_options.workingDir);
    if (!program) {
        qCWarning(lcSupervisor).noquote()
            << QStringLiteral(
                   "[QuonBrix] brixd not found: set QUON_BRIX_DAEMON or install it as %1")
                   .arg(QDir::cleanPath(m_options.applicationDir +
                                        QStringLiteral("/../libexec/quonbrix/brixd")));
        Q_EMIT launchFailed(
            QStringLiteral("brixd was not found — install it, or set QUON_BRIX_DAEMON"));
        return;
    }

    const qint64 generation = ++m_generation;
    auto process = std::make_unique<QProcess>();
    process->setProgram(*program);
    process->setArguments({QStringLiteral("run")});
    QProcessEnvironment env = m_options.environment;
    // A bundle the user chose on purpose wins over ours.
    if (const std::optional<QString> bundle = trustStorePath();
        bundle && !env.contains(kCertFileVar))
        env.insert(kCertFileVar, *bundle);
    process->setProcessEnvironment(env);
    // brixd's own output goes where ours goes; it has no use for our stdin.
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    const pid_t parent = ::getpid();
    process->setChildProcessModifier([parent] {
        // Between fork and exec: only async-signal-safe calls. Ignored signals and the blocked
        // mask survive exec, and brixd must be stoppable with SIGTERM whatever we did to ours.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (const int s : {SIGTERM, SIGINT, SIGHUP, SIGPIPE})
            signal(s, SIG_DFL);
        // Should the app die without stopping it (a crash, SIGKILL), brixd gets SIGTERM instead of
        // living on as an orphan.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(127);
    });

    process->start();
    if (!process->waitForStarted(-1)) {
        qCWarning(lcSupervisor).noquote()
            << QStringLiteral("[QuonBrix] brixd spawn failed: ") + process->errorString();
        Q_EMIT launchFailed(QStringLiteral("brixd could not be started: ") +
                            process->errorString());
        return;
    }
    const qint64 pid = process->processId();
    QObject::connect(process.get(), &QProcess::finished, m_worker,
                     [this, pid, generation](int exitCode, QProcess::ExitStatus status) {
                         Q_EMIT daemonExited(pid, exitCode, status == QProcess::CrashExit);
                         // Not from inside the handle's own signal: the check may replace it.
                         post([this, generation] { onExit(generation); });
                     });
    m_process = std::move(process); // the previous handle's child has already exited
    Q_EMIT daemonStarted(pid);
}

void DaemonSupervisor::onExit(qint64 generation) {
    // A stop or a newer launch since this child started makes its exit old news.
    if (m_stopping || m_generation != generation)
        return;
    m_relaunchGeneration = generation;
    m_relaunchTimer->start();
}

void DaemonSupervisor::stopSteps() {
    m_stopping = true;
    ++m_generation;
    m_relaunchTimer->stop();
    if (!m_process || m_process->state() == QProcess::NotRunning)
        return;
    const qint64 pid = m_process->processId();
    m_process->terminate();
    const QDeadlineTimer deadline(m_options.stopGrace, Qt::PreciseTimer);
    const auto step = std::max<qint64>(1, m_options.pollStep.count());
    while (m_process->state() != QProcess::NotRunning && !deadline.hasExpired())
        m_process->waitForFinished(int(std::clamp<qint64>(deadline.remainingTime(), 1, step)));
    if (m_process->state() != QProcess::NotRunning) {
        // Not yet reaped, so the pid is still this child's.
        ::kill(pid_t(pid), SIGKILL);
        m_process->waitForFinished(kReapAfterKillMs);
    }
}

} // namespace quonbrix
