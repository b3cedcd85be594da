#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion {
class TrackingStreamData;
}

namespace Kestrion::Ros2 {

struct Ros2Settings;

/// What a tracking frame puts on ROS 2, in ROS 2's conventions (metres, quaternions, frame names)
/// and without DDS: the transforms of /tf, a pose per tool and the fiducials as points.
///
/// Frames. Without a reference every tracked tool is a child of the camera's frame. With a
/// reference chosen (the frame's ReferencePoseData) the reference is the camera's child and every
/// other tool the reference's child, posed in it, as a ROS 2 tree has each frame under one parent:
/// while the reference is not seen no other tool is published. A tool with a tip has the child
/// "<tool>_tip" (the tip's offset in the tool's frame, no rotation). Only tracked tools
/// (isInstrumentTracked) are published.
struct Ros2FrameContent {
    struct Transform {
        std::string parent;
        std::string child;
        Eigen::Vector3d translationM = Eigen::Vector3d::Zero();
        Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
    };
    struct Pose {
        std::string tool;
        std::string frameId; ///< the frame the pose is given in
        Eigen::Vector3d positionM = Eigen::Vector3d::Zero();
        Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();
    };

    /// The frame's time (capture time when known), microseconds since the epoch, UTC.
    std::uint64_t stampUS = 0;
    std::vector<Transform> transforms;
    std::vector<Pose> poses;
    /// Every tool of the frame, tracked or not, by its ROS name (its pose topic exists).
    std::vector<std::string> tools;
    /// x, y, z of each raw fiducial of the frame, metres, in the camera's frame.
    std::vector<float> fiducials;
    /// Whether the frame carries raw fiducials at all (a fiducial mode is on), even none.
    bool hasFiducials = false;

    /// Replaces the content with that of `frame`, reusing the storage.
    void fill(const TrackingStreamData& frame, const Ros2Settings& settings);
    /// A rotation as a unit quaternion with w >= 0.
    static Eigen::Quaterniond quaternion(const Eigen::Matrix3d& rotation);
};

} // namespace Kestrion::Ros2
