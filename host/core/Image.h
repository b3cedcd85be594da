#pragma once

#include "host/core/ImageDescriptor.h"

#include <cstddef>
#include <memory>

namespace Kestrion {

/// Pixels of any type described by an ImageDescriptor, either owned by the image (allocated and
/// zero-filled by it) or wrapped: memory of someone else (a camera buffer) that the image reads
/// and writes but never frees, and that must outlive it. clone() makes an owning deep copy, which
/// is how wrapped memory is kept beyond its owner's lifetime.
///
/// Constructors throw std::invalid_argument for an invalid descriptor or a null foreign pointer
/// with a non-empty descriptor: both are programming errors.
class Image {
public:
    explicit Image(const ImageDescriptor& descriptor);
    Image(const ImageDescriptor& descriptor, void* foreignMemory);
    virtual ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    const ImageDescriptor& descriptor() const { return m_descriptor; }
    PixelType pixelType() const { return m_descriptor.pixelType; }
    int width() const { return m_descriptor.width; }
    int height() const { return m_descriptor.height; }
    int slices() const { return m_descriptor.slices; }
    int channels() const { return m_descriptor.channels; }
    std::size_t byteSize() const { return m_descriptor.byteSize(); }

    /// False for an image wrapping foreign memory.
    bool ownsMemory() const { return static_cast<bool>(m_owned); }
    void* rawData() { return m_data; }
    const void* rawData() const { return m_data; }

    /// Owning deep copy of the same dynamic type (a TypedImage clones into a TypedImage).
    virtual std::unique_ptr<Image> clone() const;

protected:
    /// Copies this image's pixels into `target`, which has the same descriptor.
    void copyPixelsTo(Image& target) const;

private:
    ImageDescriptor m_descriptor;
    std::unique_ptr<unsigned char[]> m_owned;
    void* m_data = nullptr;
};

} // namespace Kestrion
