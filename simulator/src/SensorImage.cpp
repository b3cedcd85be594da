#include "simulator/src/SensorImage.h"

#include <cstring>

namespace Kestrion::Simulator {

namespace {

/// Room for the blobs of a busy frame, reserved once so that drawing does not allocate.
constexpr std::size_t BoxesReserved = 256;

} // namespace

void SensorImage::reset(const std::vector<std::uint8_t>& background, std::uint64_t key) {
    m_pixels.assign(background.begin(), background.end());
    m_background = key;
    m_boxes.clear();
    m_boxes.reserve(BoxesReserved);
}

void SensorImage::restore(const std::vector<std::uint8_t>& background, int width) {
    for (const Box& box : m_boxes) {
        const std::size_t count = static_cast<std::size_t>(box.x1 - box.x0 + 1);
        for (int y = box.y0; y <= box.y1; ++y) {
            const std::size_t at = static_cast<std::size_t>(y) * width + box.x0;
            std::memcpy(m_pixels.data() + at, background.data() + at, count);
        }
    }
    m_boxes.clear();
}

void SensorImage::assign(const std::vector<std::uint8_t>& pixels) {
    m_pixels.assign(pixels.begin(), pixels.end());
    m_background = NoBackground;
    m_boxes.clear();
}

void SensorImage::clear() {
    m_pixels.clear();
    m_background = NoBackground;
    m_boxes.clear();
}

} // namespace Kestrion::Simulator
