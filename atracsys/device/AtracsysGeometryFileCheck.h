#pragma once

#include "atracsys/device/IniFile.h"

#include <ftkInterface.h>

#include <string>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// Warnings, in words, about a geometry file that loaded but will not work as its author meant:
/// a value that is not a number (named with the file, section and key; the value the load read
/// stands), all fiducials at one point, fewer than three fiducials (the camera refuses those).
/// Logged at warning level, empty category, each beginning "AtracsysTracking: " and the path.
void warnAboutGeometryFile(const IniFile& ini, const ftkGeometry& geometry, const std::string& path);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
