#pragma once

#include "simulator/src/ReplaySource.h"

#include <atomic>
#include <memory>
#include <string>

namespace Kestrion::Simulator {

class Device;

/// Makes the device that plays a recording (FTK_SIMULATOR_REPLAY): the recorded camera's model
/// and serial number, its option values as recorded (those the model lets be written), frames at
/// the recorded rate or one per fetch on the stepped clock. FTK_SIMULATOR_REPLAY_MARKERS chooses
/// the markers: "recorded" (the default) or "matched" (found again with the geometries
/// registered now). FTK_SIMULATOR_REPLAY_PACE=fetch turns the stepped clock on.
class ReplayDeviceFactory {
public:
    /// Null with the reason in `error` (the file, the frame and the problem) when the recording
    /// cannot be played; notes (a recording cut short) go to stderr.
    static std::shared_ptr<Device> create(const std::string& path, ReplaySource::Markers markers,
                                          const std::atomic<bool>& steppedClock, std::string& error);
    /// The markers FTK_SIMULATOR_REPLAY_MARKERS asks for; false with the reason for another value.
    static bool markersFromEnvironment(ReplaySource::Markers& markers, std::string& error);
    /// Whether FTK_SIMULATOR_REPLAY_PACE asks for one frame per fetch ("fetch") rather than the
    /// recorded rate ("recorded", the default); false with the reason for another value.
    static bool paceFromEnvironment(bool& perFetch, std::string& error);
};

} // namespace Kestrion::Simulator
