#include "host/core/Math.h"

#include "host/core/Log.h"

#include <Eigen/LU>
#include <Eigen/SVD>

#include <cmath>

namespace Kestrion::Math {

namespace {

const char* const kCategory = "Math";

// Below about this ratio of the second to the largest variance a point set is taken as collinear:
// the rotation about its line would then be set by rounding noise.
constexpr double kCollinearRatio = 1e-10;

bool allFinite(const Eigen::Vector3d& p) {
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

// The weight of point i: weights[i] or 1 for the unweighted fit (weights == nullptr).
inline double weightAt(const std::vector<double>* weights, std::size_t i) {
    return weights ? (*weights)[i] : 1.0;
}

std::optional<Eigen::Matrix4d> fit(const std::vector<Eigen::Vector3d>& from,
                                   const std::vector<Eigen::Vector3d>& to, const std::vector<double>* weights,
                                   double* rms, bool allowScaling) {
    const std::size_t n = from.size();
    if (to.size() != n) {
        KESTRION_LOG_WARN(kCategory, "fitRigidTransform: point counts differ (" << n << " source, "
                                                                                << to.size() << " target)");
        return std::nullopt;
    }
    if (weights && weights->size() != n) {
        KESTRION_LOG_WARN(kCategory,
                          "fitRigidTransform: " << weights->size() << " weights for " << n << " points");
        return std::nullopt;
    }
    if (n < 3) {
        KESTRION_LOG_WARN(kCategory, "fitRigidTransform: at least 3 points are needed, got " << n);
        return std::nullopt;
    }

    double weightSum = 0.0;
    Eigen::Vector3d fromCentroid = Eigen::Vector3d::Zero();
    Eigen::Vector3d toCentroid = Eigen::Vector3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
        const double w = weightAt(weights, i);
        if (!std::isfinite(w) || w < 0.0) {
            KESTRION_LOG_WARN(kCategory, "fitRigidTransform: weight "
                                             << i << " is " << w << " (weights must be finite and >= 0)");
            return std::nullopt;
        }
        if (!allFinite(from[i]) || !allFinite(to[i])) {
            KESTRION_LOG_WARN(kCategory, "fitRigidTransform: point " << i << " has a non-finite coordinate");
            return std::nullopt;
        }
        weightSum += w;
        fromCentroid += w * from[i];
        toCentroid += w * to[i];
    }
    if (!(weightSum > 0.0)) {
        KESTRION_LOG_WARN(kCategory, "fitRigidTransform: all weights are zero");
        return std::nullopt;
    }
    fromCentroid /= weightSum;
    toCentroid /= weightSum;

    // Weighted cross-covariance and spreads, normalised by the weight sum so that the scale of the
    // weights does not matter.
    Eigen::Matrix3d fromCov = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d toCov = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d cross = Eigen::Matrix3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
        const double w = weightAt(weights, i) / weightSum;
        const Eigen::Vector3d p = from[i] - fromCentroid;
        const Eigen::Vector3d q = to[i] - toCentroid;
        fromCov.noalias() += w * p * p.transpose();
        toCov.noalias() += w * q * q.transpose();
        cross.noalias() += w * p * q.transpose();
    }

    // Both sets must span at least a plane. With the covariance eigenvalues l1 >= l2 >= l3, the trace
    // is l1 + l2 + l3 and the sum of the principal 2x2 minors is l1 l2 + l1 l3 + l2 l3, which is about
    // l1 l2 when l3 is small: collinear sets have it at rounding level, coincident ones have no spread
    // beyond the rounding of their coordinates.
    const auto spansPlane = [](const Eigen::Matrix3d& c, const Eigen::Vector3d& centroid) {
        const double trace = c.trace();
        if (!(trace > 1e-24 * centroid.squaredNorm()) || trace <= 0.0)
            return false;
        const double minors = c(0, 0) * c(1, 1) - c(0, 1) * c(1, 0) + c(0, 0) * c(2, 2) - c(0, 2) * c(2, 0) +
                              c(1, 1) * c(2, 2) - c(1, 2) * c(2, 1);
        return minors > kCollinearRatio * trace * trace;
    };
    const bool fromSpans = spansPlane(fromCov, fromCentroid);
    if (!fromSpans || !spansPlane(toCov, toCentroid)) {
        KESTRION_LOG_WARN(kCategory, "fitRigidTransform: the " << (fromSpans ? "target" : "source")
                                                               << " points are collinear or coincident");
        return std::nullopt;
    }

    // cross = U S V^T; the best rotation is V D U^T with D = diag(1, 1, d) and d = det(V U^T), which
    // turns a reflection into the nearest proper rotation.
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(cross, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const Eigen::Matrix3d& u = svd.matrixU();
    const Eigen::Matrix3d& v = svd.matrixV();
    const double d = (v * u.transpose()).determinant() < 0.0 ? -1.0 : 1.0;
    Eigen::Matrix3d vd = v;
    vd.col(2) *= d;
    const Eigen::Matrix3d rotation = vd * u.transpose();

    double scale = 1.0;
    if (allowScaling) {
        const Eigen::Vector3d s = svd.singularValues();
        scale = (s(0) + s(1) + d * s(2)) / fromCov.trace();
    }

    Eigen::Matrix4d transform = Eigen::Matrix4d::Identity();
    transform.topLeftCorner<3, 3>() = scale * rotation;
    transform.topRightCorner<3, 1>() = toCentroid - scale * rotation * fromCentroid;

    if (rms) {
        double sum = 0.0;
        for (std::size_t i = 0; i < n; ++i)
            sum += weightAt(weights, i) * (transformPointAffine(transform, from[i]) - to[i]).squaredNorm();
        *rms = std::sqrt(sum / weightSum);
    }
    return transform;
}

} // namespace

std::optional<Eigen::Matrix4d> fitRigidTransform(const std::vector<Eigen::Vector3d>& from,
                                                 const std::vector<Eigen::Vector3d>& to,
                                                 const std::vector<double>& weights, double* rms,
                                                 bool allowScaling) {
    return fit(from, to, &weights, rms, allowScaling);
}

std::optional<Eigen::Matrix4d> fitRigidTransform(const std::vector<Eigen::Vector3d>& from,
                                                 const std::vector<Eigen::Vector3d>& to, double* rms,
                                                 bool allowScaling) {
    return fit(from, to, nullptr, rms, allowScaling);
}

} // namespace Kestrion::Math
