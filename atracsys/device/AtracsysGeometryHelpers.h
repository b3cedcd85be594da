#pragma once

#include "atracsys/device/AtracsysGeometryFileCheck.h"
#include "atracsys/device/IniFile.h"

#include <ftkInterface.h>

#include <Eigen/Core>

#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack::AtracsysHelpers {

// Marker geometry files: an INI text with a [geometry] section holding "count" and "id", and
// sections [fiducial0] to [fiducial<count-1>] holding "x", "y" and "z" in millimetres. Other
// sections and keys are ignored; section order is free. An optional [pivot] section holds the
// tool tip (AtracsysPivotSection.h).

/// True if `ini` holds `section`; else logs the missing section and returns false.
bool checkSection(IniFile& ini, const std::string& section);

/// True if `section` exists and holds `key`; else logs the missing key and returns false.
bool checkKey(IniFile& ini, const std::string& section, const std::string& key);

/// Stores the key's value read as a base-10 integer (strtol, truncated to 32 bits) in `*out`.
/// Non-numeric text gives 0 (or its numeric prefix). False, with `*out` untouched, when the key
/// is missing.
bool assignUint32(IniFile& ini, const std::string& section, const std::string& key, unsigned* out);

/// Stores the key's value read by strtod, rounded to single precision, in `*out`. Non-numeric
/// text gives 0. False, with `*out` untouched, when the key is missing.
bool assignFloatXX(IniFile& ini, const std::string& section, const std::string& key, float* out);

/// Reads a whole geometry text into a zero-initialised geometry record; empty when the text is
/// malformed, a section or key is missing, or it has more fiducials than the record holds.
std::optional<ftkGeometry> loadFile(std::istream& in);

/// Reads the geometry file at `path`; paths beginning with ":/" name compiled-in resources.
/// Empty when the file cannot be opened or loadFile fails.
std::optional<ftkGeometry> loadGeometry(const std::string& path);

/// A geometry file's content: the SDK's record and the tool tip in the marker's frame, if any.
struct GeometryFile {
    ftkGeometry geometry;
    std::optional<Eigen::Vector3d> tip;
    /// What will not work as the file's author meant (logged as warnings by the load).
    std::vector<GeometryFileFinding> findings;
};

/// loadGeometry with the file's tip: the same record, messages and failures, and the tip of its
/// [pivot] section (readPivot).
std::optional<GeometryFile> loadGeometryFile(const std::string& path);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
