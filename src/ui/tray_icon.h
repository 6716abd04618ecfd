#pragma once

#include "daemon_link/records.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPointF>
#include <QRectF>
#include <array>

namespace quonbrix {

// NotMetering: the daemon is missing, keeps stopping or does not answer; the icon is dimmed.
enum class IconBadge { None, Warning, Critical, NotMetering };

// The badge the tray icon shows for a status: stale readings are dropped, every other window
// counts (the Codex session window too), 80 % warns and 95 % is critical.
IconBadge iconBadgeFor(const std::optional<DaemonStatus> &status);

// The five points of the tray icon's W wave inside `r`.
std::array<QPointF, 5> trayWavePoints(const QRectF &r);

QColor badgeColor(IconBadge badge);

// Draws the product mark for the tray: a rounded tile with the gradient W wave and, when asked,
// a badge dot in the top-right corner. 22 logical pixels square.
class TrayIconRenderer {
public:
    static constexpr int logicalSize = 22;

    // One image at the given device pixel ratio, drawn natively at that scale.
    static QImage render(IconBadge badge, qreal devicePixelRatio);
    // The icon for a badge, with crisp images for 1x, 1.5x and 2x screens; made once per
    // badge and reused for every status change.
    const QIcon &icon(IconBadge badge);

private:
    std::array<QIcon, 4> m_icons;
};

} // namespace quonbrix
