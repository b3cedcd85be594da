#include "host/core/Geometry.h"

#include "host/core/Log.h"

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>

#include <cmath>

namespace Kestrion::Geometry {

namespace {

const char* const kCategory = "Geometry";

// Second variance below this fraction of the largest: the points lie on a line.
constexpr double kCollinearRatio = 1e-10;
// Third moment below this fraction of sum(|coordinate|^3): the set is symmetric along the axis.
constexpr double kSymmetricRatio = 1e-9;

// Flips `axis` so that the points' coordinates along it are skewed to the positive side, or when
// they are not skewed, so that the first point off the centre plane has a positive coordinate.
void orient(Eigen::Vector3d& axis, const std::vector<Eigen::Vector3d>& points,
            const Eigen::Vector3d& centroid) {
    double moment = 0.0;
    double magnitude = 0.0;
    double largest = 0.0;
    for (const auto& p : points) {
        const double t = axis.dot(p - centroid);
        moment += t * t * t;
        magnitude += std::abs(t * t * t);
        largest = std::max(largest, std::abs(t));
    }
    if (std::abs(moment) > kSymmetricRatio * magnitude) {
        if (moment < 0.0)
            axis = -axis;
        return;
    }
    for (const auto& p : points) {
        const double t = axis.dot(p - centroid);
        if (std::abs(t) > 1e-9 * largest) {
            if (t < 0.0)
                axis = -axis;
            return;
        }
    }
}

} // namespace

bool fitAxesPCA(const std::vector<Eigen::Vector3d>& points, Eigen::Vector3d& centroid,
                std::array<Eigen::Vector3d, 3>& axes, bool allowCollinear) {
    if (points.size() < 3) {
        KESTRION_LOG_WARN(kCategory, "fitAxesPCA: at least 3 points are needed, got " << points.size());
        return false;
    }
    Eigen::Vector3d mean = Eigen::Vector3d::Zero();
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!points[i].allFinite()) {
            KESTRION_LOG_WARN(kCategory, "fitAxesPCA: point " << i << " has a non-finite coordinate");
            return false;
        }
        mean += points[i];
    }
    mean /= static_cast<double>(points.size());

    Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
    for (const auto& p : points)
        covariance.noalias() += (p - mean) * (p - mean).transpose();
    covariance /= static_cast<double>(points.size());

    // Eigenvalues come in increasing order.
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(covariance);
    if (solver.info() != Eigen::Success) {
        KESTRION_LOG_WARN(kCategory, "fitAxesPCA: the eigen decomposition did not converge");
        return false;
    }
    const Eigen::Vector3d variances = solver.eigenvalues();
    // Spread below the rounding of the coordinates themselves means the points coincide.
    if (!(variances(2) > 1e-24 * mean.squaredNorm()) || variances(2) <= 0.0) {
        KESTRION_LOG_WARN(kCategory, "fitAxesPCA: the points are coincident, no axis is defined");
        return false;
    }

    Eigen::Vector3d first = solver.eigenvectors().col(2).normalized();
    Eigen::Vector3d second;
    orient(first, points, mean);
    if (variances(1) <= kCollinearRatio * variances(2)) {
        if (!allowCollinear) {
            KESTRION_LOG_WARN(
                kCategory, "fitAxesPCA: the points are collinear, the second and third axes are undefined");
            return false;
        }
        // Any direction orthogonal to the line: take the coordinate axis least aligned with it.
        Eigen::Index least = 0;
        first.cwiseAbs().minCoeff(&least);
        second = first.cross(Eigen::Vector3d::Unit(least)).normalized();
    } else {
        second = solver.eigenvectors().col(1);
        // Remove the rounding-level overlap with the first axis.
        second = (second - second.dot(first) * first).normalized();
        orient(second, points, mean);
    }

    centroid = mean;
    axes[0] = first;
    axes[1] = second;
    axes[2] = first.cross(second);
    return true;
}

} // namespace Kestrion::Geometry
