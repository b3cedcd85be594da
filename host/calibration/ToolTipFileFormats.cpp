#include "host/calibration/ToolTipFileFormats.h"

#include <algorithm>

namespace Kestrion {

ToolTipFileFormats& ToolTipFileFormats::instance() {
    static ToolTipFileFormats formats;
    return formats;
}

void ToolTipFileFormats::add(const std::string& owner, std::shared_ptr<const ToolTipFileFormat> format) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& entry : m_formats)
        if (entry.first == owner) {
            entry.second = std::move(format);
            return;
        }
    m_formats.emplace_back(owner, std::move(format));
}

void ToolTipFileFormats::remove(const std::string& owner) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_formats.erase(std::remove_if(m_formats.begin(), m_formats.end(),
                                   [&owner](const auto& entry) { return entry.first == owner; }),
                    m_formats.end());
}

std::shared_ptr<const ToolTipFileFormat> ToolTipFileFormats::formatOf(const std::string& path) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& entry : m_formats)
        if (entry.second && entry.second->claims(path))
            return entry.second;
    return nullptr;
}

} // namespace Kestrion
