#pragma once

#include "app/status_model.h"
#include "app/web_links.h"

#include <QObject>
#include <QTimer>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace quonbrix {

// The popover's work side: "Current work" (timers), "Local projects", "Cloud sync
// (optional)", and the commands of the header and footer that talk to the daemon. Every text
// is made here; QML only binds.
class WorkPanelModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the app")

    Q_PROPERTY(QString currentWorkTitle READ currentWorkTitle CONSTANT)
    Q_PROPERTY(QString timersHeader READ timersHeader NOTIFY timersChanged)
    Q_PROPERTY(QString labelPlaceholder READ labelPlaceholder CONSTANT)
    Q_PROPERTY(QString startLabel READ startLabel CONSTANT)
    Q_PROPERTY(QUrl startSymbol READ startSymbol CONSTANT)
    Q_PROPERTY(bool startBusy READ startBusy NOTIFY timersChanged)
    Q_PROPERTY(QVariantList timers READ timers NOTIFY timersChanged)
    Q_PROPERTY(QVariantMap feedback READ feedback NOTIFY timersChanged)

    Q_PROPERTY(QString projectsTitle READ projectsTitle CONSTANT)
    Q_PROPERTY(QString projectsEmptyText READ projectsEmptyText CONSTANT)
    Q_PROPERTY(QVariantList projects READ projects NOTIFY panelsChanged)

    Q_PROPERTY(bool showSharing READ showSharing NOTIFY panelsChanged)
    Q_PROPERTY(QString sharingTitle READ sharingTitle CONSTANT)
    Q_PROPERTY(QVariantMap sharing READ sharing NOTIFY panelsChanged)

    Q_PROPERTY(QVariantMap update READ update NOTIFY commandsChanged)
    Q_PROPERTY(QVariantMap workspace READ workspace NOTIFY commandsChanged)
    Q_PROPERTY(QVariantMap meter READ meter NOTIFY commandsChanged)
    Q_PROPERTY(QString syncDetail READ syncDetail NOTIFY commandsChanged)
    Q_PROPERTY(QStringList messages READ messages NOTIFY commandsChanged)

public:
    using Links = WebLinks;
    static Links linksFrom(const Environment &env) { return WebLinks::from(env); }

    WorkPanelModel(StatusModel *status, Links links, QObject *parent = nullptr);

    QString currentWorkTitle() const { return QStringLiteral("Current work"); }
    QString timersHeader() const;
    QString labelPlaceholder() const { return QStringLiteral("Project label"); }
    QString startLabel() const { return QStringLiteral("Start"); }
    QUrl startSymbol() const;
    bool startBusy() const;
    QVariantList timers() const { return m_timers; }
    QVariantMap feedback() const;

    QString projectsTitle() const { return QStringLiteral("Local projects"); }
    QString projectsEmptyText() const {
        return QStringLiteral(
            "No Claude Code or Codex usage found yet. Refresh after your first session.");
    }
    QVariantList projects() const { return m_projects; }

    bool showSharing() const { return m_status->hasStatus(); }
    QString sharingTitle() const { return QStringLiteral("Cloud sync (optional)"); }
    QVariantMap sharing() const { return m_sharing; }

    QVariantMap update() const;
    QVariantMap workspace() const;
    QVariantMap meter() const;
    QString syncDetail() const;
    QStringList messages() const;

    Q_INVOKABLE void startTimer(const QString &label) { m_status->startWorkTimer(label); }
    Q_INVOKABLE void timerAction(const QString &action, const QString &id);
    Q_INVOKABLE void syncNow() { m_status->syncNow(); }
    Q_INVOKABLE void openMeter() { m_status->openLocalConsole(m_links.localConsole); }
    Q_INVOKABLE void openWorkspace();

    // The elapsed clocks tick once a second only while the popover is shown and a timer runs.
    void setShown(bool shown);
    bool isTicking() const { return m_tick.isActive(); }
    // For tests: the clock the elapsed times are read from.
    void setClock(const Clock *clock);

Q_SIGNALS:
    void timersChanged();
    void panelsChanged();
    void commandsChanged();

private:
    void rebuildTimers();
    void rebuildPanels();
    void updateTicking();

    StatusModel *m_status;
    Links m_links;
    const Clock *m_clock = &SystemClock::instance();
    QTimer m_tick;
    bool m_shown = false;
    bool m_anyRunning = false;
    QVariantList m_timers;
    QVariantList m_projects;
    QVariantMap m_sharing;
};

} // namespace quonbrix
