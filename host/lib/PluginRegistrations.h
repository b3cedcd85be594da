#pragma once

#include <cstddef>
#include <string>

namespace Kestrion {

/// What a plugin registered with the host, across the host's registries.
class PluginRegistrations {
public:
    /// Removes (and destroys) every factory and workspace conversion registered on behalf of the
    /// plugin; returns how many were removed. Called before the plugin and its library go away.
    static std::size_t removeAll(const std::string& pluginId);
};

} // namespace Kestrion
