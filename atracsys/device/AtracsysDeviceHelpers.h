#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <string>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// The camera found on a library handle. A serial number of 0 means that no device was found.
struct DeviceData {
    std::uint64_t serialNumber = 0;
    /// Device model; DEV_UNKNOWN_DEVICE (127) marks a simulator refused by fusionTrackEnumerator.
    ftkDeviceType type = ftkDeviceType::DEV_SIMULATOR;
    /// Display name derived from the type by assignDeviceNameFromType.
    std::string name;
};

/// Sets the record's name from its type: "fTk simulator", "fTk 500", "fTk 250", "sTk 180",
/// else "UNKNOWN".
void assignDeviceNameFromType(DeviceData* device);

/// Device enumeration callback accepting every device type. `user` is the DeviceData to fill;
/// a null `user` is ignored.
void deviceEnumerator(std::uint64_t serialNumber, void* user, ftkDeviceType type);

/// Device enumeration callback that refuses the simulator: its type is stored as
/// DEV_UNKNOWN_DEVICE (serial number kept) and an error is logged. `user` must not be null.
void fusionTrackEnumerator(std::uint64_t serialNumber, void* user, ftkDeviceType type);

/// Enumerates the devices on `lib` and returns the last one reported (serial 0 when none).
/// Logs SDK failures, a missing device, and (unless `quiet`) the detected device.
DeviceData retrieveLastDevice(ftkLibraryImp* lib, bool allowSimulator, bool quiet);

/// Logs the SDK's last error text for `lib` as an error.
void checkErrorAndLog(ftkLibraryImp* lib);

} // namespace Kestrion::SpryTrack::AtracsysHelpers
