#pragma once

#include <Eigen/Core>

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::Simulator {

/// Reads a marker geometry INI file ("[geometry]" with count= and id=, "[fiducialN]" with x=, y=,
/// z= in mm). Used for scene markers that name their geometry file.
class GeometryIni {
public:
    /// Parses the text; false with a reason in `error` when a section or key is missing or a
    /// number does not parse.
    static bool parse(const std::string& text, std::uint32_t& id, std::vector<Eigen::Vector3d>& points,
                      std::string& error);
    static bool load(const std::string& path, std::uint32_t& id, std::vector<Eigen::Vector3d>& points,
                     std::string& error);
};

} // namespace Kestrion::Simulator
