#include "popover/popover_placement.h"

#include <algorithm>

namespace quonbrix {

QPoint popoverPosition(QSize popover, std::optional<QRect> trayIcon, std::optional<QPoint> cursor,
                       QRect available, int gap) {
    QRect anchor;
    if (trayIcon && trayIcon->isValid() && !trayIcon->isEmpty())
        anchor = *trayIcon;
    else if (cursor)
        anchor = QRect(*cursor, QSize(1, 1));
    else
        return QPoint(available.right() + 1 - popover.width() - gap, available.top() + gap);

    int x = anchor.center().x() - popover.width() / 2;
    // A panel in the lower half of the screen opens the popover upwards.
    const bool below = anchor.center().y() < available.center().y();
    int y = below ? anchor.bottom() + 1 + gap : anchor.top() - gap - popover.height();

    const int maxX = available.right() + 1 - popover.width() - gap;
    const int maxY = available.bottom() + 1 - popover.height() - gap;
    x = std::max(available.left() + gap, std::min(x, maxX));
    y = std::max(available.top() + gap, std::min(y, maxY));
    return {x, y};
}

} // namespace quonbrix
