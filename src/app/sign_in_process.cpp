#include "app/sign_in_process.h"

#include "log/log_categories.h"
#include "json/json_codec.h"

#include <QTimer>
#include <memory>

namespace quonbrix {

SignInProcess::SignInProcess(QString program, QObject *parent)
    : QObject(parent)
    , m_program(std::move(program)) {}

SignInProcess::~SignInProcess() {
    cancel();
}

void SignInProcess::cancel() {
    if (!m_process)
        return;
    QProcess *process = m_process;
    m_process = nullptr;
    process->disconnect();
    // SIGTERM: the child cancels its flow and leaves nothing half written.
    process->terminate();
    if (!process->waitForFinished(2000))
        process->kill();
    process->deleteLater();
}

void SignInProcess::run(std::function<void(const EnrollPrompt &)> onPrompt,
                        std::function<void()> onDone,
                        std::function<void(const QString &message)> onError) {
    cancel();
    auto *process = new QProcess(this);
    m_process = process;
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->setStandardInputFile(QProcess::nullDevice());
    // Ends the run with exactly one callback, however the child goes.
    auto finished = std::make_shared<bool>(false);
    const auto end = [this, process, finished](const std::function<void()> &callback) {
        if (*finished || m_process != process)
            return;
        *finished = true;
        m_process = nullptr;
        process->disconnect();
        // After its last line the child still tells a running tray over D-Bus and exits;
        // let it, and only stop one that lingers.
        if (process->state() == QProcess::NotRunning) {
            process->deleteLater();
        } else {
            connect(process, &QProcess::finished, process, &QObject::deleteLater);
            QTimer::singleShot(5000, process, [process] { process->kill(); });
        }
        callback();
    };
    // Handles every whole line printed so far; true once the run has ended.
    const auto readLines = [this, process, onPrompt, onDone, onError, end, finished] {
        while (!*finished && m_process == process && process->canReadLine()) {
            const auto event = json::decode<EnrollEvent>(process->readLine().trimmed());
            if (!event)
                qCWarning(lcAccount,
                          "[QuonBrix] sign-in: unreadable line from the sign-in process");
            else if (event->prompt)
                onPrompt(*event->prompt);
            else if (event->done)
                end(onDone);
            else if (event->error)
                end([onError, message = *event->error] { onError(message); });
        }
    };
    connect(process, &QProcess::readyReadStandardOutput, this, readLines);
    connect(process, &QProcess::finished, this, [process, onError, end, readLines](int code) {
        readLines();
        end([onError, code, crashed = process->exitStatus() == QProcess::CrashExit] {
            onError(QStringLiteral("Sign-in stopped unexpectedly (%1)")
                        .arg(crashed ? QStringLiteral("crashed")
                                     : QStringLiteral("exit code %1").arg(code)));
        });
    });
    connect(process, &QProcess::errorOccurred, this,
            [process, onError, end](QProcess::ProcessError error) {
                if (error == QProcess::FailedToStart)
                    end([onError, message = process->errorString()] { onError(message); });
            });
    process->start(m_program, {QStringLiteral("--events")});
}

} // namespace quonbrix
