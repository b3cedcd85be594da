#pragma once

#include "host/stream/DataComponent.h"

#include <cstdint>

namespace Kestrion {

/// When the device captured a frame, on the host's clock: the device's own timestamp of the
/// frame mapped onto UTC by the producer (which knows the device's clock), so that the delivery
/// delay and its jitter do not enter it. Strictly increasing from frame to frame of one device
/// run, and never later than the frame's arrival. Every output that carries a time uses it when
/// a frame has it (frameTimeUS()).
class CaptureTimeData : public DataComponent {
public:
    CaptureTimeData(std::uint64_t captureTimeUS, std::uint64_t deviceTimeUS)
        : m_captureTimeUS(captureTimeUS)
        , m_deviceTimeUS(deviceTimeUS) {}

    /// Microseconds since the epoch, UTC.
    std::uint64_t captureTimeUS() const { return m_captureTimeUS; }
    /// The device's timestamp the capture time was mapped from (microseconds, the device's clock).
    std::uint64_t deviceTimeUS() const { return m_deviceTimeUS; }

private:
    std::uint64_t m_captureTimeUS;
    std::uint64_t m_deviceTimeUS;
};

} // namespace Kestrion
