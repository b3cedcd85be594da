#pragma once

#include "host/stream/DataComponent.h"

#include <cstdint>
#include <string>

namespace Kestrion {

/// Where a tracking frame came from, as the device reported it: the device's type name and serial
/// number, the device's running frame counter and its own timestamp of the frame. Consumers use
/// the counter to see frames the host never received (a gap between two consecutive counters)
/// and the device timestamp to time frames independently of the host's clock.
class DeviceFrameInfo : public DataComponent {
public:
    DeviceFrameInfo(std::string deviceType, std::uint64_t serialNumber, std::uint32_t frameCounter,
                    std::uint64_t deviceTimestampUS)
        : m_deviceType(std::move(deviceType))
        , m_serialNumber(serialNumber)
        , m_frameCounter(frameCounter)
        , m_deviceTimestampUS(deviceTimestampUS) {}

    /// The device's type name ("sTk 180", ...).
    const std::string& deviceType() const { return m_deviceType; }
    std::uint64_t serialNumber() const { return m_serialNumber; }
    /// The device's frame counter (wraps around after 2^32 frames).
    std::uint32_t frameCounter() const { return m_frameCounter; }
    /// The device's timestamp of the frame, microseconds (its own clock).
    std::uint64_t deviceTimestampUS() const { return m_deviceTimestampUS; }

    /// Frames the device produced between a frame with counter `previous` and the next one
    /// received with counter `current` (0 when they follow each other or are the same frame),
    /// across a wrap-around.
    static std::uint32_t framesBetween(std::uint32_t previous, std::uint32_t current) {
        return current == previous ? 0u : current - previous - 1u;
    }

private:
    std::string m_deviceType;
    std::uint64_t m_serialNumber;
    std::uint32_t m_frameCounter;
    std::uint64_t m_deviceTimestampUS;
};

} // namespace Kestrion
