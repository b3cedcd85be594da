#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// The content of a camera recording, as plain values: what the camera library delivered for
/// each frame and what described the camera when the recording began. The fields follow the
/// camera interface's records one for one (same units, same meaning), but nothing here depends
/// on that interface, so the recording can be read where no camera library is present.
namespace Kestrion::Recording {

/// Container statuses of a frame, as the camera library's signed 8-bit query statuses
/// (0 ok, -1 skipped, 1 overflow, 2 invalid reserved size).
enum class Container : std::uint8_t {
    ImageHeader,
    ImageLeft,
    ImageRight,
    RawLeft,
    RawRight,
    Fiducials,
    Markers,
    Events,
    Count
};

/// One blob detected in one camera image.
struct RawDetection {
    float centerXPixels = 0.f;
    float centerYPixels = 0.f;
    std::uint32_t status = 0;
    std::uint32_t pixelsCount = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
};

/// One triangulated fiducial.
struct Fiducial {
    std::uint32_t status = 0;
    std::uint32_t leftIndex = 0;
    std::uint32_t rightIndex = 0;
    std::array<float, 3> positionMM{};
    float epipolarErrorPixels = 0.f;
    float triangulationErrorMM = 0.f;
    float probability = 0.f;
};

/// One detected marker.
struct Marker {
    static constexpr std::size_t MaxFiducials = 6;
    static constexpr std::uint32_t InvalidIndex = 0xFFFFFFFFu;

    std::uint32_t status = 0;
    std::uint32_t trackingId = 0;
    std::uint32_t geometryId = 0;
    std::uint32_t presenceMask = 0;
    std::array<std::uint32_t, MaxFiducials> correspondences{};
    std::array<float, 9> rotation{}; ///< Row-major.
    std::array<float, 3> translationMM{};
    float registrationErrorMM = 0.f;
};

/// The image header of a frame.
struct ImageHeader {
    std::uint64_t timestampUS = 0;
    std::uint64_t desynchroUS = 0;
    std::uint32_t counter = 0;
    std::uint8_t format = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    std::int32_t strideBytes = 0;
};

/// One frame as delivered. Vectors keep their capacity when a Frame is reused.
struct Frame {
    std::uint64_t hostTimeUS = 0; ///< When the host received it (microseconds since the epoch, UTC).
    std::array<std::int8_t, static_cast<std::size_t>(Container::Count)> statuses{};
    bool hasImageHeader = false;
    ImageHeader header;
    std::vector<RawDetection> rawLeft;
    std::vector<RawDetection> rawRight;
    std::vector<Fiducial> fiducials;
    std::vector<Marker> markers;
    /// Both camera images (header.width x header.height bytes each, row after row), or none.
    bool hasImages = false;
    std::vector<std::uint8_t> imageLeft;
    std::vector<std::uint8_t> imageRight;

    std::int8_t status(Container c) const { return statuses[static_cast<std::size_t>(c)]; }
    void setStatus(Container c, std::int8_t value) { statuses[static_cast<std::size_t>(c)] = value; }
    /// Bytes the frame holds (for the bounds of a queue of frames).
    std::size_t byteSize() const;
};

/// One device option and the value it had when the recording began.
struct OptionValue {
    enum class Type : std::uint8_t { Int32 = 0, Float32 = 1, Data = 3 };
    std::uint32_t id = 0;
    std::string name;
    Type type = Type::Int32;
    bool readable = false; ///< False: the value could not be read, the fields below are empty.
    std::int32_t intValue = 0;
    float floatValue = 0.f;
    std::string data;
};

/// One marker geometry registered on the camera.
struct Geometry {
    std::uint32_t id = 0;
    std::uint8_t version = 0;
    std::vector<std::array<float, 3>> pointsMM;
    std::string path; ///< The file it came from.
};

/// A geometry registered on the camera while the recording ran, before frame `beforeFrame`
/// (the number of frames recorded until then).
struct AddedGeometry {
    std::uint64_t beforeFrame = 0;
    Geometry geometry;
};

/// The camera was lost and reopened while the recording ran: no frame between `interruptedUS`
/// (the loss) and `resumedUS` (the camera back), before frame `beforeFrame` (the number of frames
/// recorded until then). The frames after it come from the same camera, whose frame counter and
/// clock may have started anew.
struct Gap {
    std::uint64_t beforeFrame = 0;
    std::uint64_t interruptedUS = 0; ///< Microseconds since the epoch, UTC.
    std::uint64_t resumedUS = 0;     ///< Microseconds since the epoch, UTC.
};

/// What described the camera when the recording began.
struct SessionHeader {
    std::int32_t deviceType = 0; ///< The camera library's device type value.
    std::uint64_t serialNumber = 0;
    std::string deviceName;
    std::uint64_t startedUS = 0; ///< Microseconds since the epoch, UTC.
    bool withImages = false;
    std::vector<OptionValue> options;
    std::vector<Geometry> geometries;
};

} // namespace Kestrion::Recording
