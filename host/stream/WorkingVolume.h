#pragma once

#include <Eigen/Core>

#include <array>
#include <optional>
#include <string>

namespace Kestrion {

/// The measurement volume of a tracking camera model, in the camera's coordinates (millimetres,
/// x right, y down, z forward from the camera): a frustum between two depths whose sides widen
/// with the depth. Camera plugins register the volume of each model they know under the device
/// type name their frames carry (DeviceFrameInfo::deviceType()), so that host views draw the
/// volume of any camera without knowing it.
struct WorkingVolume {
    double nearMM = 0.0;
    double farMM = 0.0;
    /// Half width and half height of the volume per millimetre of depth.
    double halfWidthPerMM = 0.0;
    double halfHeightPerMM = 0.0;

    /// The eight corners: the near face (top left, top right, bottom right, bottom left), then the
    /// far face in the same order.
    std::array<Eigen::Vector3d, 8> corners() const;
    bool contains(const Eigen::Vector3d& point) const;

    /// Registers (or replaces) the volume of a device type; from any thread.
    static void registerDeviceType(const std::string& deviceType, const WorkingVolume& volume);
    /// The volume registered for the device type, or nothing.
    static std::optional<WorkingVolume> forDeviceType(const std::string& deviceType);
};

} // namespace Kestrion
