#pragma once

// Keeps exactly one brixd running for as long as the app runs: launches it as `brixd run`,
// relaunches it a second after any exit, and stops it with SIGTERM, then SIGKILL once the grace
// period is over. Every launch, exit check and stop runs on one dedicated thread, in order, so
// the child handle, the launch counter and the stopping flag need no locks.

#include "platform/environment.h"
#include "supervisor/daemon_restarter.h"

#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class QProcess;
class QThread;
class QTimer;

namespace quonbrix {

struct DaemonSupervisorOptions {
    // The app's environment: where QUON_BRIX_DAEMON and HOME are read, and what brixd inherits.
    QProcessEnvironment environment;
    // Directory of the running executable; an installed brixd sits in ../libexec/quonbrix/.
    QString applicationDir;
    // Base of the development path brixd/dist/brixd.
    QString workingDir;
    // Builds the CA bundle for SSL_CERT_FILE. Empty: the real trust store for `environment`,
    // built by the quonbrix-truststore helper found from `applicationDir`.
    std::function<std::optional<QString>()> trustStore;
    // How long the helper may take before it is killed and brixd keeps its own roots.
    std::chrono::milliseconds trustStoreTimeout{10000};

    std::chrono::milliseconds relaunchDelay{1000};
    std::chrono::milliseconds stopGrace{5000};
    std::chrono::milliseconds pollStep{100};

    // This process's environment, executable directory and working directory.
    static DaemonSupervisorOptions forThisProcess();
};

class DaemonSupervisor final : public QObject, public DaemonRestarter {
    Q_OBJECT

public:
    explicit DaemonSupervisor(DaemonSupervisorOptions options);
    // Stops brixd (waiting up to the grace period) before the worker thread goes away.
    ~DaemonSupervisor() override;

    // Launches brixd unless it is already running or the supervisor was stopped. Returns at once.
    void start();
    // Terminates brixd and returns once it has exited or been killed. After this nothing is
    // launched again until restart(). Blocks for up to the grace period.
    void stop();
    // Stops brixd and launches it afresh. Returns at once; the work happens on the worker thread.
    void restart() override;

    // The CA bundle handed to brixd, built on first use and kept for the rest of the run (a
    // failed build included). Safe from any thread, but the first call blocks while the helper
    // builds it (up to trustStoreTimeout), so the worker thread is where it is called.
    std::optional<QString> trustStorePath() override;
    // Where brixd is for this process's environment (locateDaemon), looked up now.
    std::optional<QString> daemonPath() const override;

    // Where brixd is: $QUON_BRIX_DAEMON if set, else the installed copy beside the executable,
    // else an executable development build under the working directory, else nothing.
    static std::optional<QString>
    locateDaemon(const Environment &env, const QString &applicationDir, const QString &workingDir);

Q_SIGNALS:
    // Emitted from the worker thread.
    void daemonStarted(qint64 pid);
    // `exitCode` is the signal number when `crashed` is true.
    void daemonExited(qint64 pid, int exitCode, bool crashed);
    // brixd could not be launched: what is wrong and what to do, for the person at the desk.
    void launchFailed(const QString &message);

private:
    template <class F> void post(F &&task);
    template <class F> void runAndWait(F &&task);

    // Worker thread only.
    void spawn();
    void onExit(qint64 generation);
    void stopSteps();

    const DaemonSupervisorOptions m_options;
    const Environment m_env;
    QThread *m_thread = nullptr;
    QObject *m_worker = nullptr;

    // Worker thread only.
    QTimer *m_relaunchTimer = nullptr; // child of m_worker
    std::unique_ptr<QProcess> m_process;
    qint64 m_generation = 0;
    qint64 m_relaunchGeneration = 0;
    bool m_stopping = false;

    std::mutex m_trustMutex;
    std::optional<std::optional<QString>> m_trustStore;
};

} // namespace quonbrix
