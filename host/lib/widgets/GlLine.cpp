#include "host/lib/widgets/GlLine.h"

#include <QPainter>
#include <QPen>
#include <QTransform>

namespace Kestrion {

GlLine::GlLine(const Eigen::Vector3d& from, const Eigen::Vector3d& to)
    : m_from(from)
    , m_to(to) {}

void GlLine::setPoints(const Eigen::Vector3d& from, const Eigen::Vector3d& to) {
    m_from = from;
    m_to = to;
    changed();
}

void GlLine::setDashed(bool dashed) {
    m_dashed = dashed;
    changed();
}

void GlLine::paint(QPainter& painter, const QTransform& imageToView) const {
    QPen linePen = pen();
    if (m_dashed)
        linePen.setDashPattern({4.0, 4.0}); // in line widths, as Qt counts dashes
    painter.setPen(linePen);
    painter.drawLine(imageToView.map(QPointF(m_from.x(), m_from.y())),
                     imageToView.map(QPointF(m_to.x(), m_to.y())));
    paintPoints(painter, imageToView, {m_from, m_to});
}

} // namespace Kestrion
