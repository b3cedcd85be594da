#pragma once

#include <Eigen/Core>

namespace Kestrion::Simulator {

/// Least-squares rigid transform between two point sets (the SVD method with the reflection
/// guard): finds R, t minimising sum |R * from[i] + t - to[i]|^2.
class RigidFit {
public:
    /// Returns the root mean square of the residuals (mm). Needs n >= 3 non-collinear points for
    /// a unique rotation.
    static double fit(const Eigen::Vector3d* from, const Eigen::Vector3d* to, int n,
                      Eigen::Matrix3d& rotation, Eigen::Vector3d& translation);
};

} // namespace Kestrion::Simulator
