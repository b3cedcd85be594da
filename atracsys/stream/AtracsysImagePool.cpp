#include "atracsys/stream/AtracsysImagePool.h"

#include "host/core/TypedImage.h"

#include <cstring>

namespace Kestrion::SpryTrack {

namespace {

/// The pixel buffer of a pooled image; a base class so that it exists before the image that
/// wraps it.
struct PooledPixels {
    std::unique_ptr<std::uint8_t[]> buffer;
    std::size_t size = 0;
    std::shared_ptr<AtracsysImagePool> pool;
};

} // namespace

/// An image over a buffer of the pool, which goes back to the pool with the image.
class AtracsysPooledImage : private PooledPixels, public TypedImage<std::uint8_t> {
public:
    AtracsysPooledImage(const ImageDescriptor& descriptor, PooledPixels pixels)
        : PooledPixels(std::move(pixels))
        , TypedImage<std::uint8_t>(descriptor, buffer.get()) {}
    ~AtracsysPooledImage() override { pool->give(std::move(buffer), size); }
};

std::shared_ptr<AtracsysImagePool> AtracsysImagePool::create(std::size_t keep) {
    return std::shared_ptr<AtracsysImagePool>(new AtracsysImagePool(keep));
}

AtracsysImagePool::AtracsysImagePool(std::size_t keep)
    : m_keep(keep) {
    m_free.reserve(keep);
}

std::size_t AtracsysImagePool::available() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_free.size();
}

std::unique_ptr<std::uint8_t[]> AtracsysImagePool::take(std::size_t size) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_free.begin(); it != m_free.end(); ++it) {
            if (it->first != size)
                continue;
            std::unique_ptr<std::uint8_t[]> buffer = std::move(it->second);
            m_free.erase(it);
            return buffer;
        }
    }
    return std::unique_ptr<std::uint8_t[]>(new std::uint8_t[size]); // filled by the copy
}

void AtracsysImagePool::give(std::unique_ptr<std::uint8_t[]> buffer, std::size_t size) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_free.size() < m_keep) {
            m_free.emplace_back(size, std::move(buffer));
            return;
        }
    }
    // Freed here, after the lock.
}

std::shared_ptr<SharedImage> AtracsysImagePool::copy(const ftkImageHeader& header,
                                                     const std::uint8_t* pixels) {
    const ImageDescriptor descriptor(PixelType::UInt8, 1, header.width, header.height, 1,
                                     Eigen::Vector3d::Ones());
    const std::size_t width = header.width;
    const std::size_t size = width * header.height;
    PooledPixels target{take(size), size, shared_from_this()};
    const std::size_t stride = static_cast<std::size_t>(header.imageStrideInBytes);
    if (stride == width) {
        std::memcpy(target.buffer.get(), pixels, size);
    } else {
        for (std::size_t y = 0; y < header.height; ++y)
            std::memcpy(target.buffer.get() + y * width, pixels + y * stride, width);
    }
    return std::make_shared<SharedImage>(
        std::make_shared<AtracsysPooledImage>(descriptor, std::move(target)));
}

} // namespace Kestrion::SpryTrack
