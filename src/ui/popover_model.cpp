#include "ui/popover_model.h"

namespace quonbrix {

PopoverModel::PopoverModel(StatusModel *status, QString trayHint, QObject *parent)
    : QObject(parent)
    , m_status(status)
    , m_trayHint(std::move(trayHint)) {
    connect(m_status, &StatusModel::statusChanged, this, &PopoverModel::headerChanged);
}

QString PopoverModel::statusPill() const {
    if (!m_status->hasStatus())
        return QStringLiteral("Starting");
    return QStringLiteral("Local meter");
}

QString PopoverModel::subtitle() const {
    if (!m_status->hasStatus())
        return QStringLiteral("Local meter daemon");
    return QStringLiteral("Local only · no account needed");
}

void PopoverModel::quit() {
    Q_EMIT quitRequested();
}

QString PopoverModel::noTrayHint(const QString &currentDesktop) {
    const QStringList desktops = currentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
        return QStringLiteral("No tray icon: enable the AppIndicator extension "
                              "(gnome-shell-extension-appindicator) and start QuonBrix again.");
    return QStringLiteral("No tray icon: add a system tray to your panel (waybar: the \"tray\" "
                          "module) and start QuonBrix again.");
}

} // namespace quonbrix
