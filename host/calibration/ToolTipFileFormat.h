#pragma once

#include <Eigen/Core>

#include <optional>
#include <string>

namespace Kestrion {

/// A marker geometry file format that can hold a tool tip. The plugin that owns the format
/// implements it and adds it to ToolTipFileFormats; the host reads and writes geometry files only
/// through it. Its calls may come from any thread.
class ToolTipFileFormat {
public:
    /// What a pivot calibration and the tip columns need to know of a geometry file.
    struct Facts {
        /// The fiducial count the file states, if it states one.
        std::optional<unsigned> fiducials;
        /// The tool tip in the marker's frame (millimetres), if the file has one.
        std::optional<Eigen::Vector3d> tip;
    };

    ToolTipFileFormat() = default;
    virtual ~ToolTipFileFormat() = default;
    ToolTipFileFormat(const ToolTipFileFormat&) = delete;
    ToolTipFileFormat& operator=(const ToolTipFileFormat&) = delete;

    /// Whether the file at `path` is of this format, judged by its name.
    virtual bool claims(const std::string& path) const = 0;
    /// The facts of the file; empty, with `error` saying which file could not be read and why,
    /// when it cannot be read.
    virtual std::optional<Facts> read(const std::string& path, std::string& error) const = 0;
    /// Writes `tip` (millimetres, in the marker's frame) into the file as its tool tip, keeping
    /// everything else in it. The file holds either its old text or the whole new one. False,
    /// with the reason in `error` and the file untouched, when that is not possible.
    virtual bool saveTip(const std::string& path, const Eigen::Vector3d& tip, std::string& error) const = 0;
};

} // namespace Kestrion
