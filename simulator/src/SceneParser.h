#pragma once

#include "simulator/src/SceneDescription.h"

#include <string>

namespace Kestrion::Simulator {

/// Reads scenes (and single faults) from JSON. Every problem is reported with the place in the
/// document where it was found, for example "markers[1].motion.periodS: must be positive".
class SceneParser {
public:
    /// Parses a scene. `baseDir` resolves relative file names inside it (geometry and trajectory
    /// files); `source` names the scene in messages.
    static bool parse(const std::string& jsonText, const std::string& baseDir, const std::string& source,
                      SceneDescription& scene, std::string& error);
    /// Reads and parses a scene file.
    static bool parseFile(const std::string& path, SceneDescription& scene, std::string& error);
    /// Parses one fault object, as in a device's "faults" list.
    static bool parseFault(const std::string& jsonText, FaultRule& fault, std::string& error);
};

} // namespace Kestrion::Simulator
