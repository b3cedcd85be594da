#pragma once

#include <ftkInterface.h>

#include <array>
#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// The measurement of one frame as a device produced it (detections, 3D fiducials, images),
/// before it is copied into a caller's frame record. Markers are found per library handle, from
/// the geometries registered through it. Devices keep one and refill it for every new frame, so
/// its vectors keep their capacity.
struct FrameData {
    std::uint64_t index = 0;       ///< Frame counter since the device started.
    std::uint64_t timestampUS = 0; ///< Device time of exposure, microseconds since the device started.
    std::vector<ftkRawData> rawLeft;
    std::vector<ftkRawData> rawRight;
    std::vector<ftk3DFiducial> fiducials;

    /// The images come with the frame (a replay). A measured frame's images are drawn straight
    /// into each caller's record instead (Device::drawImagesLocked).
    bool hasImages = false;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    std::vector<std::uint8_t> imageLeft; ///< width * height bytes, row after row.
    std::vector<std::uint8_t> imageRight;

    /// A frame of a recording (ReplaySource): the device's own counter and desynchronisation,
    /// the container statuses and the markers as the camera delivered them.
    bool replayed = false;
    std::uint32_t counter = 0;
    std::uint64_t desynchroUS = 0;
    /// Image header, left and right image, left and right raw data, fiducials, markers, events.
    std::array<std::int8_t, 8> recordedStatuses{};
    std::vector<ftkMarker> recordedMarkers;
};

/// Container status overrides a fault script may impose on one delivery.
struct DeliveryFaults {
    bool overrideMarkers = false;
    ftkQueryStatus markersStatus = ftkQueryStatus::QS_OK;
};

} // namespace Kestrion::Simulator
