#pragma once

#include "host/core/SharedImage.h"
#include "host/stream/StreamData.h"

#include <memory>

namespace Kestrion {

class ImageStream;

/// One image of an image stream; the image is shared, not copied, by everyone who keeps the item.
class ImageStreamData : public StreamData {
public:
    ImageStreamData(const ImageStream* stream, std::shared_ptr<SharedImage> image,
                    std::uint64_t arrivalTimestamp = 0, std::uint64_t deviceTimestamp = 0);

    const std::shared_ptr<SharedImage>& image() const { return m_image; }
    const ImageStream* imageStream() const { return m_imageStream; }

private:
    const ImageStream* m_imageStream;
    std::shared_ptr<SharedImage> m_image;
};

} // namespace Kestrion
