#include "host/stream/state/InstrumentTracking.h"

#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"

namespace Kestrion {

bool isInstrumentTracked(const TrackingStreamData& frame, const TrackingInstrument& instrument) {
    if (!instrument.active || !(instrument.quality > 0.0))
        return false;
    const auto* status = frame.component<InstrumentStatusData>();
    if (!status)
        return true;
    const auto* entry = status->find(instrument.ID());
    return !entry || InstrumentStatusData::isTracked(entry->state);
}

std::uint64_t frameTimeUS(const TrackingStreamData& frame) {
    if (const auto* capture = frame.component<CaptureTimeData>())
        return capture->captureTimeUS();
    return frame.arrivalTimestamp() * 1000;
}

} // namespace Kestrion
