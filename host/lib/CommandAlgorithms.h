#pragma once

#include "host/core/Algorithm.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

/// Algorithms that plugins offer to the host's commands rather than to its users: work a host
/// command needs from a plugin that owns the knowledge (checking the plugin's own file format,
/// for example), reached by identifier like the factories' algorithms but never listed among
/// them, so that a plugin's algorithm factory offers exactly what its users see. A plugin adds
/// its creators in init() and removes them before its library is unloaded.
class CommandAlgorithms {
public:
    using Creator = std::function<std::unique_ptr<Algorithm>()>;

    static CommandAlgorithms& instance();

    /// Offers `identifier` under `owner` (a plugin id); an identifier offered already keeps its
    /// first creator.
    void add(const std::string& owner, const std::string& identifier, Creator creator);
    /// Withdraws everything `owner` offered.
    void remove(const std::string& owner);
    /// A new algorithm by identifier, or null when nobody offers it.
    std::unique_ptr<Algorithm> create(const std::string& identifier) const;

private:
    CommandAlgorithms() = default;

    struct Entry {
        std::string owner;
        std::string identifier;
        Creator creator;
    };
    // Plugins add and remove on the loading thread while commands create on theirs.
    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
};

} // namespace Kestrion
