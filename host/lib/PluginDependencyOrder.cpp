#include "host/lib/PluginDependencyOrder.h"

#include <deque>
#include <optional>

namespace Kestrion {

namespace {

// The shortest path of dependencies from `start` back to itself among `candidates`, as
// "A -> B -> A", or nothing when `start` is not on a cycle.
std::optional<std::string> cycleThrough(std::size_t start,
                                        const std::vector<PluginDependencyOrder::Node>& nodes,
                                        const std::map<std::string, std::size_t>& indexOf,
                                        const std::set<std::size_t>& candidates) {
    std::map<std::size_t, std::size_t> previous; // visited node -> the node it was reached from
    std::deque<std::size_t> queue{start};
    while (!queue.empty()) {
        const std::size_t current = queue.front();
        queue.pop_front();
        for (const auto& dependency : nodes[current].dependencies) {
            const auto it = indexOf.find(dependency);
            if (it == indexOf.end() || !candidates.count(it->second))
                continue;
            const std::size_t next = it->second;
            if (next == start) {
                std::vector<std::size_t> path{start};
                for (std::size_t n = current; n != start; n = previous.at(n))
                    path.push_back(n);
                std::string text = nodes[start].id;
                for (auto p = path.rbegin(); p != path.rend(); ++p)
                    text += " -> " + nodes[*p].id;
                return text;
            }
            if (previous.emplace(next, current).second)
                queue.push_back(next);
        }
    }
    return std::nullopt;
}

} // namespace

PluginDependencyOrder::Result PluginDependencyOrder::compute(const std::vector<Node>& nodes,
                                                             const std::set<std::string>& available) {
    Result result;
    std::map<std::string, std::size_t> indexOf;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        indexOf.emplace(nodes[i].id, i);

    // Dependencies that nobody provides.
    for (std::size_t i = 0; i < nodes.size(); ++i)
        for (const auto& dependency : nodes[i].dependencies)
            if (!available.count(dependency) && !indexOf.count(dependency)) {
                result.failures.emplace(i, "missing dependency \"" + dependency + "\"");
                break;
            }

    // Repeatedly take, in input order, the first plugin whose dependencies are all placed.
    std::set<std::string> placed(available.begin(), available.end());
    std::set<std::size_t> pending;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (!result.failures.count(i))
            pending.insert(i);
    bool progress = true;
    while (progress) {
        progress = false;
        for (std::size_t i : pending) {
            bool ready = true;
            for (const auto& dependency : nodes[i].dependencies)
                ready = ready && placed.count(dependency);
            if (ready) {
                result.order.push_back(i);
                placed.insert(nodes[i].id);
                pending.erase(i);
                progress = true;
                break;
            }
        }
    }

    // What is left waits on a failed plugin or sits on (or behind) a cycle.
    std::map<std::size_t, std::string> reasons;
    for (std::size_t i : pending) {
        if (auto cycle = cycleThrough(i, nodes, indexOf, pending)) {
            reasons.emplace(i, "dependency cycle: " + *cycle);
            continue;
        }
        for (const auto& dependency : nodes[i].dependencies)
            if (!placed.count(dependency)) {
                reasons.emplace(i, "dependency \"" + dependency + "\" cannot be loaded");
                break;
            }
    }
    result.failures.insert(reasons.begin(), reasons.end());
    return result;
}

} // namespace Kestrion
