#pragma once

#include "host/stream/state/DeviceReading.h"

#include <ftkInterface.h>

#include <cstdint>
#include <vector>

namespace Kestrion::SpryTrack {

/// The camera's options read as the host's device readings: every option the device lets be
/// read, with an int or float value, in the order the SDK lists them; temperatures (unit degC, or
/// "temperature" in the name) apart, options that can be written as settings. Options whose read
/// fails now are left out. The caller holds the device mutex (SDK calls).
class AtracsysDeviceReadings {
public:
    static std::vector<DeviceReading> read(ftkLibrary library, std::uint64_t serialNumber);
};

} // namespace Kestrion::SpryTrack
