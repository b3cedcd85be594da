#include "host/lib/widgets/ImageConversion.h"

#include "host/core/Image.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace Kestrion {

namespace {

template <class T>
double element(const void* data, std::size_t index) {
    return static_cast<double>(static_cast<const T*>(data)[index]);
}

double elementAt(const Image& image, std::size_t index) {
    const void* data = image.rawData();
    switch (image.pixelType()) {
    case PixelType::UInt8:
        return element<std::uint8_t>(data, index);
    case PixelType::Int8:
        return element<std::int8_t>(data, index);
    case PixelType::UInt16:
        return element<std::uint16_t>(data, index);
    case PixelType::Int16:
        return element<std::int16_t>(data, index);
    case PixelType::UInt32:
        return element<std::uint32_t>(data, index);
    case PixelType::Int32:
        return element<std::int32_t>(data, index);
    case PixelType::Float:
        return element<float>(data, index);
    case PixelType::Double:
        return element<double>(data, index);
    }
    return 0.0;
}

/// Copies rows of tightly packed pixels into the QImage's (possibly padded) scan lines.
QImage copyRows(const Image& image, QImage::Format format, std::size_t bytesPerRow) {
    QImage result(image.width(), image.height(), format);
    const auto* source = static_cast<const unsigned char*>(image.rawData());
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(result.scanLine(y), source + static_cast<std::size_t>(y) * bytesPerRow, bytesPerRow);
    return result;
}

} // namespace

QImage toQImage(const Image& image) {
    const int width = image.width();
    const int height = image.height();
    if (width <= 0 || height <= 0 || image.slices() <= 0)
        return QImage();
    const auto w = static_cast<std::size_t>(width);
    const int channels = image.channels();
    if (image.pixelType() == PixelType::UInt8) {
        if (channels == 1)
            return copyRows(image, QImage::Format_Grayscale8, w);
        if (channels == 3)
            return copyRows(image, QImage::Format_RGB888, w * 3);
        if (channels == 4)
            return copyRows(image, QImage::Format_RGBA8888, w * 4);
    }
    if (image.pixelType() == PixelType::UInt16 && channels == 1)
        return copyRows(image, QImage::Format_Grayscale16, w * 2);

    // Anything else: the first channel, stretched to 8 bits.
    const std::size_t pixels = w * static_cast<std::size_t>(height);
    const auto stride = static_cast<std::size_t>(channels);
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < pixels; ++i) {
        const double value = elementAt(image, i * stride);
        if (value == value) { // NaN pixels are left out
            low = std::min(low, value);
            high = std::max(high, value);
        }
    }
    const double scale = high > low ? 255.0 / (high - low) : 0.0;
    QImage result(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y) {
        uchar* line = result.scanLine(y);
        for (int x = 0; x < width; ++x) {
            const double value =
                elementAt(image, (static_cast<std::size_t>(y) * w + static_cast<std::size_t>(x)) * stride);
            line[x] =
                value == value ? static_cast<uchar>(std::clamp((value - low) * scale, 0.0, 255.0) + 0.5) : 0;
        }
    }
    return result;
}

} // namespace Kestrion
