#pragma once

#include "host/apps/kestrion/TrackOptions.h"
#include "host/core/Properties.h"

#include <optional>
#include <string>
#include <vector>

namespace Kestrion::Cli {

class CommandContext;

/// What `kestrion track` hands the tracking algorithm: the configuration of the stream (from the
/// workspace's "Atracsys.SpryTrackStream" block, if any, with the command's options applied on
/// top) and the marker geometry files it names, each checked to be readable.
struct TrackConfiguration {
    /// The algorithm identifier the command creates.
    static const char* const AlgorithmId;

    Properties properties;
    /// One per "TrackingTargets" entry: its name and the file as the stream will read it.
    struct Target {
        std::string name;
        std::string path;
    };
    std::vector<Target> targets;
    /// Reopen the camera when it stops delivering frames: `--reconnect`, or the workspace block's
    /// "reconnect" setting (the desktop panel's "Reconnect" check box).
    bool reconnect = false;

    /// Builds the configuration. Returns nothing and sets *error ("workspace ...: ...",
    /// "geometry file ...: ...") when the workspace cannot be used or a geometry file cannot be
    /// read. Resources (":/...") are looked up in what the loaded plugins provide.
    static std::optional<TrackConfiguration> build(const TrackOptions& options, std::string* error);
};

} // namespace Kestrion::Cli
