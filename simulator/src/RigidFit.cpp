#include "simulator/src/RigidFit.h"

#include <Eigen/Dense>

#include <cmath>

namespace Kestrion::Simulator {

double RigidFit::fit(const Eigen::Vector3d* from, const Eigen::Vector3d* to, int n, Eigen::Matrix3d& rotation,
                     Eigen::Vector3d& translation) {
    Eigen::Vector3d cf = Eigen::Vector3d::Zero();
    Eigen::Vector3d ct = Eigen::Vector3d::Zero();
    for (int i = 0; i < n; ++i) {
        cf += from[i];
        ct += to[i];
    }
    cf /= n;
    ct /= n;
    Eigen::Matrix3d h = Eigen::Matrix3d::Zero();
    for (int i = 0; i < n; ++i) {
        h += (from[i] - cf) * (to[i] - ct).transpose();
    }
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(h, Eigen::ComputeFullU | Eigen::ComputeFullV);
    Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
    if ((svd.matrixV() * svd.matrixU().transpose()).determinant() < 0.0) {
        d(2, 2) = -1.0;
    }
    rotation = svd.matrixV() * d * svd.matrixU().transpose();
    translation = ct - rotation * cf;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += (rotation * from[i] + translation - to[i]).squaredNorm();
    }
    return std::sqrt(sum / n);
}

} // namespace Kestrion::Simulator
