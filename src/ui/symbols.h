#pragma once

#include <QQuickImageProvider>
#include <QString>
#include <QUrl>

namespace quonbrix {

// The screens name their symbols once (the names the product's designs use); this maps each
// to a freedesktop icon-theme name and to the drawing bundled with the app for desktops whose
// theme lacks it.
struct SymbolIcon {
    QString themeName; // empty: no usual theme icon, always the bundled one
    QString bundled;   // resource path, empty when nothing is bundled
};
SymbolIcon symbolIcon(const QString &symbol);

// The image URL for a symbol: the theme's icon through the "symbol" image provider when the
// theme has one, else the bundled drawing; empty for an unknown symbol.
QUrl symbolSource(const QString &symbol);

// Serves image://symbol/<theme name> from the icon theme for QML images.
class SymbolImageProvider : public QQuickImageProvider {
public:
    SymbolImageProvider();
    QPixmap requestPixmap(const QString &id, QSize *size, const QSize &requestedSize) override;
};

} // namespace quonbrix
