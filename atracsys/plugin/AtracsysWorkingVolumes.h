#pragma once

namespace Kestrion::SpryTrack {

/// Registers the measurement volume of every camera model the plugin knows with the host
/// (WorkingVolume), under the device type names its frames carry, so that host views draw it.
void registerAtracsysWorkingVolumes();

} // namespace Kestrion::SpryTrack
