#include "host/calibration/PivotCalibration.h"

#include "host/core/Log.h"

#include <Eigen/Eigenvalues>
#include <Eigen/SVD>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace Kestrion {

namespace {

constexpr const char* Category = "PivotCalibration";
constexpr double DegPerRad = 180.0 / 3.14159265358979323846;
// Below these a tool held still in the hand (or lying on the table) is taken as not turned or
// not moved; the noise of a tracked pose stays far below both.
constexpr double StillDeg = 2.0;
constexpr double StillMM = 2.0;
constexpr int MaxRounds = 10;

using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Vector6d = Eigen::Matrix<double, 6, 1>;

double angleDeg(const Eigen::Matrix4d& a, const Eigen::Matrix4d& b) {
    // trace(A^T B) without forming the product.
    const double trace = a.topLeftCorner<3, 3>().cwiseProduct(b.topLeftCorner<3, 3>()).sum();
    return std::acos(std::clamp((trace - 1.0) / 2.0, -1.0, 1.0)) * DegPerRad;
}

std::string fixed(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

} // namespace

PivotCalibration::PivotCalibration()
    : m_settings() {}

PivotCalibration::PivotCalibration(Settings settings)
    : m_settings(settings) {}

double PivotCalibration::angularSpreadDeg(const std::vector<Eigen::Matrix4d>& poses) {
    if (poses.size() < 2)
        return 0.0;
    Eigen::Matrix3d sum = Eigen::Matrix3d::Zero();
    for (const auto& pose : poses)
        sum += pose.topLeftCorner<3, 3>();
    // The rotation nearest to the sum (its polar factor) is the orientations' mean.
    Eigen::JacobiSVD<Eigen::Matrix3d> svd(sum, Eigen::ComputeFullU | Eigen::ComputeFullV);
    Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
    d(2, 2) = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0 ? -1.0 : 1.0;
    Eigen::Matrix4d mean = Eigen::Matrix4d::Identity();
    mean.topLeftCorner<3, 3>() = svd.matrixU() * d * svd.matrixV().transpose();

    std::size_t farthest = 0;
    double largest = -1.0;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const double angle = angleDeg(mean, poses[i]);
        if (angle > largest) {
            largest = angle;
            farthest = i;
        }
    }
    double spread = 0.0;
    for (const auto& pose : poses)
        spread = std::max(spread, angleDeg(poses[farthest], pose));
    return spread;
}

