#pragma once

#include "simulator/src/DeviceModel.h"
#include "simulator/src/FaultRule.h"
#include "simulator/src/Motion.h"
#include "simulator/src/OptionTable.h"

#include <Eigen/Core>

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::Simulator {

/// A time interval in which some fiducials of a marker are hidden from one or both cameras.
struct Occlusion {
    double fromS = 0.0;
    double toS = 0.0;
    std::vector<int> fiducials; ///< Indices into the marker's fiducials; empty: all of them.
    bool left = true;
    bool right = true;
};

/// A marker in the scene: its true fiducials (marker frame, mm), motion and occlusions.
struct MarkerDescription {
    std::uint32_t geometryId = 0;
    std::vector<Eigen::Vector3d> fiducials; ///< True positions, manufacturing error included.
    Motion motion;
    std::vector<Occlusion> occlusions;
};

/// Initial value of one device option, by name or id.
struct OptionSetting {
    std::string name;
    std::optional<std::uint32_t> id;
    bool isText = false;
    double number = 0.0;
    std::string text;
};

/// A camera in the scene.
struct DeviceDescription {
    std::uint64_t serial = 0;
    DeviceModel model;
    std::vector<OptionSetting> options;
    std::vector<OptionDefinition> extraOptions; ///< Offered after the model's own options.
    std::vector<FaultRule> faults;
};

/// Everything a scene file holds, validated.
struct SceneDescription {
    std::vector<DeviceDescription> devices;
    std::vector<MarkerDescription> markers;
    std::vector<Eigen::Vector3d> strays; ///< Stray fiducials (camera frame, mm), always static.
    std::uint64_t seed = 0;
    std::string source; ///< File name or "built-in default scene", for messages.
};

} // namespace Kestrion::Simulator
