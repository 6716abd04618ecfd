#pragma once

#include <QQuickImageProvider>
#include <QString>

namespace quonbrix {

// The screens name their symbols once (the names the product's designs use); this maps each
// to a freedesktop icon-theme name and to the drawing bundled with the app for desktops whose
// theme lacks it.
struct SymbolIcon {
    QString themeName; // empty: no usual theme icon, always the bundled one
    QString bundled;   // resource path, empty when nothing is bundled
};
SymbolIcon symbolIcon(const QString &symbol);

// Serves image://symbol/<symbol name>: the icon theme's picture when the theme has one, else
// the bundled drawing; nothing for an unknown name.
class SymbolImageProvider : public QQuickImageProvider {
public:
    SymbolImageProvider();
    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;
};

} // namespace quonbrix
