#pragma once

#include "atracsys/device/IniFile.h"

#include <Eigen/Core>

#include <optional>

namespace Kestrion::SpryTrack::AtracsysHelpers {

// The tool tip of a marker geometry file: an optional [pivot] section with "x", "y" and "z", the
// tip in the marker's frame in millimetres (the point the tool is pivoted about when it is
// calibrated). A file without the section has no tip.

/// The tip of the geometry file read into `ini`: empty when the file has no [pivot] section, and
/// also, with a warning naming geometry `geometryId` and the problem, when the section lacks a
/// coordinate or a coordinate is not a finite number. Unlike the fiducial coordinates the tip's
/// are read strictly: a tip read wrongly would move every tip position silently.
std::optional<Eigen::Vector3d> readPivot(const IniFile& ini, unsigned geometryId);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
