#pragma once

#include "app/status_model.h"
#include "ui/popover_panels.h"
#include "ui/work_panel_model.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace quonbrix {

// Everything the popover shows, already worded. QML binds these and calls the invokables;
// it never builds a string or decides what to show.
class PopoverModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the app")

    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString statusPill READ statusPill NOTIFY headerChanged)
    Q_PROPERTY(QString subtitle READ subtitle NOTIFY headerChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY headerChanged)
    Q_PROPERTY(QString loadingText READ loadingText CONSTANT)
    Q_PROPERTY(QString trayHint READ trayHint CONSTANT)
    Q_PROPERTY(QString quitLabel READ quitLabel CONSTANT)
    Q_PROPERTY(QString quitHelp READ quitHelp CONSTANT)
    Q_PROPERTY(QUrl quitSymbol READ quitSymbol CONSTANT)
    Q_PROPERTY(quonbrix::WorkPanelModel *work READ work CONSTANT)

    // The limits panel, or its unavailable form when there is no reading at all.
    Q_PROPERTY(QString limitsTitle READ limitsTitle CONSTANT)
    Q_PROPERTY(bool hasLimitReadings READ hasLimitReadings NOTIFY panelsChanged)
    Q_PROPERTY(QVariantMap headline READ headline NOTIFY panelsChanged)
    Q_PROPERTY(QVariantList limitGroups READ limitGroups NOTIFY panelsChanged)
    Q_PROPERTY(QVariantMap unavailable READ unavailable NOTIFY panelsChanged)
    // The "Today" panel: two or three figure columns and the split by source.
    Q_PROPERTY(QString todayTitle READ todayTitle CONSTANT)
    Q_PROPERTY(QVariantList todayColumns READ todayColumns NOTIFY panelsChanged)
    Q_PROPERTY(QVariantList sourceShares READ sourceShares NOTIFY panelsChanged)

public:
    // `trayHint` is shown under the header when the desktop has no tray to hold the icon;
    // empty otherwise.
    PopoverModel(StatusModel *status, QString trayHint,
                 WorkPanelModel::Links links = WorkPanelModel::linksFrom({}),
                 QObject *parent = nullptr);

    QString title() const { return QStringLiteral("quon-brix"); }
    QString statusPill() const;
    QString subtitle() const;
    bool loading() const { return !m_status->hasStatus(); }
    QString loadingText() const { return QStringLiteral("Starting meter…"); }
    QString trayHint() const { return m_trayHint; }
    QString quitLabel() const { return QStringLiteral("Quit"); }
    QString quitHelp() const { return QStringLiteral("Stop the meter and quit QuonBrix"); }

    WorkPanelModel *work() const { return m_work; }
    QUrl quitSymbol() const;
    Q_INVOKABLE void quit();
    // The image for one of the screens' symbol names (theme icon or bundled drawing).
    Q_INVOKABLE QUrl symbol(const QString &name) const;

    QString limitsTitle() const { return panel_text::limitsTitle; }
    bool hasLimitReadings() const { return m_hasLimitReadings; }
    QVariantMap headline() const { return m_headline; }
    QVariantList limitGroups() const { return m_limitGroups; }
    QVariantMap unavailable() const { return m_unavailable; }
    QString todayTitle() const { return panel_text::todayTitle; }
    QVariantList todayColumns() const { return m_todayColumns; }
    QVariantList sourceShares() const { return m_sourceShares; }

    // Relative times ("resets in 3 hr.") age while the status stays the same; the popover
    // asks for fresh wording each time it opens.
    void refreshTexts();
    // Time, locale and zone the panels are worded in; the system's unless set.
    void setContext(const Clock *clock, QLocale locale, QTimeZone zone);

    // One line telling how to get a tray icon on this desktop, from XDG_CURRENT_DESKTOP.
    static QString noTrayHint(const QString &currentDesktop);

Q_SIGNALS:
    void headerChanged();
    void quitRequested();
    void panelsChanged();

private:
    StatusModel *m_status;
    QString m_trayHint;
    WorkPanelModel *m_work;
    const Clock *m_clock = &SystemClock::instance();
    QLocale m_locale;
    QTimeZone m_zone = QTimeZone::systemTimeZone();

    bool m_hasLimitReadings = false;
    QVariantMap m_headline;
    QVariantList m_limitGroups;
    QVariantMap m_unavailable;
    QVariantList m_todayColumns;
    QVariantList m_sourceShares;
};

} // namespace quonbrix
