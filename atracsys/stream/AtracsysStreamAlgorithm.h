#pragma once

#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/stream/CreateStreamIoAlgorithm.h"

#include <string>

namespace Kestrion {

/// The streams created by the plugin's algorithm are named "Atracsys Tracking Stream".
template <>
struct CreatedStreamName<SpryTrack::AtracsysTrackingStream> {
    static std::string get() { return "Atracsys Tracking Stream"; }
};

namespace SpryTrack {

/// The plugin's one algorithm ("Atracsys.SpryTrackStream"): creates the camera's tracking stream.
/// The connection is opened (and tracking started) on creation only when the configuration asks
/// for it ("open"/"autoOpen"/"connect", "start"/"autoStart"). Include this header wherever the
/// algorithm class is used, so that the stream name above is the one compiled in.
using AtracsysStreamAlgorithm = CreateStreamIoAlgorithm<AtracsysTrackingStream, false, false>;

} // namespace SpryTrack
} // namespace Kestrion
