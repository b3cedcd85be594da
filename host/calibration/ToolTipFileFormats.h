#pragma once

#include "host/calibration/ToolTipFileFormat.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion {

/// The geometry file formats that can hold a tool tip, each added by the plugin that owns it (in
/// its init()) and removed by it before its library is unloaded. A host asks for the format of a
/// file and reads or writes the tip through it.
class ToolTipFileFormats {
public:
    static ToolTipFileFormats& instance();

    /// Adds `format` under `owner` (a plugin id), replacing what that owner added before.
    void add(const std::string& owner, std::shared_ptr<const ToolTipFileFormat> format);
    void remove(const std::string& owner);
    /// The first added format that claims the file, or null when none does.
    std::shared_ptr<const ToolTipFileFormat> formatOf(const std::string& path) const;

private:
    ToolTipFileFormats() = default;

    // Plugins add and remove on the loading thread while hosts look formats up on theirs.
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, std::shared_ptr<const ToolTipFileFormat>>> m_formats;
};

} // namespace Kestrion
