#include "atracsys/stream/AtracsysCaptureTimeEstimator.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kestrion::SpryTrack {

std::uint64_t AtracsysCaptureTimeEstimator::captureTime(std::uint64_t deviceUS, std::uint64_t arrivalUS) {
    if (m_started && (deviceUS <= m_lastDeviceUS || arrivalUS <= m_lastCaptureUS))
        reset();
    const auto device = static_cast<std::int64_t>(deviceUS);
    addSample(device, static_cast<std::int64_t>(arrivalUS) - device);
    // The frame's own pair is in the window, so the offset is at most its own: never after arrival.
    const auto offset = static_cast<std::int64_t>(std::floor(offsetAt(device)));
    std::uint64_t capture = static_cast<std::uint64_t>(device + offset);
    if (m_started && capture <= m_lastCaptureUS)
        capture = m_lastCaptureUS + 1; // still before the arrival, which is after the last capture
    capture = std::min(capture, arrivalUS);
    m_started = true;
    m_lastDeviceUS = deviceUS;
    m_lastCaptureUS = capture;
    return capture;
}

void AtracsysCaptureTimeEstimator::reset() {
    m_blocks.clear();
    m_blockStartUS = 0;
    m_drift = 0.0;
    m_started = false;
    m_lastDeviceUS = 0;
    m_lastCaptureUS = 0;
}

void AtracsysCaptureTimeEstimator::addSample(std::int64_t deviceUS, std::int64_t residualUS) {
    if (m_blocks.empty() || deviceUS - m_blockStartUS >= BlockUS) {
        const bool closedOne = !m_blocks.empty();
        m_blocks.push_back({deviceUS, residualUS});
        m_blockStartUS = deviceUS;
        while (m_blocks.size() > 1 && deviceUS - m_blocks.front().deviceUS > DriftHistoryUS)
            m_blocks.pop_front();
        if (closedOne)
            fitDrift(); // a block was completed: its minimum is final
        return;
    }
    Minimum& open = m_blocks.back();
    // Compared where the block's minimum stands now, so that the drift does not favour older frames.
    if (residualUS < open.residualUS + m_drift * static_cast<double>(deviceUS - open.deviceUS))
        open = {deviceUS, residualUS};
}

void AtracsysCaptureTimeEstimator::fitDrift() {
    // The completed blocks: all but the open last one.
    const std::size_t count = m_blocks.size() - 1;
    if (count < 2 || m_blocks[count - 1].deviceUS - m_blocks.front().deviceUS < MinDriftSpanUS)
        return;
    const double t0 = static_cast<double>(m_blocks.front().deviceUS);
    const double r0 = static_cast<double>(m_blocks.front().residualUS);
    auto fit = [&](bool withoutOutliers, double slope, double intercept, double& newSlope,
                   double& newIntercept) {
        double n = 0, st = 0, sr = 0, stt = 0, str = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const double t = static_cast<double>(m_blocks[i].deviceUS) - t0;
            const double r = static_cast<double>(m_blocks[i].residualUS) - r0;
            if (withoutOutliers && r > intercept + slope * t + OutlierUS)
                continue;
            n += 1;
            st += t;
            sr += r;
            stt += t * t;
            str += t * r;
        }
        const double denominator = n * stt - st * st;
        if (n < 2 || denominator <= 0)
            return false;
        newSlope = (n * str - st * sr) / denominator;
        newIntercept = (sr - newSlope * st) / n;
        return true;
    };
    double slope = 0, intercept = 0;
    if (!fit(false, 0, 0, slope, intercept))
        return;
    // The minima lie on or above the line of the smallest delay: a late block pulls the first fit
    // up, so the second is made from the minima near or below it.
    double refined = slope, refinedIntercept = intercept;
    if (fit(true, slope, intercept, refined, refinedIntercept))
        slope = refined;
    m_drift = std::clamp(slope, -MaxDrift, MaxDrift);
}

double AtracsysCaptureTimeEstimator::offsetAt(std::int64_t deviceUS) const {
    double offset = std::numeric_limits<double>::max();
    for (auto block = m_blocks.rbegin(); block != m_blocks.rend(); ++block) {
        if (deviceUS - block->deviceUS > WindowUS)
            break;
        offset = std::min(offset, static_cast<double>(block->residualUS) +
                                      m_drift * static_cast<double>(deviceUS - block->deviceUS));
    }
    return offset;
}

} // namespace Kestrion::SpryTrack
