#pragma once

#include <string>

namespace Kestrion::SpryTrack {

/// Replaying a recording as the camera, through the camera library the plugin uses: the
/// simulated camera library replaces its cameras by one that plays the file (its control
/// function ftkSimLoadReplay, docs/recording-format.md); a library without that function (the
/// vendor's) cannot replay. The function is looked up in the loaded library at run time, so the
/// plugin builds and runs against either library. Library handles opened afterwards see the
/// replayed camera; those open keep theirs.
class AtracsysReplayDevice {
public:
    /// Whether the camera library in use can replay recordings.
    static bool available();
    /// Replaces the cameras by one playing `file`: the markers as recorded, or with
    /// `matchMarkers` those found again in the recorded fiducials with the geometries registered
    /// then. False with the reason in `error` (naming the file and the problem).
    static bool load(const std::string& file, bool matchMarkers, std::string& error);
};

} // namespace Kestrion::SpryTrack
