#include "ui/tray_icon.h"

#include "features/provider_limits.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace quonbrix {

IconBadge iconBadgeFor(const std::optional<DaemonStatus> &status) {
    if (!status || !status->providerLimits)
        return IconBadge::None;
    const auto *top = highestFreshReading(*status->providerLimits);
    if (!top)
        return IconBadge::None;
    switch (limitSeverity(top->usedPercent)) {
    case LimitSeverity::Critical:
        return IconBadge::Critical;
    case LimitSeverity::Warning:
        return IconBadge::Warning;
    case LimitSeverity::Fine:
        break;
    }
    return IconBadge::None;
}

std::array<QPointF, 5> trayWavePoints(const QRectF &r) {
    const qreal w = r.width();
    const qreal h = r.height();
    const qreal mid = r.center().y();
    return {QPointF(r.left(), mid - 0.10 * h), QPointF(r.left() + 0.24 * w, mid + 0.22 * h),
            QPointF(r.left() + 0.48 * w, mid - 0.13 * h),
            QPointF(r.left() + 0.70 * w, mid + 0.20 * h), QPointF(r.right(), mid - 0.15 * h)};
}

QColor badgeColor(IconBadge badge) {
    switch (badge) {
    case IconBadge::Warning:
        return QColor(255, 149, 0);
    case IconBadge::Critical:
        return QColor(255, 59, 48);
    case IconBadge::None:
    case IconBadge::NotMetering:
        break;
    }
    return {};
}

QImage TrayIconRenderer::render(IconBadge badge, qreal devicePixelRatio) {
    const int px = qRound(logicalSize * devicePixelRatio);
    QImage image(px, px, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);

    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    // Not metering: the same mark, faded, so the panel shows at a glance that figures stopped.
    if (badge == IconBadge::NotMetering)
        p.setOpacity(0.4);
    const QRectF canvas(0, 0, logicalSize, logicalSize);

    // A dark tile keeps the gradient readable on light and dark panels alike.
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(28, 32, 46));
    p.drawRoundedRect(canvas.adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);

    const QRectF waveBox = canvas.adjusted(4, 5, -4, -5);
    QLinearGradient gradient(waveBox.left(), 0, waveBox.right(), 0);
    gradient.setColorAt(0.0, QColor::fromRgbF(0.0f, 0.74f, 1.0f));
    gradient.setColorAt(0.5, QColor::fromRgbF(0.38f, 0.42f, 1.0f));
    gradient.setColorAt(1.0, QColor::fromRgbF(0.76f, 0.35f, 1.0f));
    QPen pen(QBrush(gradient), 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    pen.setMiterLimit(10);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    const auto points = trayWavePoints(waveBox);
    QPainterPath wave(points[0]);
    for (size_t i = 1; i < points.size(); ++i)
        wave.lineTo(points[i]);
    p.drawPath(wave);

    if (badge == IconBadge::Warning || badge == IconBadge::Critical) {
        p.setPen(QPen(Qt::black, 1));
        p.setBrush(badgeColor(badge));
        p.drawEllipse(QRectF(logicalSize - 1 - 7, 1, 7, 7).adjusted(0.5, 0.5, -0.5, -0.5));
    }
    return image;
}

const QIcon &TrayIconRenderer::icon(IconBadge badge) {
    QIcon &icon = m_icons[size_t(badge)];
    if (icon.isNull()) {
        for (const qreal dpr : {1.0, 1.5, 2.0})
            icon.addPixmap(QPixmap::fromImage(render(badge, dpr)));
    }
    return icon;
}

} // namespace quonbrix
