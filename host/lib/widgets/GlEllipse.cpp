#include "host/lib/widgets/GlEllipse.h"

#include <QPainter>
#include <QTransform>

namespace Kestrion {

GlEllipse::GlEllipse(const Eigen::Vector3d& corner1, const Eigen::Vector3d& corner2)
    : m_corner1(corner1)
    , m_corner2(corner2) {}

void GlEllipse::setPoints(const Eigen::Vector3d& corner1, const Eigen::Vector3d& corner2) {
    m_corner1 = corner1;
    m_corner2 = corner2;
    changed();
}

void GlEllipse::paint(QPainter& painter, const QTransform& imageToView) const {
    const QPointF a = imageToView.map(QPointF(m_corner1.x(), m_corner1.y()));
    const QPointF b = imageToView.map(QPointF(m_corner2.x(), m_corner2.y()));
    painter.setPen(pen());
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(QRectF(a, b).normalized());
    paintPoints(painter, imageToView, {m_corner1, m_corner2});
}

} // namespace Kestrion
