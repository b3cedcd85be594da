#include "host/core/Image.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Kestrion {

namespace {
const ImageDescriptor& checked(const ImageDescriptor& descriptor) {
    if (!descriptor.isValid())
        throw std::invalid_argument("Image: invalid descriptor (" + std::to_string(descriptor.width) + "x" +
                                    std::to_string(descriptor.height) + "x" +
                                    std::to_string(descriptor.slices) + ", " +
                                    std::to_string(descriptor.channels) + " channels)");
    return descriptor;
}
} // namespace

Image::Image(const ImageDescriptor& descriptor)
    : m_descriptor(checked(descriptor))
    , m_owned(new unsigned char[std::max<std::size_t>(descriptor.byteSize(), 1)]()) // zero-filled
    , m_data(m_owned.get()) {}

Image::Image(const ImageDescriptor& descriptor, void* foreignMemory)
    : m_descriptor(checked(descriptor))
    , m_data(foreignMemory) {
    if (!foreignMemory && descriptor.byteSize() > 0)
        throw std::invalid_argument("Image: null memory to wrap");
}

Image::~Image() = default;

std::unique_ptr<Image> Image::clone() const {
    auto copy = std::make_unique<Image>(m_descriptor);
    copyPixelsTo(*copy);
    return copy;
}

void Image::copyPixelsTo(Image& target) const {
    if (byteSize() > 0)
        std::memcpy(target.m_data, m_data, byteSize());
}

} // namespace Kestrion
