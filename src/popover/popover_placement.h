#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <optional>

namespace quonbrix {

// Where the popover's top-left corner goes: centred under (or, for a panel at the bottom,
// over) the tray icon when the tray tells where it is, else at the pointer, else in the top
// right corner; always kept inside the screen's available area.
QPoint popoverPosition(QSize popover, std::optional<QRect> trayIcon, std::optional<QPoint> cursor,
                       QRect available, int gap = 6);

} // namespace quonbrix
