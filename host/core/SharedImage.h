#pragma once

#include "host/core/Image.h"
#include "host/core/TypedImage.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace Kestrion {

/// An image shared by its producer and any number of consumers and views, with a counter that
/// tells views whether the pixels changed since they last looked: whoever writes the pixels calls
/// setDirty(), a view compares modificationCount() with the value it saw last.
class SharedImage {
public:
    /// Takes a shared or a unique pointer; a null image is not allowed (std::invalid_argument).
    explicit SharedImage(std::shared_ptr<Image> image);

    const std::shared_ptr<Image>& image() const { return m_image; }
    const ImageDescriptor& descriptor() const { return m_image->descriptor(); }
    /// The image as a TypedImage<T>, or null when its element type is another.
    template <class T>
    std::shared_ptr<TypedImage<T>> typed() const {
        return std::dynamic_pointer_cast<TypedImage<T>>(m_image);
    }

    /// Marks the pixel data changed; safe from any thread.
    void setDirty() { m_modifications.fetch_add(1, std::memory_order_release); }
    std::uint64_t modificationCount() const { return m_modifications.load(std::memory_order_acquire); }

private:
    std::shared_ptr<Image> m_image;
    std::atomic<std::uint64_t> m_modifications{0};
};

} // namespace Kestrion
