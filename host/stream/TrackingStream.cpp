#include "host/stream/TrackingStream.h"

#include "host/core/Time.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/ReferencePoseData.h"

#include <algorithm>

namespace Kestrion {

std::size_t TrackingStream::numInstruments(bool onlyActive) const {
    const auto all = instruments();
    if (!onlyActive)
        return all.size();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const TrackingInstrument& i) { return i.active; }));
}

void TrackingStream::emitSignals(InstrumentModifications modifications) {
    if (!modifications.empty())
        signalInstrumentsModified.emitSignal(modifications);
}

std::shared_ptr<TrackingStreamData> TrackingStream::createTrackingStreamData() const {
    auto current = instruments();
    std::uint64_t deviceTimestamp = 0;
    for (const auto& instrument : current)
        deviceTimestamp = std::max(deviceTimestamp, instrument.timestamp);
    return std::make_shared<TrackingStreamData>(this, std::move(current), Time::utcMilliseconds(),
                                                deviceTimestamp);
}

void TrackingStream::setInstrumentNames(const InstrumentNames& names) {
    auto copy = std::make_shared<const InstrumentNames>(names);
    std::lock_guard<std::mutex> lock(m_frameSettingsMutex);
    m_names = std::move(copy);
}

std::shared_ptr<const InstrumentNames> TrackingStream::instrumentNames() const {
    std::lock_guard<std::mutex> lock(m_frameSettingsMutex);
    return m_names;
}

void TrackingStream::setReferenceInstrument(const std::string& instrumentId) {
    std::lock_guard<std::mutex> lock(m_frameSettingsMutex);
    m_referenceId = instrumentId;
}

std::string TrackingStream::referenceInstrument() const {
    std::lock_guard<std::mutex> lock(m_frameSettingsMutex);
    return m_referenceId;
}

void TrackingStream::completeFrame(TrackingStreamData& frame) const {
    std::shared_ptr<const InstrumentNames> names;
    std::string referenceId;
    {
        std::lock_guard<std::mutex> lock(m_frameSettingsMutex);
        names = m_names;
        if (!m_referenceId.empty())
            referenceId = m_referenceId;
    }
    if (names)
        frame.addComponent(std::move(names));
    if (!referenceId.empty())
        frame.addComponent(
            std::make_shared<const ReferencePoseData>(ReferencePoseData::compute(frame, referenceId)));
}

} // namespace Kestrion
