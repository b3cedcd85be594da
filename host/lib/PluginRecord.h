#pragma once

#include <string>
#include <vector>

namespace Kestrion {

class KestrionLibPlugin;

/// How a plugin library fared in the loader.
enum class PluginStatus {
    Active,   ///< init() returned 0: the plugin's factories are registered
    Inactive, ///< init() returned 1 (for example not licensed): loaded, nothing registered
    Failed    ///< skipped at some step; `reason` says which
};

const char* toString(PluginStatus status);

/// One plugin library found by the loader, whatever became of it.
struct PluginRecord {
    std::string fileName; ///< "libX.so"
    std::string path;     ///< the full path that was opened
    PluginStatus status = PluginStatus::Failed;
    std::string reason; ///< why the plugin failed or is inactive; empty when active

    // Known once the library got far enough; empty otherwise.
    std::string id;
    std::string author;
    std::string description;
    std::vector<std::string> dependencies;
    std::string pluginVersion;
    std::string hostVersion;
    std::string buildFlags;
    /// Ids announced by the library's auto-registration guards while it was opened.
    std::vector<std::string> announcedIds;

    /// Position in the initialisation order (0 first), -1 when init() was not called.
    int initOrder = -1;
    /// The plugin object for active and inactive plugins (owned by the loader), else null.
    KestrionLibPlugin* plugin = nullptr;
};

} // namespace Kestrion
