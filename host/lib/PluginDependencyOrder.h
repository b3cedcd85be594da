#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Kestrion {

/// Orders plugins so that each comes after the plugins it depends on. Plugins whose
/// dependencies cannot be met are left out with a reason.
class PluginDependencyOrder {
public:
    struct Node {
        std::string id;
        std::vector<std::string> dependencies;
    };

    struct Result {
        /// Indices into the input, dependencies first; among plugins free to go, input order.
        std::vector<std::size_t> order;
        /// Input index -> why it cannot be loaded.
        std::map<std::size_t, std::string> failures;
    };

    /// `available` are ids that are present without being in `nodes` (built into the host or
    /// loaded before). Ids in `nodes` are expected to be unique.
    static Result compute(const std::vector<Node>& nodes, const std::set<std::string>& available);
};

} // namespace Kestrion
