#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <vector>

namespace Kestrion::Simulator {

/// How a marker moves: its pose (marker frame -> camera frame) as a function of device time.
struct Motion {
    enum class Kind { Static, Orbit, Sinusoid, Trajectory, Pivot };

    /// One recorded pose of a trajectory.
    struct Sample {
        double timeS = 0.0;
        Eigen::Vector3d position = Eigen::Vector3d::Zero();
        Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
    };

    Kind kind = Kind::Static;
    Eigen::Vector3d position =
        Eigen::Vector3d(0, 0, 700); ///< Static position, sinusoid centre, orbit centre.
    Eigen::Vector3d rotationDeg = Eigen::Vector3d::Zero();  ///< Base orientation, R = Rz * Ry * Rx.
    Eigen::Vector3d axis = Eigen::Vector3d::UnitY();        ///< Orbit: normal of the orbit plane.
    double radiusMM = 0.0;                                  ///< Orbit radius.
    Eigen::Vector3d amplitudeMM = Eigen::Vector3d::Zero();  ///< Sinusoid: translation amplitude per axis.
    Eigen::Vector3d amplitudeDeg = Eigen::Vector3d::Zero(); ///< Orbit, sinusoid: rotation wobble per axis.
    double periodS = 1.0;
    double phaseDeg = 0.0;
    std::vector<Sample> samples; ///< Trajectory, sorted by time.
    bool loop = true;            ///< Trajectory: repeat after the last sample (else hold it).
    /// Pivot: the tool tip (marker frame) rests at pivotPoint (camera frame) while the marker,
    /// tilted by coneDeg from its base orientation, sweeps once round the cone per period.
    Eigen::Vector3d tip = Eigen::Vector3d::Zero();
    Eigen::Vector3d pivotPoint = Eigen::Vector3d(0, 0, 700);
    double coneDeg = 0.0;

    /// Pose at device time t (seconds since the device started).
    Eigen::Isometry3d poseAt(double timeS) const;

    /// Rotation from x, y, z angles in degrees (applied x first, then y, then z).
    static Eigen::Matrix3d rotationFromDegrees(const Eigen::Vector3d& degrees);
};

} // namespace Kestrion::Simulator
