#pragma once

#include "host/lib/widgets/GlObject.h"

namespace Kestrion {

/// A straight line between two points (image coordinates, see GlObject), solid or dashed.
/// The point size draws the two end points.
class GlLine : public GlObject {
public:
    GlLine() = default;
    GlLine(const Eigen::Vector3d& from, const Eigen::Vector3d& to);

    void setPoints(const Eigen::Vector3d& from, const Eigen::Vector3d& to);
    const Eigen::Vector3d& from() const { return m_from; }
    const Eigen::Vector3d& to() const { return m_to; }

    /// Drawn as dashes rather than a solid line (off by default).
    void setDashed(bool dashed);
    bool isDashed() const { return m_dashed; }

    void paint(QPainter& painter, const QTransform& imageToView) const override;

private:
    Eigen::Vector3d m_from = Eigen::Vector3d::Zero();
    Eigen::Vector3d m_to = Eigen::Vector3d::Zero();
    bool m_dashed = false;
};

} // namespace Kestrion
