#include "host/core/SharedImageSet.h"

namespace Kestrion {

SharedImageSet::SharedImageSet(std::string name)
    : Data(std::move(name)) {}

bool SharedImageSet::add(std::shared_ptr<SharedImage> image) {
    if (!image)
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_images.push_back(std::move(image));
    ++m_modifications;
    return true;
}

bool SharedImageSet::replace(std::size_t index, std::shared_ptr<SharedImage> image) {
    if (!image)
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (index >= m_images.size())
        return false;
    m_images[index] = std::move(image);
    ++m_modifications;
    return true;
}

bool SharedImageSet::setFirst(std::shared_ptr<SharedImage> image) {
    if (!image)
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_images.empty())
        m_images.push_back(std::move(image));
    else
        m_images.front() = std::move(image);
    ++m_modifications;
    return true;
}

std::shared_ptr<SharedImage> SharedImageSet::get(std::size_t index) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return index < m_images.size() ? m_images[index] : nullptr;
}

std::vector<std::shared_ptr<SharedImage>> SharedImageSet::images() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_images;
}

std::size_t SharedImageSet::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_images.size();
}

void SharedImageSet::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_images.empty())
        return;
    m_images.clear();
    ++m_modifications;
}

void SharedImageSet::setModified() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_modifications;
}

std::uint64_t SharedImageSet::modificationCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_modifications;
}

} // namespace Kestrion
