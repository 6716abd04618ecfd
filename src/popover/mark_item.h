#pragma once

#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>
#include <array>

namespace quonbrix {

// The five points of the popover mark's W wave inside `r` (a flatter cousin of the tray's).
std::array<QPointF, 5> markWavePoints(const QRectF &r);

// The product mark in its small rounded tile, for the popover header.
class MarkItem : public QQuickPaintedItem {
    Q_OBJECT
    QML_NAMED_ELEMENT(QuonBrixMark)

public:
    explicit MarkItem(QQuickItem *parent = nullptr);
    void paint(QPainter *painter) override;
};

} // namespace quonbrix
