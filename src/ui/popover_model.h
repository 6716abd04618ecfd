#pragma once

#include "app/status_model.h"

#include <QObject>
#include <QString>
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

public:
    // `trayHint` is shown under the header when the desktop has no tray to hold the icon;
    // empty otherwise.
    PopoverModel(StatusModel *status, QString trayHint, QObject *parent = nullptr);

    QString title() const { return QStringLiteral("quon-brix"); }
    QString statusPill() const;
    QString subtitle() const;
    bool loading() const { return !m_status->hasStatus(); }
    QString loadingText() const { return QStringLiteral("Starting meter…"); }
    QString trayHint() const { return m_trayHint; }
    QString quitLabel() const { return QStringLiteral("Quit"); }
    QString quitHelp() const { return QStringLiteral("Stop the meter and quit QuonBrix"); }

    Q_INVOKABLE void quit();

    // One line telling how to get a tray icon on this desktop, from XDG_CURRENT_DESKTOP.
    static QString noTrayHint(const QString &currentDesktop);

Q_SIGNALS:
    void headerChanged();
    void quitRequested();

private:
    StatusModel *m_status;
    QString m_trayHint;
};

} // namespace quonbrix
