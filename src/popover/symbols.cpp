#include "popover/symbols.h"

#include <QHash>
#include <QIcon>
#include <QImageReader>
#include <QPainter>

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
        add("chevron.left", "go-previous-symbolic", true);
        add("chevron.right", "go-next-symbolic", true);
        add("play.fill", "media-playback-start-symbolic", true);
        add("pause.fill", "media-playback-pause-symbolic", true);
        add("xmark", "window-close-symbolic", true);
        add("checkmark", "object-select-symbolic", true);
        add("record.circle.fill", "media-record-symbolic", true);
        add("pause.circle.fill", "media-playback-pause-symbolic", true);
        add("checkmark.circle.fill", "emblem-ok-symbolic", true);
        add("exclamationmark.triangle.fill", "dialog-warning-symbolic", true);
        add("arrow.triangle.2.circlepath", "view-refresh-symbolic", true);
        add("person.crop.circle.badge.plus", "contact-new-symbolic", true);
        add("rectangle.3.group", "view-grid-symbolic", true);
        add("gauge.with.dots.needle.50percent", "utilities-system-monitor-symbolic", true);
        add("list.bullet.rectangle", "view-list-symbolic", true);
        add("terminal", "utilities-terminal-symbolic", true);
        add("arrow.up.right.square", "", true);
        add("doc.text", "text-x-generic-symbolic", true);
        add("doc.on.doc", "edit-copy-symbolic", true);
        add("square.and.arrow.down", "document-save-symbolic", true);
        add("gauge.medium", "utilities-system-monitor-symbolic", true);
        add("person.2", "system-users-symbolic", true);
        add("number", "", true);
        add("arrow.down.circle", "software-update-available-symbolic", true);
        add("power.circle", "system-run-symbolic", true);
        return m;
    }();
    return t;
}

} // namespace

SymbolIcon symbolIcon(const QString &symbol) {
    return table().value(symbol);
}

SymbolImageProvider::SymbolImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage SymbolImageProvider::requestImage(const QString &request, QSize *size,
                                         const QSize &requestedSize) {
    const QSize wanted = requestedSize.isValid() ? requestedSize : QSize(16, 16);
    // "name@rrggbb": the symbol in that colour. Theme symbols come in the theme's own grey and
    // ours in a fixed one; the screen's colour (green for a running timer, orange, …) and the
    // dark or light text colour are put on here.
    const qsizetype at = request.lastIndexOf(QLatin1Char('@'));
    const QString id = at < 0 ? request : request.left(at);
    const QColor tint = at < 0 ? QColor() : QColor(QLatin1Char('#') + request.mid(at + 1));
    const SymbolIcon icon = symbolIcon(id);
    QImage image;
    if (!icon.themeName.isEmpty() && QIcon::hasThemeIcon(icon.themeName)) {
        image = QIcon::fromTheme(icon.themeName).pixmap(wanted).toImage();
    } else if (!icon.bundled.isEmpty()) {
        QImageReader reader(icon.bundled);
        reader.setScaledSize(wanted);
        image = reader.read();
    }
    if (tint.isValid() && !image.isNull()) {
        image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), tint);
    }
    if (size)
        *size = image.size();
    return image;
}

} // namespace quonbrix
