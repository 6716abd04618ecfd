#pragma once

#include "update/update_records.h"

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QSet>
#include <QTimer>
#include <QUrl>

namespace quonbrix {

class Environment;

// How this copy of QuonBrix was installed, which decides how it is updated.
enum class InstallKind {
    Package,       // by the Debian package: the package manager updates it
    SelfContained, // unpacked into a folder its user can write: it replaces itself
    ReadOnly,      // somewhere else its user cannot write (a root `make install`)
};

// Decided once at start from the executable's place: the package leaves a marker in
// ../share/quonbrix/, and a self-contained copy sits in a folder its user may write.
InstallKind installKindFor(const QString &applicationFilePath);

// The feed: QUON_BRIX_UPDATE_FEED when set, else the product's own.
QUrl updateFeed(const Environment &env);

// Checks the feed for a newer version once soon after start and then daily, and installs one
// into a self-contained copy. The feed and the download are fetched by the short-lived
// quonbrix-update helper, which also checks the signature: the tray never loads the TLS or
// crypto libraries.
class UpdateController : public QObject {
    Q_OBJECT

public:
    struct Options {
        QString helper;         // the quonbrix-update program
        QString currentVersion; // ours; empty when unknown
        QUrl feed;
        InstallKind kind = InstallKind::ReadOnly;
        QString target; // the executable an install replaces
        int checkIntervalMs = 24 * 60 * 60 * 1000;
        int timeoutMs = 30000; // for the helper's network waits
    };

    enum class Phase {
        Idle, // not checked yet
        Checking,
        UpToDate,
        Available,   // `offer()` is newer than us
        CheckFailed, // `failure()` says why
        Downloading, // `progress()` percent
        InstallFailed,
        Installed, // a restart runs the new version
    };

    explicit UpdateController(Options options, QObject *parent = nullptr);
    ~UpdateController() override;

    // Checks now and every interval from then on. Once.
    void start();
    void checkNow();
    // Downloads, verifies and installs the offer; only for a self-contained copy.
    void install();

    Phase phase() const { return m_phase; }
    const std::optional<UpdateOffer> &offer() const { return m_offer; }
    int progress() const { return m_progress; }
    QString failure() const { return m_failure; }
    const Options &options() const { return m_options; }

Q_SIGNALS:
    void changed();
    // A version newer than ours, the first time this run sees it.
    void newVersionFound(const quonbrix::UpdateOffer &offer);

private:
    void runHelper(const QStringList &args, Phase during);
    void handle(const UpdateEvent &event, Phase during);
    void finish(Phase phase, QString failure = {});

    Options m_options;
    Phase m_phase = Phase::Idle;
    std::optional<UpdateOffer> m_offer;
    int m_progress = 0;
    QString m_failure;
    QSet<QString> m_announced;
    QTimer m_daily;
    QPointer<QProcess> m_process;
};

} // namespace quonbrix
