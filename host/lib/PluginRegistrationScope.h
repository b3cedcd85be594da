#pragma once

#include <string>

namespace Kestrion {

/// Names the plugin on whose behalf the current thread registers factories and workspace
/// conversions. The plugin loader opens a scope around each plugin's init(), so that the
/// registries can remove a plugin's registrations before the plugin is destroyed. Outside any
/// scope, registrations belong to the host itself ("").
class PluginRegistrationScope {
public:
    explicit PluginRegistrationScope(std::string pluginId);
    ~PluginRegistrationScope();
    PluginRegistrationScope(const PluginRegistrationScope&) = delete;
    PluginRegistrationScope& operator=(const PluginRegistrationScope&) = delete;

    /// The innermost open scope's plugin id on this thread, "" when none is open.
    static const std::string& currentPlugin();

private:
    std::string m_previous;
};

} // namespace Kestrion
