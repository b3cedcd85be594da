#include "simulator/src/StereoCamera.h"

#include <Eigen/LU>

#include <cmath>

namespace Kestrion::Simulator {

namespace {

Eigen::Matrix3d skew(const Eigen::Vector3d& v) {
    Eigen::Matrix3d m;
    m << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
    return m;
}

} // namespace

StereoCamera::StereoCamera(const DeviceModel& model)
    : m_focal(model.focalPx)
    , m_cx(model.width / 2.0)
    , m_cy(model.height / 2.0)
    , m_width(model.width)
    , m_height(model.height) {
    m_worldToCamera[Left].setIdentity();
    m_centre[Left].setZero();

    m_centre[Right] = Eigen::Vector3d(model.baselineMM, 0.0, 0.0);
    const double toeIn = model.convergenceMM > 0.0 ? std::atan2(-model.baselineMM, model.convergenceMM) : 0.0;
    const Eigen::Matrix3d cameraToWorld =
        Eigen::AngleAxisd(toeIn, Eigen::Vector3d::UnitY()).toRotationMatrix();
    m_worldToCamera[Right] = cameraToWorld.transpose();

    // Relative pose left camera -> right camera: p_r = R p_l + t.
    const Eigen::Matrix3d r = m_worldToCamera[Right];
    const Eigen::Vector3d t = -r * m_centre[Right];
    Eigen::Matrix3d k;
    k << m_focal, 0, m_cx, 0, m_focal, m_cy, 0, 0, 1;
    const Eigen::Matrix3d kInv = k.inverse();
    m_fundamental = kInv.transpose() * skew(t) * r * kInv;
}

bool StereoCamera::project(Side side, const Eigen::Vector3d& world, Eigen::Vector2d& pixel,
                           double& depthMM) const {
    const Eigen::Vector3d c = m_worldToCamera[side] * (world - m_centre[side]);
    if (c.z() <= 1e-6) {
        return false;
    }
    pixel = Eigen::Vector2d(m_focal * c.x() / c.z() + m_cx, m_focal * c.y() / c.z() + m_cy);
    depthMM = c.z();
    return true;
}

Eigen::Vector3d StereoCamera::rayDirection(Side side, const Eigen::Vector2d& pixel) const {
    const Eigen::Vector3d inCamera((pixel.x() - m_cx) / m_focal, (pixel.y() - m_cy) / m_focal, 1.0);
    return (m_worldToCamera[side].transpose() * inCamera).normalized();
}

Eigen::Vector3d StereoCamera::triangulate(const Eigen::Vector2d& left, const Eigen::Vector2d& right,
                                          double& triangulationErrorMM) const {
    const Eigen::Vector3d d1 = rayDirection(Left, left);
    const Eigen::Vector3d d2 = rayDirection(Right, right);
    const Eigen::Vector3d w0 = m_centre[Left] - m_centre[Right];
    const double b = d1.dot(d2);
    const double d = d1.dot(w0);
    const double e = d2.dot(w0);
    const double denom = 1.0 - b * b; // both directions are unit vectors
    double s = 0.0;
    double t = e;
    if (denom > 1e-12) {
        s = (b * e - d) / denom;
        t = (e - b * d) / denom;
    }
    const Eigen::Vector3d p1 = m_centre[Left] + s * d1;
    const Eigen::Vector3d p2 = m_centre[Right] + t * d2;
    triangulationErrorMM = (p1 - p2).norm();
    return 0.5 * (p1 + p2);
}

Eigen::Vector3d StereoCamera::epipolarLine(const Eigen::Vector2d& left) const {
    const Eigen::Vector3d line = m_fundamental * Eigen::Vector3d(left.x(), left.y(), 1.0);
    const double norm = std::sqrt(line.x() * line.x() + line.y() * line.y());
    return norm > 0.0 ? Eigen::Vector3d(line / norm) : Eigen::Vector3d::Zero();
}

double StereoCamera::epipolarError(const Eigen::Vector2d& left, const Eigen::Vector2d& right) const {
    return std::abs(epipolarLine(left).dot(Eigen::Vector3d(right.x(), right.y(), 1.0)));
}

} // namespace Kestrion::Simulator
