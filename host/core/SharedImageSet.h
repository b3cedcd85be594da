#pragma once

#include "host/core/Data.h"
#include "host/core/SharedImage.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Kestrion {

/// An ordered list of shared images (the frames of one view, the slices of a series...) with a
/// modification counter that views compare with the value they drew last. Every change of the
/// list and every setModified() increases it. All operations are safe from any thread; the images
/// themselves are shared, not copied.
class SharedImageSet : public Data {
public:
    SharedImageSet() = default;
    explicit SharedImageSet(std::string name);

    /// Appends an image; null is refused (returns false).
    bool add(std::shared_ptr<SharedImage> image);
    /// Replaces the image at an index; false for a null image or an index outside the list.
    bool replace(std::size_t index, std::shared_ptr<SharedImage> image);
    /// Replaces the first image, or adds it to an empty set; false for a null image.
    bool setFirst(std::shared_ptr<SharedImage> image);
    /// The image at an index, or null.
    std::shared_ptr<SharedImage> get(std::size_t index) const;
    std::vector<std::shared_ptr<SharedImage>> images() const;
    std::size_t size() const;
    bool empty() const { return size() == 0; }
    void clear();

    void setModified();
    std::uint64_t modificationCount() const;

private:
    mutable std::mutex m_mutex; // producers (stream threads) and views (GUI thread) share the set
    std::vector<std::shared_ptr<SharedImage>> m_images;
    std::uint64_t m_modifications = 0;
};

} // namespace Kestrion
