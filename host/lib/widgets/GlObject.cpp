#include "host/lib/widgets/GlObject.h"

#include "host/lib/widgets/GlView.h"

#include <QPainter>
#include <QPen>
#include <QTransform>

#include <algorithm>

namespace Kestrion {

GlObject::GlObject() = default;

GlObject::~GlObject() {
    // removeObject() takes the view out of m_views, so iterate over a copy.
    const std::vector<GlView*> views = m_views;
    for (GlView* view : views)
        view->removeObject(this);
}

void GlObject::setColor(double red, double green, double blue, double alpha) {
    m_color = Eigen::Vector4d(red, green, blue, alpha);
    changed();
}

void GlObject::setLineWidth(double width) {
    m_lineWidth = width;
    changed();
}

void GlObject::setPointSize(double size) {
    m_pointSize = size;
    changed();
}

void GlObject::setVisible(bool visible) {
    m_visible = visible;
    changed();
}

void GlObject::changed() {
    for (GlView* view : m_views)
        view->update();
}

QPen GlObject::pen() const {
    const auto channel = [](double value) { return std::clamp(value, 0.0, 1.0); };
    QPen result(QColor::fromRgbF(channel(m_color.x()), channel(m_color.y()), channel(m_color.z()),
                                 channel(m_color.w())));
    result.setWidthF(std::max(m_lineWidth, 0.0));
    result.setCapStyle(Qt::FlatCap);
    return result;
}

void GlObject::paintPoints(QPainter& painter, const QTransform& imageToView,
                           const std::vector<Eigen::Vector3d>& points) const {
    if (m_pointSize <= 0.0)
        return;
    const QColor color = pen().color();
    const double half = m_pointSize / 2.0;
    for (const Eigen::Vector3d& point : points) {
        const QPointF centre = imageToView.map(QPointF(point.x(), point.y()));
        painter.fillRect(QRectF(centre.x() - half, centre.y() - half, m_pointSize, m_pointSize), color);
    }
}

} // namespace Kestrion
