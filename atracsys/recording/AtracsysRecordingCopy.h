#pragma once

#include "recording/RecordingTypes.h"

#include <ftkInterface.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion::SpryTrack {

/// Turns what the camera library delivers into the recording's values.
class AtracsysRecordingCopy {
public:
    /// Copies a fetched frame as delivered: header, statuses, raw detections, 3D fiducials and
    /// markers (as many as each container's count says, bounded by its capacity) and, when
    /// `images` and both images are there, the two images. `out` keeps its buffers' capacity.
    static void copyFrame(const ftkFrameQuery& frame, bool images, std::uint64_t hostTimeUS,
                          Recording::Frame& out);

    /// A geometry registered on the camera, with the file it came from.
    static Recording::Geometry geometry(const std::string& path, const ftkGeometry& geometry);

    /// What describes the camera: type, serial number, display name, every option with the value
    /// it has now (read through the library; the caller holds the device's lock), and the
    /// geometries (file path, record) registered on it.
    static Recording::SessionHeader
    sessionHeader(ftkLibrary library, std::uint64_t serial, ftkDeviceType type, const std::string& name,
                  const std::vector<std::pair<std::string, ftkGeometry>>& geometries, bool images);
};

} // namespace Kestrion::SpryTrack
