#include "ui/symbols.h"

#include <QHash>
#include <QIcon>

namespace quonbrix {

namespace {

const QHash<QString, SymbolIcon> &table() {
    static const QHash<QString, SymbolIcon> t = [] {
        QHash<QString, SymbolIcon> m;
        const auto add = [&m](const char *symbol, const char *theme, bool bundled) {
            const QString name = QString::fromLatin1(symbol);
            m.insert(name,
                     {QString::fromLatin1(theme), bundled ? QStringLiteral(":/quonbrix/symbols/") +
                                                                name + QStringLiteral(".svg")
                                                          : QString()});
        };
        add("calendar", "x-office-calendar-symbolic", true);
        add("checkmark.circle", "emblem-ok-symbolic", true);
        add("exclamationmark.triangle", "dialog-warning-symbolic", true);
        add("questionmark.circle", "dialog-question-symbolic", true);
        add("info.circle", "dialog-information-symbolic", true);
        add("ticket.fill", "", true);
        add("power", "system-shutdown-symbolic", true);
        add("clock", "appointment-soon-symbolic", true);
        add("chevron.left", "go-previous-symbolic", false);
        add("chevron.right", "go-next-symbolic", false);
        add("play.fill", "media-playback-start-symbolic", false);
        add("pause.fill", "media-playback-pause-symbolic", false);
        add("xmark", "window-close-symbolic", false);
        add("checkmark", "object-select-symbolic", false);
        add("record.circle.fill", "media-record-symbolic", false);
        add("pause.circle.fill", "media-playback-pause-symbolic", false);
        add("checkmark.circle.fill", "emblem-ok-symbolic", false);
        add("exclamationmark.triangle.fill", "dialog-warning-symbolic", false);
        add("arrow.triangle.2.circlepath", "view-refresh-symbolic", false);
        add("person.crop.circle.badge.plus", "contact-new-symbolic", false);
        add("rectangle.3.group", "view-grid-symbolic", false);
        add("gauge.with.dots.needle.50percent", "utilities-system-monitor-symbolic", false);
        add("list.bullet.rectangle", "view-list-symbolic", false);
        return m;
    }();
    return t;
}

} // namespace

SymbolIcon symbolIcon(const QString &symbol) {
    return table().value(symbol);
}

QUrl symbolSource(const QString &symbol) {
    const SymbolIcon icon = symbolIcon(symbol);
    if (!icon.themeName.isEmpty() && QIcon::hasThemeIcon(icon.themeName))
        return QUrl(QStringLiteral("image://symbol/") + icon.themeName);
    if (!icon.bundled.isEmpty())
        return QUrl(QStringLiteral("qrc") + icon.bundled);
    return {};
}

SymbolImageProvider::SymbolImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Pixmap) {}

QPixmap SymbolImageProvider::requestPixmap(const QString &id, QSize *size,
                                           const QSize &requestedSize) {
    const QSize wanted = requestedSize.isValid() ? requestedSize : QSize(16, 16);
    const QPixmap pixmap = QIcon::fromTheme(id).pixmap(wanted);
    if (size)
        *size = pixmap.size();
    return pixmap;
}

} // namespace quonbrix
