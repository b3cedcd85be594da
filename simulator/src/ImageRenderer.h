#pragma once

#include "simulator/src/SensorImage.h"

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

/// Draws 8-bit camera images (a dark sensor background plus one bright disc per blob) and
/// measures blobs the way the images show them, so raw detections and images agree.
///
/// Each camera's background is a fixed pattern: a dark level with a few pixels one grey level
/// off, as an infrared-filtered sensor shows at short exposures. It does not change from frame
/// to frame, so only the blobs are drawn anew for each frame.
class ImageRenderer {
public:
    ImageRenderer(int width, int height, std::uint64_t seed);

    /// Pixel count, bounding box and edge bits of a blob: the pixels whose centre lies inside
    /// the disc, clipped to the sensor. False when no pixel of it is on the sensor.
    bool measure(const Blob& blob, ftkRawData& raw) const;

    /// Draws the image of camera `side` (0 left, 1 right) into `image`: its background where
    /// the previous drawing left blobs (all of it when `image` holds no background of this
    /// camera), then the blobs. `peak` is the grey level of a blob's centre before saturation
    /// (integration time dependent).
    void draw(int side, const std::vector<Blob>& blobs, int peak, SensorImage& image);

private:
    void makeBackground(int side);

    int m_width;
    int m_height;
    std::uint64_t m_seed;
    /// Background of each camera and the key naming it in a SensorImage.
    std::vector<std::uint8_t> m_backgrounds[2];
    std::uint64_t m_keys[2] = {};
};

} // namespace Kestrion::Simulator
