#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion::Cli {

/// The options of `kestrion pivot`.
struct PivotOptions {
    /// The marker geometry file of the tool (INI); ":/..." names a file compiled into a plugin.
    std::string geometry;
    /// Accepted frames after which the recording ends.
    std::size_t frames = 500;
    /// Writes the tip found into the geometry file.
    bool save = false;

    /// Parses the arguments; on a bad argument returns nothing and sets *error.
    static std::optional<PivotOptions> parse(const std::vector<std::string>& arguments, std::string* error);
};

} // namespace Kestrion::Cli
