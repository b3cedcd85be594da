#pragma once

#include "atracsys/device/AtracsysDeviceHelpers.h"

#include <ftkInterface.h>

#include <cstdint>
#include <vector>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// Every device the SDK reports on `lib`, in its order, each named by assignDeviceNameFromType.
/// An enumeration error is logged (checkErrorAndLog) and the devices reported before it are kept.
std::vector<DeviceData> listDevices(ftkLibraryImp* lib);

/// The device the stream opens. Serial number 0: the last one reported (retrieveLastDevice, with
/// its log lines). Otherwise the device with that serial number, logged as detected; when it is
/// not connected, an error line names it and the serial numbers that are, and the result has
/// serial number 0.
DeviceData selectDevice(ftkLibraryImp* lib, std::uint64_t serialNumber);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
