#pragma once

#include "host/core/SharedImage.h"

#include <ftkInterface.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Kestrion::SpryTrack {

/// Makes the copies of the camera images that a stream hands out, in pixel buffers that are used
/// again once every holder of an image has let it go. A camera image is over a megabyte: taking a
/// fresh buffer for each frame costs more than the copy itself (the system hands out new, zeroed
/// pages), while the buffers of images already released are warm.
///
/// Images may outlive the stream and be released on any thread; each keeps the pool alive.
class AtracsysImagePool : public std::enable_shared_from_this<AtracsysImagePool> {
public:
    /// At most `keep` released buffers are kept for later images; more are freed.
    static std::shared_ptr<AtracsysImagePool> create(std::size_t keep = 8);

    /// An 8-bit, one-channel image of the header's width and height (spacing 1) holding a copy of
    /// the camera's pixels, whose rows are imageStrideInBytes apart.
    std::shared_ptr<SharedImage> copy(const ftkImageHeader& header, const std::uint8_t* pixels);

    /// Buffers waiting for an image.
    std::size_t available() const;

private:
    explicit AtracsysImagePool(std::size_t keep);
    friend class AtracsysPooledImage;

    std::unique_ptr<std::uint8_t[]> take(std::size_t size);
    void give(std::unique_ptr<std::uint8_t[]> buffer, std::size_t size);

    const std::size_t m_keep;
    // Guards the free list: images are copied on the stream's worker thread and released on
    // whichever thread drops the last reference.
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::size_t, std::unique_ptr<std::uint8_t[]>>> m_free; // capacity m_keep
};

} // namespace Kestrion::SpryTrack
