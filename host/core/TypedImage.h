#pragma once

#include "host/core/Image.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace Kestrion {

/// An Image whose element type is T (PixelTypeOf<T>): typed access to its pixels.
/// The descriptor's pixel type must be that of T (std::invalid_argument otherwise).
template <class T>
class TypedImage : public Image {
public:
    static constexpr PixelType Type = PixelTypeOf<T>::value;

    explicit TypedImage(const ImageDescriptor& descriptor)
        : Image(checkedType(descriptor)) {}
    TypedImage(const ImageDescriptor& descriptor, T* foreignMemory)
        : Image(checkedType(descriptor), foreignMemory) {}

    T* data() { return static_cast<T*>(rawData()); }
    const T* data() const { return static_cast<const T*>(rawData()); }

    /// Element at (x, y) of a slice and a channel; std::out_of_range outside the image.
    T& at(int x, int y, int channel = 0, int slice = 0) { return data()[index(x, y, channel, slice)]; }
    const T& at(int x, int y, int channel = 0, int slice = 0) const {
        return data()[index(x, y, channel, slice)];
    }

    std::unique_ptr<Image> clone() const override { return cloneTyped(); }
    std::unique_ptr<TypedImage<T>> cloneTyped() const {
        auto copy = std::make_unique<TypedImage<T>>(descriptor());
        copyPixelsTo(*copy);
        return copy;
    }

private:
    static const ImageDescriptor& checkedType(const ImageDescriptor& descriptor) {
        if (descriptor.pixelType != Type)
            throw std::invalid_argument(std::string("TypedImage: descriptor of type ") +
                                        pixelTypeName(descriptor.pixelType) + " for an image of " +
                                        pixelTypeName(Type));
        return descriptor;
    }
    std::size_t index(int x, int y, int channel, int slice) const {
        const auto& d = descriptor();
        if (x < 0 || y < 0 || channel < 0 || slice < 0 || x >= d.width || y >= d.height ||
            channel >= d.channels || slice >= d.slices)
            throw std::out_of_range("TypedImage: pixel outside the image");
        const std::size_t pixel = (static_cast<std::size_t>(slice) * static_cast<std::size_t>(d.height) +
                                   static_cast<std::size_t>(y)) *
                                      static_cast<std::size_t>(d.width) +
                                  static_cast<std::size_t>(x);
        return pixel * static_cast<std::size_t>(d.channels) + static_cast<std::size_t>(channel);
    }
};

using ImageU8 = TypedImage<std::uint8_t>;
using ImageU16 = TypedImage<std::uint16_t>;
using ImageF = TypedImage<float>;

} // namespace Kestrion
