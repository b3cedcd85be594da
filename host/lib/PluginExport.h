#pragma once

// The entry points every plugin library exports with C linkage. A plugin source includes this
// header and defines them, for example:
//
//     extern "C" const char* const kestrionPluginDescriptor = KESTRION_PLUGIN_DESCRIPTOR;
//     extern "C" Kestrion::KestrionLibPlugin* kestrionCreatePlugin() { return new MyPlugin; }
//     extern "C" const char* kestrionPluginId() { return MyPlugin::pluginId().c_str(); }
//     static Kestrion::PluginAutoRegistrationGuard guard(&kestrionPluginId);

namespace Kestrion {
class KestrionLibPlugin;
}

/// The descriptor of a plugin built for this host (see PluginDescriptor).
#define KESTRION_PLUGIN_DESCRIPTOR                                                                           \
    "__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6|buildflags=GLIBCXX_DEBUG:_GLIBCXX_DEBUG|"         \
    "pluginversion="

extern "C" {
/// Points to the plugin's descriptor text, read by the loader before anything else is called.
extern const char* const kestrionPluginDescriptor;
/// Returns a new plugin object; the host owns it from then on.
Kestrion::KestrionLibPlugin* kestrionCreatePlugin();
/// Returns the plugin id, a string that lives as long as the library is loaded.
const char* kestrionPluginId();
}

namespace Kestrion {
using CreatePluginFunction = KestrionLibPlugin* (*)();
using PluginIdFunction = const char* (*)();
} // namespace Kestrion
