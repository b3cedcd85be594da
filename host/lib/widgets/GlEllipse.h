#pragma once

#include "host/lib/widgets/GlObject.h"

namespace Kestrion {

/// An axis-aligned ellipse inscribed in the box spanned by two opposite corners (image
/// coordinates, see GlObject): corners (p - s/2) and (p + s/2) give the ellipse of width s.x()
/// and height s.y() centred on p. The point size draws the two corners.
class GlEllipse : public GlObject {
public:
    GlEllipse() = default;
    GlEllipse(const Eigen::Vector3d& corner1, const Eigen::Vector3d& corner2);

    void setPoints(const Eigen::Vector3d& corner1, const Eigen::Vector3d& corner2);
    const Eigen::Vector3d& corner1() const { return m_corner1; }
    const Eigen::Vector3d& corner2() const { return m_corner2; }
    Eigen::Vector3d center() const { return (m_corner1 + m_corner2) / 2.0; }

    void paint(QPainter& painter, const QTransform& imageToView) const override;

private:
    Eigen::Vector3d m_corner1 = Eigen::Vector3d::Zero();
    Eigen::Vector3d m_corner2 = Eigen::Vector3d::Zero();
};

} // namespace Kestrion
