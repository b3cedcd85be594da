// The entry points the host looks up in the plugin library, and the registration guard that
// announces the plugin id while the library is loaded.

#include "atracsys/plugin/AtracsysPlugin.h"

#include "host/lib/PluginAutoRegistrationGuard.h"
#include "host/lib/PluginExport.h"

extern "C" {

const char* const kestrionPluginDescriptor = KESTRION_PLUGIN_DESCRIPTOR;

Kestrion::KestrionLibPlugin* kestrionCreatePlugin() {
    return new Kestrion::SpryTrack::AtracsysPlugin;
}

const char* kestrionPluginId() {
    return Kestrion::SpryTrack::AtracsysPlugin::pluginId().c_str();
}
}

namespace {
const Kestrion::PluginAutoRegistrationGuard registrationGuard(&kestrionPluginId);
}
