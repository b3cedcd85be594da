#pragma once

#include <optional>
#include <string>

namespace Kestrion::Ros2 {

/// Where and under which names a ROS 2 publisher puts a tracking stream.
struct Ros2Settings {
    /// The DDS domain, as ROS 2's ROS_DOMAIN_ID (0 to 232); none: ROS_DOMAIN_ID when it is set,
    /// else 0.
    std::optional<int> domainId;
    /// The namespace of the pose and fiducial topics: /<namespace>/<tool>/pose.
    std::string nameSpace = "atracsys";
    /// The frame the camera's measurements are in (frame_id of /tf and of the messages).
    std::string frameId = "atracsys_camera";
    /// The network interface (name or IPv4 address) to publish on; empty: the loopback interface
    /// only, discovery by unicast to 127.0.0.1 and no multicast, so that only this computer sees
    /// the data. DDS has no authentication: every computer of a named interface's network can
    /// read (and also publish) the data.
    std::string networkInterface;
    /// Seconds between two /diagnostics messages when nothing changes.
    double diagnosticsPeriodS = 1.0;
};

} // namespace Kestrion::Ros2
