#pragma once

#include "simulator/src/DeviceModel.h"

#include <Eigen/Core>
#include <Eigen/Geometry>

namespace Kestrion::Simulator {

/// Pinhole stereo pair. World coordinates are the left camera's (origin at its optical centre,
/// x right, y down, z forward, millimetres). The right camera sits at (baseline, 0, 0) and is
/// turned about y so that the two optical axes cross at the convergence depth.
class StereoCamera {
public:
    enum Side { Left = 0, Right = 1 };

    explicit StereoCamera(const DeviceModel& model);

    /// Pixel position of a world point in one camera, and its depth along that camera's axis.
    /// False when the point is behind the camera.
    bool project(Side side, const Eigen::Vector3d& world, Eigen::Vector2d& pixel, double& depthMM) const;

    /// Midpoint of the closest approach of the two viewing rays, and the length of the shortest
    /// segment between the rays (the triangulation error, mm).
    Eigen::Vector3d triangulate(const Eigen::Vector2d& left, const Eigen::Vector2d& right,
                                double& triangulationErrorMM) const;

    /// Distance in pixels of the right point from the epipolar line of the left point.
    double epipolarError(const Eigen::Vector2d& left, const Eigen::Vector2d& right) const;
    /// The epipolar line of a left point in the right image, scaled so that line . (x, y, 1) is
    /// the signed distance in pixels (computed once per left point when pairing many).
    Eigen::Vector3d epipolarLine(const Eigen::Vector2d& left) const;

    double focalPx() const { return m_focal; }
    int width() const { return m_width; }
    int height() const { return m_height; }

private:
    Eigen::Vector3d rayDirection(Side side, const Eigen::Vector2d& pixel) const;

    double m_focal;
    double m_cx;
    double m_cy;
    int m_width;
    int m_height;
    Eigen::Matrix3d m_worldToCamera[2]; ///< Rotation world -> camera.
    Eigen::Vector3d m_centre[2];        ///< Optical centres in world coordinates.
    Eigen::Matrix3d m_fundamental;      ///< x_right^T F x_left = 0.
};

} // namespace Kestrion::Simulator
