#include "simulator/src/ImageRenderer.h"

#include "simulator/src/Random.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Kestrion::Simulator {

namespace {

/// Extra noise bytes beyond one image, so that each frame can start the pattern elsewhere.
constexpr std::size_t NoiseSlack = 8192;
/// Dark level of the sensor (grey levels).
constexpr int DarkLevel = 6;

} // namespace

ImageRenderer::ImageRenderer(int width, int height, std::uint64_t seed)
    : m_width(width)
    , m_height(height)
    , m_seed(seed) {}

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

void ImageRenderer::render(const std::vector<Blob>& blobs, std::uint64_t frameIndex, int peak,
                           std::uint8_t* image) {
    const std::size_t size = static_cast<std::size_t>(m_width) * m_height;
    if (m_noise.empty()) {
        // Dark level plus or minus a few grey levels; eight pixels per random draw.
        m_noise.resize(size + NoiseSlack);
        Random random(m_seed);
        for (std::size_t i = 0; i < m_noise.size(); i += 8) {
            std::uint64_t bits = random.next();
            for (std::size_t k = i; k < std::min(i + 8, m_noise.size()); ++k, bits >>= 8) {
                m_noise[k] = static_cast<std::uint8_t>(DarkLevel - 2 + static_cast<int>((bits & 0xFF) % 5));
            }
        }
    }
    const std::size_t offset = (frameIndex * 2654435761ull) % NoiseSlack;
    std::memcpy(image, m_noise.data() + offset, size);
    for (const Blob& blob : blobs) {
        // Anti-aliased disc: full brightness inside, a one-pixel ramp across the rim.
        const int x0 = std::max(0, static_cast<int>(std::floor(blob.x - blob.radius - 1.0)));
        const int x1 = std::min(m_width - 1, static_cast<int>(std::ceil(blob.x + blob.radius + 1.0)));
        const int y0 = std::max(0, static_cast<int>(std::floor(blob.y - blob.radius - 1.0)));
        const int y1 = std::min(m_height - 1, static_cast<int>(std::ceil(blob.y + blob.radius + 1.0)));
        for (int y = y0; y <= y1; ++y) {
            const double dy = y + 0.5 - blob.y;
            std::uint8_t* row = image + static_cast<std::size_t>(y) * m_width;
            for (int x = x0; x <= x1; ++x) {
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
