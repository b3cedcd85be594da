#pragma once

#include <string>
#include <vector>

namespace Kestrion {

/// Announces a plugin id to the host while the plugin library is loaded. A plugin library holds
/// one static guard, constructed with its id function when the library is loaded and destroyed
/// when it is unloaded:
///
///     static Kestrion::PluginAutoRegistrationGuard guard(&kestrionPluginId);
///
/// The plugin loader compares the ids a library announced while it was being opened with the id
/// its `kestrionPluginId` entry point returns.
class PluginAutoRegistrationGuard {
public:
    using IdFunction = const char* (*)();

    explicit PluginAutoRegistrationGuard(IdFunction idFunction);
    ~PluginAutoRegistrationGuard();
    PluginAutoRegistrationGuard(const PluginAutoRegistrationGuard&) = delete;
    PluginAutoRegistrationGuard& operator=(const PluginAutoRegistrationGuard&) = delete;

    /// The id announced by this guard ("" when the id function was null or returned null).
    const std::string& id() const { return m_id; }

    /// Ids of every guard alive now, in construction order (an id may appear more than once).
    static std::vector<std::string> announcedIds();
    /// Number of guards constructed so far in the process; the loader notes it before opening a
    /// library and asks which guards appeared since (see announcedSince()).
    static unsigned long long constructionCount();
    /// Ids of the live guards constructed after the given construction count.
    static std::vector<std::string> announcedSince(unsigned long long count);

private:
    std::string m_id;
    unsigned long long m_sequence;
};

} // namespace Kestrion
