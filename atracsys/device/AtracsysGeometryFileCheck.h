#pragma once

#include "atracsys/device/IniFile.h"

#include <ftkInterface.h>

#include <string>
#include <vector>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// Something about a geometry file that loaded but will not work as its author meant, in words
/// beginning with the path: a value that is not a number (named with the section and key; the
/// value the load read stands), all fiducials at one point, fewer than three fiducials.
struct GeometryFileFinding {
    std::string text;
    /// The camera refuses the geometry (fewer than three fiducials).
    bool refusedByCamera = false;
};

/// The findings about a geometry file, in the order of the file.
std::vector<GeometryFileFinding> geometryFileFindings(const IniFile& ini, const ftkGeometry& geometry,
                                                      const std::string& path);

/// Logs each finding at warning level, empty category, as "AtracsysTracking: " and its text.
void warnAboutGeometryFile(const std::vector<GeometryFileFinding>& findings);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
