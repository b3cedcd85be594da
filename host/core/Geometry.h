#pragma once

#include <Eigen/Core>

#include <array>
#include <vector>

namespace Kestrion::Geometry {

/// Principal axes of a point cloud.
///
/// On success returns true and writes the centroid (mean of the points) and three orthonormal axes:
/// - order: axes[0] is the direction of largest variance, axes[1] of the second largest, axes[2] of
///   the smallest (for a planar set, the plane's normal);
/// - handedness: axes[2] == axes[0].cross(axes[1]), so the matrix whose rows are axes[0..2] is a
///   proper rotation. It maps a point p to coordinates along the axes: R * (p - centroid);
/// - sign of axes[0] and axes[1]: chosen so that the third moment of the points along the axis,
///   sum((a . (p - centroid))^3), is positive, which does not depend on the order of the points.
///   When that moment vanishes (a set symmetric about the plane through the centroid normal to the
///   axis), the first point in list order with a non-zero coordinate along the axis gets a positive
///   coordinate. axes[2] follows from handedness.
/// Where two variances are equal (a square, a regular polygon), any orthonormal pair spanning their
/// plane is a valid answer; the one returned is deterministic for a given input.
///
/// Fails, returning false with a warning under the category "Geometry" and leaving the outputs
/// untouched, for fewer than 3 points, a non-finite coordinate, or coincident points (no axis is
/// defined). Collinear points define only axes[0] (along the line): with `allowCollinear` false (the
/// default) they fail; with true, axes[1] is completed by an arbitrary but deterministic unit vector
/// orthogonal to the line (the signs rule above cannot apply to it) and axes[2] by handedness.
bool fitAxesPCA(const std::vector<Eigen::Vector3d>& points, Eigen::Vector3d& centroid,
                std::array<Eigen::Vector3d, 3>& axes, bool allowCollinear = false);

} // namespace Kestrion::Geometry
