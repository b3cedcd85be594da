#pragma once

#include "host/core/Path.h"
#include "host/lib/KestrionLibPlugin.h"

#include <string>
#include <vector>

namespace Kestrion {
class Properties;
}

namespace Kestrion::SpryTrack {

/// The plugin object of the Atracsys tracking library ("Kestrion.AtracsysTrackingSpryTrack").
/// init() checks the licence of the feature "Atracsys" and, when licensed, hands the host the
/// algorithm and controller factories and the workspace conversion of older stream names. It
/// also offers the host its geometry files as a tool-tip file format, which it withdraws when it
/// is destroyed (before its library is unloaded).
class AtracsysPlugin : public KestrionLibPlugin {
public:
    AtracsysPlugin() = default;
    /// Withdraws what init() offered the host's commands.
    ~AtracsysPlugin() override;

    /// 0 active; 1 when the feature "Atracsys" is not licensed (nothing is registered then).
    int init() override;
    std::string id() const override;
    std::string author() const override;
    std::string description() const override;
    /// {"Kestrion.Stream"}.
    std::vector<std::string> dependencies() const override;

    /// The plugin id, built once and kept until the library is unloaded (the entry point
    /// kestrionPluginId returns its text).
    static const std::string& pluginId();

    /// Renames the tracking-stream entries of the workspace's "Algorithms" block saved under
    /// older names ("Atracsys.AtracsysTrackingStreamSpryTrack" -> "Atracsys.SpryTrackStream" and
    /// the fusionTrack and legacy variants). Names must match exactly. True when anything was
    /// renamed; a workspace without "Algorithms" is left alone (false).
    static bool renameLegacyStreams(Properties& workspace, const Filesystem::Path& file);
};

} // namespace Kestrion::SpryTrack
