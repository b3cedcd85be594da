#include "host/lib/CommandAlgorithms.h"

#include <algorithm>

namespace Kestrion {

CommandAlgorithms& CommandAlgorithms::instance() {
    static CommandAlgorithms registry;
    return registry;
}

void CommandAlgorithms::add(const std::string& owner, const std::string& identifier, Creator creator) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool offered = std::any_of(m_entries.begin(), m_entries.end(), [&identifier](const Entry& entry) {
        return entry.identifier == identifier;
    });
    if (!offered && creator)
        m_entries.push_back({owner, identifier, std::move(creator)});
}

void CommandAlgorithms::remove(const std::string& owner) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                   [&owner](const Entry& entry) { return entry.owner == owner; }),
                    m_entries.end());
}

std::unique_ptr<Algorithm> CommandAlgorithms::create(const std::string& identifier) const {
    Creator creator;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const Entry& entry : m_entries)
            if (entry.identifier == identifier)
                creator = entry.creator;
    }
    // Created outside the lock: a plugin's constructor may log or look other things up.
    return creator ? creator() : nullptr;
}

} // namespace Kestrion
