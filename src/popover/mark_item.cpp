#include "popover/mark_item.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace quonbrix {

std::array<QPointF, 5> markWavePoints(const QRectF &r) {
    const qreal w = r.width();
    const qreal h = r.height();
    const qreal mid = r.center().y();
    return {QPointF(r.left(), mid - 0.12 * h), QPointF(r.left() + 0.24 * w, mid + 0.20 * h),
            QPointF(r.left() + 0.47 * w, mid - 0.14 * h),
            QPointF(r.left() + 0.70 * w, mid + 0.18 * h), QPointF(r.right(), mid - 0.16 * h)};
}

MarkItem::MarkItem(QQuickItem *parent)
    : QQuickPaintedItem(parent) {
    setAntialiasing(true);
    setImplicitSize(34, 34);
}

void MarkItem::paint(QPainter *p) {
    const QRectF tile(0, 0, width(), height());
    p->setRenderHint(QPainter::Antialiasing);
    QLinearGradient background(tile.topLeft(), tile.bottomRight());
    background.setColorAt(0.0, QColor::fromRgbF(0.0f, 0.74f, 1.0f));
    background.setColorAt(0.5, QColor::fromRgbF(0.38f, 0.42f, 1.0f));
    background.setColorAt(1.0, QColor::fromRgbF(0.76f, 0.35f, 1.0f));
    p->setPen(Qt::NoPen);
    p->setBrush(background);
    p->drawRoundedRect(tile, tile.width() * 0.24, tile.height() * 0.24);

    const QRectF box = tile.adjusted(tile.width() * 0.2, tile.height() * 0.25, -tile.width() * 0.2,
                                     -tile.height() * 0.25);
    const auto points = markWavePoints(box);
    QPainterPath wave(points[0]);
    for (size_t i = 1; i < points.size(); ++i)
        wave.lineTo(points[i]);
    p->setPen(QPen(Qt::white, qMax<qreal>(1.5, tile.width() * 0.08), Qt::SolidLine, Qt::RoundCap,
                   Qt::RoundJoin));
    p->setBrush(Qt::NoBrush);
    p->drawPath(wave);
}

} // namespace quonbrix
