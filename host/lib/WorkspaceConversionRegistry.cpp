#include "host/lib/WorkspaceConversionRegistry.h"

#include "host/core/Log.h"
#include "host/lib/PluginRegistrationScope.h"

#include <algorithm>

namespace Kestrion {

namespace {
const char* const Category = "WorkspaceConversionRegistry";
}

WorkspaceConversionRegistry& WorkspaceConversionRegistry::instance() {
    static WorkspaceConversionRegistry registry;
    return registry;
}

WorkspaceConversionRegistry::WorkspaceConversionRegistry() = default;
WorkspaceConversionRegistry::~WorkspaceConversionRegistry() = default;

void WorkspaceConversionRegistry::addConversion(WorkspaceConversion conversion) {
    if (!conversion.convert) {
        KESTRION_LOG_WARN(Category, "Workspace conversion \"" << conversion.description
                                                              << "\" has no function and is not added");
        return;
    }
    Entry entry{std::move(conversion), PluginRegistrationScope::currentPlugin()};
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto position =
        std::upper_bound(m_entries.begin(), m_entries.end(), entry.conversion.order,
                         [](int order, const Entry& e) { return order < e.conversion.order; });
    m_entries.insert(position, std::move(entry));
}

std::size_t WorkspaceConversionRegistry::removeOwnedBy(const std::string& pluginId) {
    std::vector<Entry> removed; // destroyed outside the lock: the functions hold plugin code
    std::lock_guard<std::mutex> lock(m_mutex);
    auto middle = std::stable_partition(m_entries.begin(), m_entries.end(),
                                        [&pluginId](const Entry& e) { return e.owner != pluginId; });
    std::move(middle, m_entries.end(), std::back_inserter(removed));
    m_entries.erase(middle, m_entries.end());
    return removed.size();
}

std::vector<WorkspaceConversion> WorkspaceConversionRegistry::conversions() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<WorkspaceConversion> result;
    for (const auto& entry : m_entries)
        result.push_back(entry.conversion);
    return result;
}

std::size_t WorkspaceConversionRegistry::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries.size();
}

std::optional<std::vector<std::string>> WorkspaceConversionRegistry::convert(Properties& workspace,
                                                                             const Filesystem::Path& file,
                                                                             std::string* error) const {
    std::vector<std::string> applied;
    for (const auto& conversion : conversions()) {
        bool changed = false;
        try {
            changed = conversion.convert(workspace, file);
        } catch (const std::exception& e) {
            if (error)
                *error = "conversion \"" + conversion.description + "\" failed: " + e.what();
            return std::nullopt;
        } catch (...) {
            if (error)
                *error = "conversion \"" + conversion.description + "\" failed";
            return std::nullopt;
        }
        if (changed) {
            KESTRION_LOG_INFO("Workspace", "Workspace " << file.str() << ": " << conversion.description);
            applied.push_back(conversion.description);
        }
    }
    return applied;
}

} // namespace Kestrion
