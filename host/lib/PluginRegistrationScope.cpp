#include "host/lib/PluginRegistrationScope.h"

#include <utility>

namespace Kestrion {

namespace {
// Per thread: a plugin's init() registers on the thread the loader calls it from.
thread_local std::string current;
} // namespace

PluginRegistrationScope::PluginRegistrationScope(std::string pluginId)
    : m_previous(std::exchange(current, std::move(pluginId))) {}

PluginRegistrationScope::~PluginRegistrationScope() {
    current = std::move(m_previous);
}

const std::string& PluginRegistrationScope::currentPlugin() {
    return current;
}

} // namespace Kestrion
