#pragma once

#include "simulator/src/DeviceModel.h"
#include "simulator/src/OptionTable.h"

#include <cstdint>

namespace Kestrion::Simulator {

/// The option tables the simulated devices and the library offer, and the ids the simulation
/// reads back. Ids other than the two fixed ones of the USB models are this library's own:
/// callers look options up by name.
class OptionCatalog {
public:
    static constexpr std::uint32_t IntegrationTime = 16;
    static constexpr std::uint32_t CompressionThreshold = 17;
    static constexpr std::uint32_t IrStrobe = 30;
    static constexpr std::uint32_t UserLed = 40;
    static constexpr std::uint32_t UserLedRed = 41;
    static constexpr std::uint32_t UserLedGreen = 42;
    static constexpr std::uint32_t UserLedBlue = 43;
    static constexpr std::uint32_t UserLedFrequency = 44;
    static constexpr std::uint32_t LostFrames = 60;
    static constexpr std::uint32_t SensorTemperature = 70;
    static constexpr std::uint32_t MatchingTolerance = 2003;
    static constexpr std::uint32_t EpipolarTolerance = 2004;
    static constexpr std::uint32_t HostProcessing = 6000; ///< USB models: 1 makes the host compute 3D data.
    static constexpr std::uint32_t EmbeddedProcessing = 6001; ///< USB models: the inverse of 6000.
    static constexpr std::uint32_t SendImages = 6003;         ///< USB models: 1 sends images, 0 does not.
    static constexpr std::uint32_t DataDirectory = 1;         ///< Global (serial 0).
    static constexpr std::uint32_t ReplayEnded = 90;          ///< Replaying devices only.

    static OptionTable deviceOptions(const DeviceModel& model);
    static OptionTable globalOptions();
    /// "Replay ended", offered by a device that plays a recording: 0 while it plays, 1 once its
    /// last frame was delivered. Read-only; a camera has no such option.
    static OptionDefinition replayEnded();
};

} // namespace Kestrion::Simulator