PivotCalibration::Result PivotCalibration::solve(const std::vector<Eigen::Matrix4d>& poses) {
    Result result;
    const std::size_t n = poses.size();
    if (n < m_settings.minFrames)
        return refuse(result, Outcome::TooFewFrames,
                      std::to_string(n) + " frames recorded, at least " +
                          std::to_string(m_settings.minFrames) + " are needed");

    result.spreadDeg = angularSpreadDeg(poses);
    if (result.spreadDeg < StillDeg) {
        Eigen::Vector3d mean = Eigen::Vector3d::Zero();
        for (const auto& pose : poses)
            mean += pose.topRightCorner<3, 1>();
        mean /= static_cast<double>(n);
        double extent = 0.0;
        for (const auto& pose : poses)
            extent = std::max(extent, (pose.topRightCorner<3, 1>() - mean).norm());
        if (extent < StillMM)
            return refuse(result, Outcome::NeverMoved,
                          "the tool never moved: its orientations stay within " + fixed(result.spreadDeg, 1) +
                              " degrees and its positions within " + fixed(extent, 1) + " mm");
        return refuse(result, Outcome::Translated,
                      "the tool was moved without turning about a fixed tip: its positions spread over " +
                          fixed(extent, 1) + " mm while its orientations stay within " +
                          fixed(result.spreadDeg, 1) + " degrees");
    }
    if (result.spreadDeg < m_settings.minSpreadDeg)
        return refuse(result, Outcome::SmallSpread,
                      "the orientations spread over only " + fixed(result.spreadDeg, 1) +
                          " degrees, at least " + fixed(m_settings.minSpreadDeg, 0) +
                          " are needed: tilt the tool further about its tip");

    m_used.assign(n, 1);
    m_residuals.resize(n);
    for (int round = 0; round < MaxRounds; ++round) {
        if (!solveFrames(poses, result))
            return refuse(result, Outcome::SingleAxis,
                          "the tool turned about one axis only, which leaves the tip along that axis "
                          "undetermined: tilt it in more than one direction");
        m_sorted.clear();
        for (std::size_t i = 0; i < n; ++i) {
            const Eigen::Matrix4d& pose = poses[i];
            m_residuals[i] = (pose.topLeftCorner<3, 3>() * result.tipInMarker + pose.topRightCorner<3, 1>() -
                              result.pivotInCamera)
                                 .norm();
            if (m_used[i])
                m_sorted.push_back(m_residuals[i]);
        }
        const auto middle = m_sorted.begin() + static_cast<std::ptrdiff_t>(m_sorted.size() / 2);
        std::nth_element(m_sorted.begin(), middle, m_sorted.end());
        const double threshold = std::max(m_settings.outlierFactor * *middle, m_settings.outlierFloorMM);
        bool changed = false;
        std::size_t used = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const char keep = m_residuals[i] <= threshold ? 1 : 0;
            changed = changed || keep != m_used[i];
            m_used[i] = keep;
            used += static_cast<std::size_t>(keep);
        }
        if (!changed || used < m_settings.minFrames)
            break;
    }

    double sum = 0.0;
    result.usedFrames = 0;
    for (std::size_t i = 0; i < n; ++i)
        if (m_used[i]) {
            sum += m_residuals[i] * m_residuals[i];
            ++result.usedFrames;
        }
    result.rejectedFrames = n - result.usedFrames;
    result.rmsMM = result.usedFrames ? std::sqrt(sum / static_cast<double>(result.usedFrames)) : 0.0;
    if (result.usedFrames < m_settings.minFrames || result.rejectedFrames * 2 > n)
        return refuse(result, Outcome::NoFixedTip,
                      "no fixed tip: only " + std::to_string(result.usedFrames) + " of " + std::to_string(n) +
                          " frames agree on one, keep the tip in its divot while tilting the tool");
    if (result.rmsMM > m_settings.maxRmsMM)
        return refuse(result, Outcome::NoFixedTip,
                      "no fixed tip: the RMS residual is " + fixed(result.rmsMM, 2) + " mm, at most " +
                          fixed(m_settings.maxRmsMM, 2) +
                          " mm are expected, keep the tip in its divot while tilting the tool");
    result.outcome = Outcome::Solved;
    return result;
}

bool PivotCalibration::solveFrames(const std::vector<Eigen::Matrix4d>& poses, Result& result) const {
    // Normal equations of [R_i | -I] x = -t_i over the used frames: the 6x6 system is summed in
    // one pass instead of forming the 3n x 6 matrix.
    Eigen::Matrix3d sumR = Eigen::Matrix3d::Zero();
    Eigen::Vector3d sumT = Eigen::Vector3d::Zero();
    Eigen::Vector3d sumRtT = Eigen::Vector3d::Zero();
    double count = 0.0;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        if (!m_used[i])
            continue;
        const auto rotation = poses[i].topLeftCorner<3, 3>();
        const auto translation = poses[i].topRightCorner<3, 1>();
        sumR += rotation;
        sumT += translation;
        sumRtT.noalias() += rotation.transpose() * translation;
        count += 1.0;
    }
    Matrix6d normal;
    normal.topLeftCorner<3, 3>() = count * Eigen::Matrix3d::Identity();
    normal.topRightCorner<3, 3>() = -sumR.transpose();
    normal.bottomLeftCorner<3, 3>() = -sumR;
    normal.bottomRightCorner<3, 3>() = count * Eigen::Matrix3d::Identity();
    Vector6d rhs;
    rhs << -sumRtT, sumT;

    // The singular values of the stacked matrix are the square roots of the normal matrix's
    // eigenvalues; their ratio, not an absolute bound, tells a missing direction.
    Eigen::SelfAdjointEigenSolver<Matrix6d> eigen(normal);
    const Vector6d& values = eigen.eigenvalues(); // ascending
    if (values(5) <= 0.0 || values(0) <= 0.0 || std::sqrt(values(0) / values(5)) < m_settings.rankCutoff)
        return false;
    const Vector6d x = eigen.eigenvectors() * (eigen.eigenvectors().transpose() * rhs).cwiseQuotient(values);
    result.tipInMarker = x.head<3>();
    result.pivotInCamera = x.tail<3>();
    return true;
}

PivotCalibration::Result PivotCalibration::refuse(Result result, Outcome outcome,
                                                  const std::string& reason) const {
    result.outcome = outcome;
    result.refusal = reason;
    KESTRION_LOG_WARN(Category, "Pivot calibration refused: " << reason);
    return result;
}

} // namespace Kestrion
