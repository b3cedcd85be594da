#include "atracsys/stream/AtracsysFrameSchedule.h"

namespace Kestrion::SpryTrack {

namespace {

/// Periods outside this range are not a camera's (a counter that jumped, a clock that was reset).
constexpr std::uint64_t MinPeriodUS = 500;    // 2 kHz
constexpr std::uint64_t MaxPeriodUS = 200000; // 5 Hz

} // namespace

void AtracsysFrameSchedule::noteFrame(std::uint32_t counter, std::uint64_t deviceUS, std::uint64_t captureUS,
                                      bool foundWaiting) {
    if (m_seen && counter > m_counter && deviceUS > m_deviceUS) {
        const std::uint64_t period = (deviceUS - m_deviceUS) / (counter - m_counter);
        m_periodUS = period >= MinPeriodUS && period <= MaxPeriodUS ? period : 0;
    } else if (m_seen) {
        m_periodUS = 0; // the camera started again: the period is measured anew
    }
    m_seen = true;
    m_counter = counter;
    m_deviceUS = deviceUS;
    m_captureUS = captureUS;
    m_foundWaiting = foundWaiting;
}

std::optional<std::uint64_t> AtracsysFrameSchedule::nextFrameUS() const {
    if (m_periodUS == 0 || m_foundWaiting)
        return std::nullopt;
    return m_captureUS + m_periodUS;
}

} // namespace Kestrion::SpryTrack
