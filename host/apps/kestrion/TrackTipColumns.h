#pragma once

#include "host/apps/kestrion/TrackConfiguration.h"

#include <Eigen/Core>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

/// The tool tip columns of `kestrion track`: for each tracked instrument whose geometry has a tip
/// (a [pivot] section), the tip's position in camera coordinates, in the table and in the CSV file.
/// The table shows the column once a tip was seen; the CSV file has it when a marker geometry
/// file has a tip, so that recordings without tips keep their columns.
class TrackTipColumns {
public:
    /// Whether one of the targets' geometry files has a tip, as the loaded plugin that owns their
    /// format reads them (ToolTipFileFormats). Resources (":/...") are read from the plugins.
    static bool anyTip(const std::vector<TrackConfiguration::Target>& targets);

    /// ",tip_x_mm,tip_y_mm,tip_z_mm".
    static const char* csvHeader();
    /// The instrument's tip in the frame as ",x,y,z" (",,," when it has none in the frame), into
    /// `out` of `size` bytes; the length written, as snprintf returns it.
    static int csvFields(char* out, std::size_t size, const TrackingStreamData& frame, const std::string& id);

    /// The tip of the instrument in the frame, if it has one there.
    static std::optional<Eigen::Vector3d> tipOf(const TrackingStreamData& frame, const std::string& id);
    /// The table's column title, and a cell ("x, y, z", or "-"), both of one width.
    static std::string tableHeader();
    static std::string tableCell(const std::optional<Eigen::Vector3d>& tip);
    /// A table cell of the width of these columns, so that the columns after it line up.
    static std::string paddedCell(const char* text);
};

} // namespace Kestrion::Cli
