#pragma once

#include <Eigen/Core>

#include <optional>
#include <vector>

namespace Kestrion::Math {

/// Fits the transform T that maps the points `from` onto the points `to` (point i onto point i)
/// in the weighted least-squares sense: it minimises sum_i w_i * |T * from_i - to_i|^2.
///
/// T is a 4x4 matrix with the rotation (times the scale, see below) in the upper-left 3x3 block,
/// the translation in the last column and (0 0 0 1) as the last row. The rotation is always proper
/// (determinant +1): a mirrored point set is fitted with the best rotation, never with a reflection.
///
/// `weights` holds one finite, non-negative weight per point; only the ratios matter. Points with a
/// weight of 0 take no part in the fit.
///
/// When `rms` is not null it receives the weighted RMS residual of the fitted transform,
/// sqrt(sum_i w_i |T from_i - to_i|^2 / sum_i w_i), in the units of the points.
///
/// `allowScaling`: false (the default) fits a rigid transform (rotation and translation).
/// true fits a similarity transform: rotation, translation and one uniform scale factor s > 0,
/// so that the upper-left block is s * R.
///
/// Fails, returning an empty optional, leaving *rms untouched and logging a warning under the
/// category "Math" that names the problem, when:
/// - `from` and `to` (or `weights`) differ in size, or there are fewer than 3 points;
/// - a weight is negative or not finite, or all weights are 0;
/// - a coordinate is not finite;
/// - the weighted points of `from` or of `to` are coincident or collinear (the rotation about
///   their common line is then undetermined).
/// The result is never NaN. Allocation free: safe to call from a cost function.
std::optional<Eigen::Matrix4d> fitRigidTransform(const std::vector<Eigen::Vector3d>& from,
                                                 const std::vector<Eigen::Vector3d>& to,
                                                 const std::vector<double>& weights, double* rms = nullptr,
                                                 bool allowScaling = false);

/// The unweighted fit: every point has the weight 1. Same result, failures and `allowScaling`.
std::optional<Eigen::Matrix4d> fitRigidTransform(const std::vector<Eigen::Vector3d>& from,
                                                 const std::vector<Eigen::Vector3d>& to,
                                                 double* rms = nullptr, bool allowScaling = false);

/// Maps a point through an affine 4x4 transform: upper-left 3x3 block times the point plus the
/// last column. The last row is taken to be (0 0 0 1) and is not read (no projective division).
inline Eigen::Vector3d transformPointAffine(const Eigen::Matrix4d& transform, const Eigen::Vector3d& point) {
    return transform.topLeftCorner<3, 3>() * point + transform.topRightCorner<3, 1>();
}

} // namespace Kestrion::Math
