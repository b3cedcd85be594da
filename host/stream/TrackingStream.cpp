#include "host/stream/TrackingStream.h"

#include "host/core/Time.h"
#include "host/stream/TrackingStreamData.h"

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

} // namespace Kestrion
