#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <cstdint>

namespace Kestrion {

/// The element type of an image's pixels.
enum class PixelType : int { UInt8, Int8, UInt16, Int16, UInt32, Int32, Float, Double };

/// Size in bytes of one element of the type.
std::size_t pixelTypeSize(PixelType type);
/// "uint8", "int8", ... "double", for messages.
const char* pixelTypeName(PixelType type);

/// The pixel type of a C++ element type: PixelTypeOf<std::uint8_t>::value == PixelType::UInt8.
template <class T>
struct PixelTypeOf;
template <>
struct PixelTypeOf<std::uint8_t> {
    static constexpr PixelType value = PixelType::UInt8;
};
template <>
struct PixelTypeOf<std::int8_t> {
    static constexpr PixelType value = PixelType::Int8;
};
template <>
struct PixelTypeOf<std::uint16_t> {
    static constexpr PixelType value = PixelType::UInt16;
};
template <>
struct PixelTypeOf<std::int16_t> {
    static constexpr PixelType value = PixelType::Int16;
};
template <>
struct PixelTypeOf<std::uint32_t> {
    static constexpr PixelType value = PixelType::UInt32;
};
template <>
struct PixelTypeOf<std::int32_t> {
    static constexpr PixelType value = PixelType::Int32;
};
template <>
struct PixelTypeOf<float> {
    static constexpr PixelType value = PixelType::Float;
};
template <>
struct PixelTypeOf<double> {
    static constexpr PixelType value = PixelType::Double;
};

/// What an image holds: element type, channels per pixel, size in pixels and the physical size
/// of a pixel (spacing, millimetres, x y z). Pixels are stored row by row, slice by slice, with
/// the channels of one pixel next to each other and no padding.
struct ImageDescriptor {
    ImageDescriptor() = default;
    ImageDescriptor(PixelType type, int channels, int width, int height, int slices = 1,
                    const Eigen::Vector3d& spacing = Eigen::Vector3d::Ones());

    PixelType pixelType = PixelType::UInt8;
    int channels = 1;
    int width = 0;
    int height = 0;
    int slices = 1;
    Eigen::Vector3d spacing = Eigen::Vector3d::Ones();

    /// At least one channel and no negative size (an image of 0 pixels is valid).
    bool isValid() const;
    std::size_t pixelCount() const;
    /// Number of elements: pixels times channels.
    std::size_t elementCount() const;
    std::size_t byteSize() const;

    bool operator==(const ImageDescriptor& other) const;
    bool operator!=(const ImageDescriptor& other) const { return !(*this == other); }
};

} // namespace Kestrion
