#include "tests/atracsys/optimization/SyntheticMarker.h"

#include "host/core/Math.h"

#include <Eigen/Geometry>

#include <cmath>

namespace Kestrion::OptimizationTest {

Points asymmetricMarker() {
    return {{0.0, 0.0, 0.0}, {52.0, 0.0, 0.0}, {18.0, 61.0, 0.0}, {-30.0, 30.0, 12.0}};
}

Points perturbed(const Points& points, double amplitude, std::mt19937& rng) {
    std::uniform_real_distribution<double> error(-amplitude, amplitude);
    Points result = points;
    for (Eigen::Vector3d& p : result)
        p += Eigen::Vector3d(error(rng), error(rng), error(rng));
    return result;
}

Eigen::Matrix4d randomPose(std::mt19937& rng) {
    std::uniform_real_distribution<double> angle(-0.5, 0.5);
    std::uniform_real_distribution<double> lateral(-150.0, 150.0);
    std::uniform_real_distribution<double> depth(800.0, 1200.0);
    const Eigen::Matrix3d rotation = (Eigen::AngleAxisd(angle(rng), Eigen::Vector3d::UnitX()) *
                                      Eigen::AngleAxisd(angle(rng), Eigen::Vector3d::UnitY()) *
                                      Eigen::AngleAxisd(3.0 * angle(rng), Eigen::Vector3d::UnitZ()))
                                         .toRotationMatrix();
    Eigen::Matrix4d pose = Eigen::Matrix4d::Identity();
    pose.topLeftCorner<3, 3>() = rotation;
    pose.topRightCorner<3, 1>() = Eigen::Vector3d(lateral(rng), lateral(rng), depth(rng));
    return pose;
}

Points observe(const Points& marker, const Eigen::Matrix4d& pose, double sigma, std::mt19937& rng) {
    std::normal_distribution<double> noise(0.0, sigma);
    Points result;
    for (const Eigen::Vector3d& p : marker)
        result.push_back(Math::transformPointAffine(pose, p) +
                         Eigen::Vector3d(noise(rng), noise(rng), noise(rng)));
    return result;
}

double alignedRms(const Points& a, const Points& b) {
    double value = -1.0;
    if (!Math::fitRigidTransform(a, b, &value))
        return -1.0;
    return value;
}

double rms(const Points& a, const Points& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += (a[i] - b[i]).squaredNorm();
    return std::sqrt(sum / static_cast<double>(a.size()));
}

Points reordered(const Points& points, const std::vector<int>& order) {
    Points result;
    for (int i : order)
        result.push_back(points[static_cast<std::size_t>(i)]);
    return result;
}

} // namespace Kestrion::OptimizationTest
