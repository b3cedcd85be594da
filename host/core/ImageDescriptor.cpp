#include "host/core/ImageDescriptor.h"

namespace Kestrion {

std::size_t pixelTypeSize(PixelType type) {
    switch (type) {
    case PixelType::UInt8:
    case PixelType::Int8:
        return 1;
    case PixelType::UInt16:
    case PixelType::Int16:
        return 2;
    case PixelType::UInt32:
    case PixelType::Int32:
    case PixelType::Float:
        return 4;
    case PixelType::Double:
        return 8;
    }
    return 0;
}

const char* pixelTypeName(PixelType type) {
    switch (type) {
    case PixelType::UInt8:
        return "uint8";
    case PixelType::Int8:
        return "int8";
    case PixelType::UInt16:
        return "uint16";
    case PixelType::Int16:
        return "int16";
    case PixelType::UInt32:
        return "uint32";
    case PixelType::Int32:
        return "int32";
    case PixelType::Float:
        return "float";
    case PixelType::Double:
        return "double";
    }
    return "unknown";
}

ImageDescriptor::ImageDescriptor(PixelType type, int channelCount, int w, int h, int s,
                                 const Eigen::Vector3d& sp)
    : pixelType(type)
    , channels(channelCount)
    , width(w)
    , height(h)
    , slices(s)
    , spacing(sp) {}

bool ImageDescriptor::isValid() const {
    return channels >= 1 && width >= 0 && height >= 0 && slices >= 0;
}

std::size_t ImageDescriptor::pixelCount() const {
    if (!isValid())
        return 0;
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
           static_cast<std::size_t>(slices);
}

std::size_t ImageDescriptor::elementCount() const {
    return pixelCount() * static_cast<std::size_t>(channels);
}

std::size_t ImageDescriptor::byteSize() const {
    return elementCount() * pixelTypeSize(pixelType);
}

bool ImageDescriptor::operator==(const ImageDescriptor& other) const {
    return pixelType == other.pixelType && channels == other.channels && width == other.width &&
           height == other.height && slices == other.slices && spacing == other.spacing;
}

} // namespace Kestrion
