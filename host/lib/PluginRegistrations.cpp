#include "host/lib/PluginRegistrations.h"

#include "host/lib/FactoryRegistry.h"
#include "host/lib/WorkspaceConversionRegistry.h"

namespace Kestrion {

std::size_t PluginRegistrations::removeAll(const std::string& pluginId) {
    return FactoryRegistry::instance().removeOwnedBy(pluginId) +
           WorkspaceConversionRegistry::instance().removeOwnedBy(pluginId);
}

} // namespace Kestrion
