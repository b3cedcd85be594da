#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// A fiducial's image in one camera: a bright disc.
struct Blob {
    double x = 0.0; ///< Centre, pixels.
    double y = 0.0;
    double radius = 0.0; ///< Pixels.
};

/// Draws 8-bit camera images (dark sensor noise plus one bright disc per blob) and measures blobs
/// the way the images show them, so raw detections and images agree.
class ImageRenderer {
public:
    ImageRenderer(int width, int height, std::uint64_t seed);

    /// Pixel count, bounding box and edge bits of a blob: the pixels whose centre lies inside
    /// the disc, clipped to the sensor. False when no pixel of it is on the sensor.
    bool measure(const Blob& blob, ftkRawData& raw) const;

    /// Renders one image (width * height bytes). `frameIndex` varies the noise pattern; `peak`
    /// is the grey level of a blob's centre before saturation (integration time dependent).
    void render(const std::vector<Blob>& blobs, std::uint64_t frameIndex, int peak, std::uint8_t* image);

private:
    int m_width;
    int m_height;
    std::uint64_t m_seed;
    std::vector<std::uint8_t> m_noise; ///< Dark noise, a little larger than an image; made at first use.
};

} // namespace Kestrion::Simulator
