#pragma once

#include "simulator/src/SceneDescription.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

namespace Kestrion::Simulator {

/// Reads the devices of a scene: model settings, initial option values, extra options and
/// faults. Throws SceneJson::SceneError naming the place of a problem.
class DeviceSceneParser {
public:
    /// One entry of "devices"; `index` gives the default serial.
    static DeviceDescription device(const nlohmann::json& d, const std::string& where, std::size_t index);
    /// One fault object.
    static FaultRule fault(const nlohmann::json& f, const std::string& where);
};

} // namespace Kestrion::Simulator
