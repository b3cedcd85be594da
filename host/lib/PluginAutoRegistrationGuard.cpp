#include "host/lib/PluginAutoRegistrationGuard.h"

#include "host/core/Log.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Kestrion {

namespace {

struct GuardTable {
    // Libraries may be opened and closed from any thread; their static guards touch this table
    // from the thread doing the dlopen/dlclose.
    std::mutex mutex;
    unsigned long long constructed = 0;
    std::vector<std::pair<unsigned long long, const PluginAutoRegistrationGuard*>> live;
};

GuardTable& table() {
    // Never destroyed: guards of libraries still loaded at exit are destroyed after the host's
    // own statics.
    static GuardTable* t = new GuardTable;
    return *t;
}

} // namespace

PluginAutoRegistrationGuard::PluginAutoRegistrationGuard(IdFunction idFunction) {
    const char* id = idFunction ? idFunction() : nullptr;
    m_id = id ? id : "";
    GuardTable& t = table();
    {
        std::lock_guard<std::mutex> lock(t.mutex);
        m_sequence = ++t.constructed;
        t.live.emplace_back(m_sequence, this);
    }
    KESTRION_LOG_DEBUG("PluginAutoRegistrationGuard", "Plugin id \"" << m_id << "\" announced");
}

PluginAutoRegistrationGuard::~PluginAutoRegistrationGuard() {
    GuardTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    t.live.erase(
        std::remove_if(t.live.begin(), t.live.end(), [this](const auto& e) { return e.second == this; }),
        t.live.end());
}

std::vector<std::string> PluginAutoRegistrationGuard::announcedIds() {
    return announcedSince(0);
}

unsigned long long PluginAutoRegistrationGuard::constructionCount() {
    GuardTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    return t.constructed;
}

std::vector<std::string> PluginAutoRegistrationGuard::announcedSince(unsigned long long count) {
    GuardTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    std::vector<std::string> ids;
    for (const auto& [sequence, guard] : t.live)
        if (sequence > count)
            ids.push_back(guard->id());
    return ids;
}

} // namespace Kestrion
