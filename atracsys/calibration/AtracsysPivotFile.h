#pragma once

#include <Eigen/Core>

#include <optional>
#include <string>

namespace Kestrion {

/// Writes a tool tip into a marker geometry file as its [pivot] section ("x", "y", "z": the tip
/// in the marker's frame, millimetres), keeping every other line of the file as it is.
class AtracsysPivotFile {
public:
    /// `text` without its [pivot] section (if any) and with a new one holding `tip` at the end,
    /// in the text's own line ends.
    static std::string withPivot(const std::string& text, const Eigen::Vector3d& tip);

    /// Puts `tip` into the geometry file at `path`: the new text goes to a temporary file in the
    /// same folder that is then renamed over it, so the file holds the old or the whole new text.
    /// False, with the reason in `error` and the file untouched, when it cannot be read, is not a
    /// marker geometry file (no [geometry] section), is read-only or cannot be replaced.
    static bool save(const std::string& path, const Eigen::Vector3d& tip, std::string& error);
    /// Writes withPivot(text, tip) to `path` (a new file, or one replaced) the same way. A file
    /// that exists and is read-only is refused: a rename could replace it, but its owner said no.
    /// False, with the reason naming the file in `error` and nothing changed, on failure.
    static bool writeWithPivot(const std::string& path, const std::string& text, const Eigen::Vector3d& tip,
                               std::string& error);

    /// The fiducial count of a geometry text (the "count" key of its [geometry] section, a plain
    /// decimal number); empty when there is none.
    static std::optional<unsigned> fiducialCount(const std::string& text);
    /// The tip of a geometry text's [pivot] section; empty when there is none or a coordinate is
    /// missing or not a finite number (as the geometry reader takes it).
    static std::optional<Eigen::Vector3d> pivotOf(const std::string& text);
};

} // namespace Kestrion
