#pragma once

#include "host/calibration/ToolTipFileFormat.h"

namespace Kestrion {

/// The marker geometry files of the plugin (INI, ".ini") as the host sees them for tool tips: the
/// fiducial count of the [geometry] section and the tip of the [pivot] section, read and written
/// by AtracsysPivotFile. Resources of the plugin (":/...") are read as well.
class AtracsysToolTipFileFormat : public ToolTipFileFormat {
public:
    bool claims(const std::string& path) const override;
    std::optional<Facts> read(const std::string& path, std::string& error) const override;
    bool saveTip(const std::string& path, const Eigen::Vector3d& tip, std::string& error) const override;
};

} // namespace Kestrion
