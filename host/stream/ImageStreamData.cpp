#include "host/stream/ImageStreamData.h"

#include "host/stream/ImageStream.h"

namespace Kestrion {

ImageStreamData::ImageStreamData(const ImageStream* stream, std::shared_ptr<SharedImage> image,
                                 std::uint64_t arrivalTimestamp, std::uint64_t deviceTimestamp)
    : StreamData(stream, arrivalTimestamp, deviceTimestamp)
    , m_imageStream(stream)
    , m_image(std::move(image)) {}

} // namespace Kestrion
