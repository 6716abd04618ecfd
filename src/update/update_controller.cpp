#include "update/update_controller.h"

#include "log/log_categories.h"
#include "platform/environment.h"
#include "update/appcast.h"
#include "json/json_codec.h"

#include <QDir>
#include <QFileInfo>
#include <unistd.h>

namespace quonbrix {

InstallKind installKindFor(const QString &applicationFilePath) {
    const QFileInfo exe(applicationFilePath);
    const QDir bin = exe.absoluteDir();
    if (QFileInfo::exists(bin.filePath(QStringLiteral("../share/quonbrix/package-install"))))
        return InstallKind::Package;
    // Replacing the executable means renaming over it: both need the folder writable.
    const QByteArray dir = QFile::encodeName(bin.absolutePath());
    return !applicationFilePath.isEmpty() && ::access(dir.constData(), W_OK) == 0
               ? InstallKind::SelfContained
               : InstallKind::ReadOnly;
}

QUrl updateFeed(const Environment &env) {
    const QString configured = env.value(QStringLiteral("QUON_BRIX_UPDATE_FEED"), QString());
    const QUrl url(configured.trimmed(), QUrl::StrictMode);
    if (!configured.isEmpty() && url.isValid() && !url.scheme().isEmpty())
        return url;
    return QUrl(QStringLiteral(QUONBRIX_UPDATE_FEED_DEFAULT));
}

UpdateController::UpdateController(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options)) {
    m_daily.setInterval(m_options.checkIntervalMs);
    connect(&m_daily, &QTimer::timeout, this, [this] {
        // A check on the daily beat never interrupts a download.
        if (m_phase != Phase::Downloading && m_phase != Phase::Installed)
            checkNow();
    });
}

UpdateController::~UpdateController() {
    if (m_process) {
        m_process->disconnect();
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

void UpdateController::start() {
    if (m_daily.isActive())
        return;
    m_daily.start();
    checkNow();
}

void UpdateController::checkNow() {
    if (m_process)
        return;
    runHelper({QStringLiteral("check"), QStringLiteral("--feed"),
               m_options.feed.toString(QUrl::FullyEncoded)},
              Phase::Checking);
}

void UpdateController::install() {
    if (m_process || !m_offer || m_options.kind != InstallKind::SelfContained ||
        m_phase == Phase::Installed)
        return;
    m_progress = 0;
    runHelper({QStringLiteral("install"), QStringLiteral("--url"), m_offer->url,
               QStringLiteral("--length"), QString::number(m_offer->length),
               QStringLiteral("--signature"), m_offer->signature, QStringLiteral("--target"),
               m_options.target},
              Phase::Downloading);
}

void UpdateController::runHelper(const QStringList &args, Phase during) {
    auto *process = new QProcess(this);
    m_process = process;
    m_phase = during;
    m_failure.clear();
    Q_EMIT changed();
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->setStandardInputFile(QProcess::nullDevice());
    auto ended = std::make_shared<bool>(false);
    const auto readLines = [this, process, during, ended] {
        while (!*ended && process->canReadLine()) {
            const auto event = json::decode<UpdateEvent>(process->readLine().trimmed());
            if (!event) {
                qCWarning(lcUpdate, "[QuonBrix] update: unreadable line from the update helper");
                continue;
            }
            if (event->newest || event->installed || event->error) {
                // The run's answer is in: the helper may take a moment to exit, but a new
                // check or an install can start now.
                *ended = true;
                if (m_process == process)
                    m_process = nullptr;
            }
            handle(*event, during);
        }
    };
    connect(process, &QProcess::readyReadStandardOutput, this, readLines);
    connect(
        process, &QProcess::finished, this, [this, process, during, ended, readLines](int code) {
            readLines();
            process->deleteLater();
            if (m_process == process)
                m_process = nullptr;
            if (!*ended)
                finish(during == Phase::Checking ? Phase::CheckFailed : Phase::InstallFailed,
                       process->exitStatus() == QProcess::CrashExit
                           ? QStringLiteral("the update helper crashed")
                           : QStringLiteral("the update helper stopped (exit code %1)").arg(code));
        });
    connect(process, &QProcess::errorOccurred, this,
            [this, process, during, ended](QProcess::ProcessError error) {
                if (error != QProcess::FailedToStart || *ended)
                    return;
                *ended = true;
                process->deleteLater();
                m_process = nullptr;
                finish(during == Phase::Checking ? Phase::CheckFailed : Phase::InstallFailed,
                       QStringLiteral("%1 could not be started").arg(m_options.helper));
            });
    QStringList all = args;
    all << QStringLiteral("--timeout-ms") << QString::number(m_options.timeoutMs);
    process->start(m_options.helper, all);
}

void UpdateController::handle(const UpdateEvent &event, Phase during) {
    if (event.error) {
        finish(during == Phase::Checking ? Phase::CheckFailed : Phase::InstallFailed, *event.error);
    } else if (event.newest) {
        if (m_options.currentVersion.isEmpty() ||
            compareVersions(event.newest->version, m_options.currentVersion) > 0) {
            m_offer = *event.newest;
            const bool first = !m_announced.contains(m_offer->version);
            m_announced.insert(m_offer->version);
            finish(Phase::Available);
            if (first)
                Q_EMIT newVersionFound(*m_offer);
        } else {
            m_offer.reset();
            finish(Phase::UpToDate);
        }
    } else if (event.installed) {
        qCInfo(lcUpdate, "[QuonBrix] update: version %s installed; it runs after a restart",
               qUtf8Printable(m_offer ? m_offer->displayVersion : QString()));
        finish(Phase::Installed);
    } else if (event.received && event.total && *event.total > 0) {
        const int percent = int(std::clamp<qint64>(*event.received * 100 / *event.total, 0, 100));
        if (percent != m_progress) {
            m_progress = percent;
            Q_EMIT changed();
        }
    }
}

void UpdateController::finish(Phase phase, QString failure) {
    if (!failure.isEmpty())
        qCWarning(
            lcUpdate, "[QuonBrix] update: %s",
            qUtf8Printable((phase == Phase::CheckFailed ? QStringLiteral("check failed: ")
                                                        : QStringLiteral("install failed: ")) +
                           failure));
    m_phase = phase;
    m_failure = std::move(failure);
    Q_EMIT changed();
}

} // namespace quonbrix
