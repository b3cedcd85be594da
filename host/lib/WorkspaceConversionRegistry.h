#pragma once

#include "host/lib/WorkspaceConversion.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

/// The workspace conversions of the host and its plugins. A conversion added while a plugin is
/// initialised belongs to that plugin (PluginRegistrationScope) and is removed before the plugin
/// is unloaded.
class WorkspaceConversionRegistry {
public:
    static WorkspaceConversionRegistry& instance();

    WorkspaceConversionRegistry();
    ~WorkspaceConversionRegistry();
    WorkspaceConversionRegistry(const WorkspaceConversionRegistry&) = delete;
    WorkspaceConversionRegistry& operator=(const WorkspaceConversionRegistry&) = delete;

    /// Adds a conversion (one without a function is refused with a warning, category
    /// "WorkspaceConversionRegistry").
    void addConversion(WorkspaceConversion conversion);
    /// Removes the conversions added on behalf of the plugin; returns how many.
    std::size_t removeOwnedBy(const std::string& pluginId);

    /// The conversions in the order they run.
    std::vector<WorkspaceConversion> conversions() const;
    std::size_t size() const;

    /// Runs every conversion in order on the workspace. Returns the descriptions of those that
    /// changed it (each also logged at info level: "Workspace <file>: <description>"), or
    /// nothing when a conversion threw: then *error names it and the reason, and the workspace
    /// may be partly converted.
    std::optional<std::vector<std::string>> convert(Properties& workspace, const Filesystem::Path& file,
                                                    std::string* error = nullptr) const;

private:
    struct Entry {
        WorkspaceConversion conversion;
        std::string owner;
    };
    // Plugins add conversions on the loading thread; workspaces may be loaded on any thread.
    // Conversions run on a copy of the list, outside the lock.
    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries; // kept sorted by order, stable
};

} // namespace Kestrion
