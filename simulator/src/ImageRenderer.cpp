#include "simulator/src/ImageRenderer.h"

#include "simulator/src/Random.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

namespace {

/// Dark level of the sensor (grey levels).
constexpr int DarkLevel = 6;

} // namespace

ImageRenderer::ImageRenderer(int width, int height, std::uint64_t seed)
    : m_width(width)
    , m_height(height)
    , m_seed(seed) {
    makeBackground(0);
    makeBackground(1);
}

bool ImageRenderer::measure(const Blob& blob, ftkRawData& raw) const {
    // Row by row, the pixels whose centres lie inside the disc form one run.
    const int y0 = std::max(0, static_cast<int>(std::floor(blob.y - blob.radius)));
    const int y1 = std::min(m_height - 1, static_cast<int>(std::ceil(blob.y + blob.radius)));
    const double r2 = blob.radius * blob.radius;
    std::uint32_t count = 0;
    int minX = m_width;
    int maxX = -1;
    int minY = m_height;
    int maxY = -1;
    for (int y = y0; y <= y1; ++y) {
        const double dy = y + 0.5 - blob.y;
        const double span2 = r2 - dy * dy;
        if (span2 < 0.0) {
            continue;
        }
        const double span = std::sqrt(span2);
        // Pixel x is inside when |x + 0.5 - centre| <= span.
        const int first = std::max(0, static_cast<int>(std::ceil(blob.x - span - 0.5)));
        const int last = std::min(m_width - 1, static_cast<int>(std::floor(blob.x + span - 0.5)));
        if (last < first) {
            continue;
        }
        count += static_cast<std::uint32_t>(last - first + 1);
        minX = std::min(minX, first);
        maxX = std::max(maxX, last);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    if (count == 0) {
        return false;
    }
    raw.pixelsCount = count;
    raw.width = static_cast<std::uint16_t>(maxX - minX + 1);
    raw.height = static_cast<std::uint16_t>(maxY - minY + 1);
    ftkStatus status{};
    status.LeftEdge = minX == 0 ? 1u : 0u;
    status.RightEdge = maxX == m_width - 1 ? 1u : 0u;
    status.TopEdge = minY == 0 ? 1u : 0u;
    status.BottomEdge = maxY == m_height - 1 ? 1u : 0u;
    raw.status = status;
    return true;
}

void ImageRenderer::makeBackground(int side) {
    // The dark level, with 1 in 64 pixels one grey level above it and 1 in 64 one below (a few
    // land on the same pixel). Made with the device rather than at its first image, so that the
    // first frame with images is as quick as the next ones.
    std::vector<std::uint8_t>& pixels = m_backgrounds[side];
    pixels.assign(static_cast<std::size_t>(m_width) * m_height, static_cast<std::uint8_t>(DarkLevel));
    Random random(Random::mix(m_seed, static_cast<std::uint64_t>(side)));
    for (std::size_t i = 0; i < pixels.size() / 32; ++i) {
        pixels[random.next() % pixels.size()] = static_cast<std::uint8_t>(DarkLevel + (i % 2 == 0 ? 1 : -1));
    }
    // Never NoBackground, and different for every camera and sensor size.
    m_keys[side] = Random::mix(m_seed, pixels.size() * 2 + static_cast<std::uint64_t>(side)) | 1u;
}

void ImageRenderer::draw(int side, const std::vector<Blob>& blobs, int peak, SensorImage& image) {
    const std::vector<std::uint8_t>& dark = m_backgrounds[side];
    if (image.background() != m_keys[side] || image.size() != dark.size()) {
        image.reset(dark, m_keys[side]);
    } else {
        image.restore(dark, m_width);
    }
    std::uint8_t* pixels = image.data();
    for (const Blob& blob : blobs) {
        // Anti-aliased disc: full brightness inside, a one-pixel ramp across the rim.
        SensorImage::Box box;
        box.x0 = std::max(0, static_cast<int>(std::floor(blob.x - blob.radius - 1.0)));
        box.x1 = std::min(m_width - 1, static_cast<int>(std::ceil(blob.x + blob.radius + 1.0)));
        box.y0 = std::max(0, static_cast<int>(std::floor(blob.y - blob.radius - 1.0)));
        box.y1 = std::min(m_height - 1, static_cast<int>(std::ceil(blob.y + blob.radius + 1.0)));
        if (box.x1 < box.x0 || box.y1 < box.y0) {
            continue;
        }
        image.addBox(box);
        for (int y = box.y0; y <= box.y1; ++y) {
            const double dy = y + 0.5 - blob.y;
            std::uint8_t* row = pixels + static_cast<std::size_t>(y) * m_width;
            for (int x = box.x0; x <= box.x1; ++x) {
                const double dx = x + 0.5 - blob.x;
                const double coverage =
                    std::clamp(blob.radius + 0.5 - std::sqrt(dx * dx + dy * dy), 0.0, 1.0);
                if (coverage > 0.0) {
                    const int value = row[x] + static_cast<int>(coverage * peak + 0.5);
                    row[x] = static_cast<std::uint8_t>(std::min(255, std::max<int>(row[x], value)));
                }
            }
        }
    }
}

} // namespace Kestrion::Simulator
